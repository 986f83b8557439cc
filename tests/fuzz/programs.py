"""Whole programs: an engine over records, a call of it, and what hooks will do at which moments."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

from differential import arguments, evaluations
from differential.cases import KINDS
from differential.hooks import HookedIterable, HookedList, HookedSequence, hooked
from differential.operations import sides_for, status_row
from differential.patches import _overrides
from differential.values import CLEAN_FAMILIES, CLEAN_NAMES
from differential.world import NOW
from fuzz.actions import ACTIONS
from fuzz.loud import LoudFloat, LoudInt, LoudIterator, LoudText, loud
from fuzz.module_actions import MODULE_ACTIONS
from fuzz.records import records
from fuzz.values import hook, hooked_value, number, turns
from fuzz.world import Action, FuzzWorld
from support.parts import USAGE_FILTERS
from support.records import STATUS_TABLES, HistoryTracker, TableConnection

Call = Callable[[], Any]

# What each operation reads of a record, and the sides of usage that it needs.
OPERATIONS: dict[str, tuple[tuple[str, ...], tuple[str, ...]]] = {
    "get_search_stats": (evaluations.STATISTICS, ("function", "feature")),
    "get_suggestions": (evaluations.STATISTICS, ("function", "feature")),
    "get_search_patterns": (evaluations.PATTERNS, ("function",)),
    "get_search_velocity": (evaluations.VELOCITY, ()),
    "get_yield_analysis": (evaluations.YIELD, ()),
    "get_correlation_patterns": (evaluations.BASIC, ("function",)),
}
SHARES = (*("get_search_stats",) * 4, *tuple(OPERATIONS)[1:], *tuple(OPERATIONS)[2:])

# Generated cases of the differential tests, some of which hooks disturb, too.
OTHER_KINDS = tuple(kind for kind in KINDS if kind not in ("catalogue", "tamper delta"))


def keywords_for(w: FuzzWorld, operation: str) -> dict[str, Any]:
    """The arguments of a call."""
    keywords: dict[str, Any] = arguments.filters(w) if w.chance(15) else {}
    if w.chance(12):
        texts = (*CLEAN_FAMILIES[:3], *CLEAN_NAMES[:3])
        held = loud(w, LoudText, "filter", w.pick(texts), turns=turns(w))
        keywords[w.pick(USAGE_FILTERS[:2])] = held if w.chance(w.loudness) else w.pick(texts)
    if operation in ("get_search_stats", "get_suggestions"):
        keywords["min_sample_size"] = _count(w, arguments.min_sample_size, 0)
        if w.chance(70):
            keywords["aggregate_by"] = _granularity(w)
        if w.chance(10):
            keywords["pnl_column"] = arguments.pnl_column(w)
        if w.chance(30):
            keywords["era_id"] = loud(w, LoudText, "era", "era-1") if w.chance(30) else "era-1"
    if operation == "get_search_stats" and w.chance(40):
        keywords["time_windows"] = arguments.time_windows(w)
        keywords["sort_ascending"] = arguments.sort_ascending(w)
    if operation in ("get_search_stats", "get_search_patterns") and w.chance(25):
        keywords["eval_pool"] = arguments.eval_pool(w)
    if operation in ("get_suggestions", "get_correlation_patterns") and w.chance(50):
        keywords["top_n"] = _count(w, arguments.top_n, 2)
    if operation == "get_search_velocity" and w.chance(70):
        keywords["windows"] = _windows(w)
    if operation == "get_yield_analysis" and w.chance(50):
        keywords["recent_window_minutes"] = _minutes(w)
    return keywords


def _granularity(w: FuzzWorld) -> Any:
    if w.chance(w.oddness):
        return arguments.aggregate_by(w)
    levels = w.module.AggregateBy
    return w.pick((levels.FUNCTION_FAMILY_FEATURE_FAMILY, levels.FUNCTION_FEATURE, levels.NONE))


def _count(w: FuzzWorld, odd: Any, usual: int) -> Any:
    if w.chance(w.loudness):
        return loud(w, LoudInt, "count", w.below(4))
    return odd(w) if w.chance(w.oddness) else usual


def _minutes(w: FuzzWorld) -> Any:
    if w.chance(w.loudness):
        kind = w.below(3)
        value = w.pick((60, 1, 1440))
        return number(w) if kind == 0 else loud(w, (LoudInt, LoudFloat)[kind - 1], "minutes", value)
    return arguments.minutes(w) if w.chance(w.oddness) else w.pick((60, 360, 1440, 90.5))


def _windows(w: FuzzWorld) -> Any:
    windows: Any = [_minutes(w) for _ in range(1 + w.below(3))]
    w.thing("windows", windows)
    if not w.chance(w.loudness):
        return windows
    return w.pick((hook(w, HookedSequence, "windows", windows), tuple(windows)))


def history_of(w: FuzzWorld, held: list[Any]) -> Any:
    """What the tracker gives: mostly the list of records itself."""
    w.thing("history", held)
    if not w.chance(w.loudness + w.oddness // 2):
        return held
    kind = w.below(9)
    if kind == 0:
        return w.thing("history", hooked(HookedList, w.note, "history", held))
    if kind == 1:
        return loud(w, LoudIterator, "history", held)
    if kind == 2:
        return HookedIterable(w.note, "history", held)
    if kind < 7:
        return HookedSequence(w.note, "history", held)
    return evaluations.history(w, held)


def pools_of(w: FuzzWorld) -> Any:
    """The pools of an engine."""
    if w.chance(w.oddness):
        return arguments.pools(w)
    made = []
    for place in range(1 + w.below(2)):
        threshold: Any = w.pick((0.5, 0.25, 1))
        if w.chance(w.loudness):
            threshold = loud(w, LoudFloat, "threshold", 0.5)
        pool = SimpleNamespace(name=f"pool-{place}", is_correlation_threshold=threshold)
        made.append(w.thing("pool", pool))
    return w.thing("pools", made)


def connection_of(w: FuzzWorld) -> Any:
    """Where a yield analysis asks for the status of evaluations."""
    rows = {f"evaluation-{place}": status_row(w) for place in range(w.below(4))}
    return TableConnection(list(STATUS_TABLES)[: w.below(3)], rows, w.trace)


def engine_of(w: FuzzWorld, history: Any) -> Any:
    """An engine over that history; now and then of a class that says what is read of it."""
    tracker = HistoryTracker(history, w.trace)
    if w.chance(40):
        vars(tracker)["_conn"] = connection_of(w)
    base = w.module.SearchAnalytics
    kind = w.below(20)
    if kind == 19:
        base = type("LoudEngine", (base,), {"__getattribute__": _reading(w)})
    elif kind == 18:
        methods = _overrides(w, base, history)
        base = type("Overriding", (base,), {k: v for k, v in methods.items() if w.chance(40)})
    elif kind > 14:
        base = type("Derived", (base,), {})
    return w.thing("engine", base(tracker, pools_of(w)))


def _reading(w: FuzzWorld) -> Any:
    def read(engine: Any, name: str) -> Any:
        if not name.startswith("__"):
            w.trace.append(("engine", name))
        return object.__getattribute__(engine, name)

    return read


def plan(w: FuzzWorld, is_focused: bool) -> None:
    """Choose what happens, and at which events: the sooner the likelier.

    The first events of a focused program are the history and the clock.
    """
    for _ in range(1 + w.below(2) if is_focused else w.pick((1, 2, 3, 5, 0))):
        moment = 2 + w.below(5) if is_focused else 1 + w.below(1 << (1 + w.below(6)))
        pool = MODULE_ACTIONS if w.chance(50 if is_focused else 30) else ACTIONS
        action: Action = w.pick(pool)
        w.moments[moment] = (f"{action.__name__} at {moment}", action)


def focus(w: FuzzWorld, made: list[Any], names: tuple[str, ...]) -> None:
    """Give one attribute of one record a value with hooks."""
    record, name = w.pick(made), w.pick(names)
    held = hooked_value(w, name)
    w.tell("but", record, name, "is", held)
    setattr(record, name, held)


def own_program(w: FuzzWorld, is_focused: bool) -> Call:
    """A call of an engine over records that are made for it.

    In a focused one everything is ordinary but for one value: most is then read in place, and
    whatever the value's hooks change is met by readers that know what it was.
    """
    operation = w.pick(SHARES)
    if is_focused:
        w.loudness = w.oddness = 0
    elif w.chance(12):
        w.numbers = tuple(w.below(3000) for _ in range(w.pick((1, 2, 3))))
    keywords = keywords_for(w, operation)
    attributes, sides = OPERATIONS[operation]
    sides = sides_for(w, keywords, *sides)
    held = records(w, attributes, sides, 12 if operation == "get_search_velocity" else 6)
    names = (*attributes, *(f"{side}_metadata" for side in sides))
    if w.is_mortal:
        w.things["record"] = held
    if is_focused:
        focus(w, held, names)
    target = engine_of(w, history_of(w, held))
    if w.chance(w.loudness):
        reading = number(w) if w.chance(50) else loud(w, LoudFloat, "clock", NOW)
        w.clock = lambda: reading
    w.thing("names", names)
    w.thing("operation", operation)
    w.thing("operations", OPERATIONS)
    w.thing("keywords", keywords)
    w.tell("call", operation, keywords)
    return lambda: getattr(target, operation)(**keywords)


def other_program(w: FuzzWorld) -> Call:
    """A generated case of the differential tests, which hooks of the module's parts disturb."""
    kind = w.pick(OTHER_KINDS)
    w.tell("generated case", kind)
    w.thing("operation", "get_search_patterns")
    return KINDS[kind][0](w)


def program(w: FuzzWorld) -> Call:
    """One program: its objects, its plan, and the call that starts it."""
    kind = w.below(100)
    is_focused = 60 <= kind < 95
    call = own_program(w, is_focused) if kind < 95 else other_program(w)
    plan(w, is_focused)
    return call
