"""Generated calls in a module whose parts the caller has replaced."""

from __future__ import annotations

import math
from collections.abc import Callable
from fractions import Fraction
from types import SimpleNamespace
from typing import Any

from differential import evaluations, operations
from differential.hooks import HookedDict, hooked
from differential.values import fresh_error
from differential.world import NOW, World

Call = Callable[[], Any]

OPERATIONS: tuple[Callable[[World], Call], ...] = (
    operations.search_stats,
    operations.suggestions,
    operations.patterns,
    operations.velocity,
    operations.yield_analysis,
    operations.correlation_patterns,
    operations.fetch,
    operations.methods,
)


def _logged(w: World, name: str, change: Callable[[Any], Any] = lambda value: value) -> None:
    """Replace a function of the module by one that logs its arguments and changes its answer."""
    original = getattr(w.module, name)

    def replacement(*args: Any, **keywords: Any) -> Any:
        w.note(name, len(args), repr(args[1:]), repr(keywords))
        return change(original(*args, **keywords))

    w.patch(w.module, name, replacement)


def usage_value(w: World) -> None:
    """Names as the caller likes them."""
    changes: tuple[Callable[[Any], Any], ...] = (
        lambda value: value,
        lambda value: "all",
        lambda value: str(value).upper(),
        lambda value: [value],
        lambda value: None,
    )
    _logged(w, "_usage_value", w.pick(changes))


def items(w: World) -> None:
    """Items as the caller likes them, of functions, of features or of both."""
    changes: tuple[Callable[[Any], Any], ...] = (
        lambda found: found,
        lambda found: [{"function_name": "own", "feature_name": "own"}],
        lambda found: ["bare", *found],
        lambda found: iter(found),
        lambda found: None,
    )
    names = ("_function_items", "_feature_items", "_usage_items")
    _logged(w, w.pick(names), w.pick(changes))


def key_maps(w: World) -> None:
    """Other keys for the levels, or none."""
    name, side = w.pick((("_FUNC_KEY_MAP", "function"), ("_FEAT_KEY_MAP", "feature")))
    maps: tuple[Any, ...] = (
        dict.fromkeys((f"{side}_family", f"{side}_subfamily", side), f"{side}_name"),
        {},
        hooked(HookedDict, w.note, name, getattr(w.module, name)),
        SimpleNamespace(),
        {side: None, f"{side}_family": 5, f"{side}_subfamily": "x"},
    )
    w.patch(w.module, name, w.pick(maps))


def history_limit(w: World) -> None:
    """Another limit."""
    w.patch(w.module, "_DEFAULT_ANALYTICS_HISTORY_LIMIT", w.pick((7, None, "all", 10**30)))


RECORD_CLASSES = (
    "WindowStats",
    "StatsRow",
    "SearchStatsResult",
    "SuggestionsResult",
    "DepthBucket",
    "FamilyYield",
    "SearchPatternsResult",
    "VelocityWindow",
    "SearchVelocityResult",
    "YieldAnalysisResult",
    "FunctionPairPattern",
    "CorrelationPatternsResult",
)


def record_class(w: World) -> None:
    """Records of a class that logs how it is called; or one that fails, or answers otherwise."""
    name = w.pick(RECORD_CLASSES)
    original = getattr(w.module, name)
    kind = w.below(4)
    failure = fresh_error(w)

    def build(*args: Any, **keywords: Any) -> Any:
        w.note(name, len(args), tuple(keywords))
        if kind == 1:
            raise failure
        if kind == 2:
            return SimpleNamespace(**keywords)
        return original(*args, **keywords)

    if kind == 3:
        w.patch(w.module, name, type(name, (original,), {}))
    else:
        w.patch(w.module, name, build)


def clock(w: World) -> None:
    """Another clock: in `time`, or in place of the module's `time`."""
    failure = fresh_error(w)
    readings: tuple[Any, ...] = (
        int(NOW),
        NOW + 0.125,
        math.nan,
        math.inf,
        0,
        Fraction(int(NOW)),
        "now",
        None,
        True,
    )
    reading = w.pick(readings)

    def tell() -> Any:
        if reading == "now" and w.mood == "broken":
            raise failure
        return reading

    if w.chance(50):
        w.clock = tell
    else:
        w.patch(w.module, "time", SimpleNamespace(time=tell))


def arithmetic(w: World) -> None:
    """Another `math`, or another tamper test."""
    if w.chance(50):
        verdict = w.pick((True, False, "", 1))
        w.patch(w.module, "math", SimpleNamespace(isfinite=lambda value: verdict))
    else:
        _logged(w, "_pnl_mi_tamper_delta", w.pick((lambda v: v, lambda v: 0, lambda v: None)))


def schema(w: World) -> None:
    """Other answers about the tracker's tables."""
    if w.chance(50):
        _logged(w, "_tracker_table_exists", w.pick((lambda v: v, lambda v: "yes", lambda v: 0)))
    else:
        pairs = (("my_table", "my_column"), ("", "x"), (None, None), ("a",), "ab", ["t", "c"], 5)
        pair = w.pick(pairs)
        w.patch(w.module, "_submission_status_table_and_signal_column", lambda kind: pair)


def vocabulary(w: World) -> None:
    """Enumerations of the caller's own."""
    kind = w.below(3)
    if kind == 0:
        w.patch(w.module, "TimeWindow", SimpleNamespace(LIFETIME=1, ERA=2, LAST_WEEK=3, LAST_24H=4))
    elif kind == 1:
        w.patch(w.module, "EvalPool", SimpleNamespace(ALL="all", PASSED=None, SUBMITTED="passed"))
    else:
        other = getattr(w.module.AggregateBy, "FUNCTION_FEATURE", None)
        w.patch(w.module, "AggregateBy", SimpleNamespace(NONE=other))


MODULE_PATCHES: tuple[Callable[[World], None], ...] = (
    usage_value,
    items,
    key_maps,
    history_limit,
    record_class,
    clock,
    arithmetic,
    schema,
    vocabulary,
)


def patched_module(w: World) -> Call:
    """An operation in a module of which one or two parts are replaced."""
    call = w.pick(OPERATIONS)(w)
    first = w.below(len(MODULE_PATCHES))
    MODULE_PATCHES[first](w)
    if w.chance(50):
        MODULE_PATCHES[(first + 1 + w.below(len(MODULE_PATCHES) - 1)) % len(MODULE_PATCHES)](w)
    return call


def overridden_methods(w: World) -> Call:
    """An operation on an engine that overrides methods, in its class or on itself."""
    base = w.module.SearchAnalytics
    records = operations.records_for(
        w, evaluations.STATISTICS + evaluations.PATTERNS[2:] + evaluations.YIELD[3:], ("function",)
    )
    history = evaluations.history(w, records)
    methods = _overrides(w, base, history)
    chosen = {name: methods[name] for name in methods if w.chance(45)}
    pools = [SimpleNamespace(name="main", is_correlation_threshold=0.7)]
    tracker = operations.HistoryTracker(history, w.trace)
    if w.chance(60):
        target = type("Engine", (base,), chosen)(tracker, pools)
    else:
        target = base(tracker, pools)
        for name, method in chosen.items():
            setattr(target, name, method.__get__(target))
    if w.chance(20):
        target._pool_configs = w.pick(((), [], iter(pools), None, [SimpleNamespace(name="x")]))
    names = (
        "get_search_stats",
        "get_suggestions",
        "get_search_patterns",
        "get_search_velocity",
        "get_yield_analysis",
        "get_correlation_patterns",
    )
    operation = w.pick(names)
    keywords: dict[str, Any] = {"era_id": w.pick((None, "era-1")), "eval_type": "signal"}
    if operation in names[:2]:
        keywords["min_sample_size"] = w.below(3)
    return lambda: getattr(target, operation)(**keywords)


def _overrides(w: World, base: Any, history: Any) -> dict[str, Any]:
    rows = _rows(w)

    def fetch(engine: Any, *args: Any, **keywords: Any) -> Any:
        w.note("fetch", len(args), tuple(keywords))
        return history

    def group_key(engine: Any, ev: Any, aggregate_by: Any) -> Any:
        w.note("group key")
        if w.mood == "clean":
            return base._build_group_key(engine, ev, aggregate_by)
        return getattr(ev, "era_id", None)

    def validate(engine: Any, eval_type: Any) -> None:
        w.note("validate", repr(eval_type))

    def search_stats(engine: Any, *args: Any, **keywords: Any) -> Any:
        windows = keywords["time_windows"]
        # What is no list shows its address.
        shown = repr(windows) if isinstance(windows, list) else type(windows).__name__
        w.note("stats", len(args), tuple(keywords), shown)
        return SimpleNamespace(rows=rows)

    return {
        "_fetch_evaluations": fetch,
        "_build_group_key": group_key,
        "_validate_eval_type": validate,
        "get_search_stats": search_stats,
    }


def _rows(w: World) -> Any:
    """Rows as an overriding `get_search_stats` may return them."""
    rows = []
    for _ in range(w.below(6)):
        window = SimpleNamespace(composite_score=w.pick((1.0, 0.5, 0.5, -2.0, 1, True)))
        windows: Any = [window] if not w.broken(10) else w.pick((None, [], 5))
        rows.append(w.tag(SimpleNamespace(windows=windows, evaluation_count=w.below(3)), "row"))
    if w.odd(15):
        return w.pick((tuple(rows), iter(rows), None))
    return w.tag(rows, "rows")
