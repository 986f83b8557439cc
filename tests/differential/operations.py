"""Generated calls of the engine: the nine operations and the methods that they are built on."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from differential import arguments, evaluations
from differential.hooks import HookedSequence, HookedTruth
from differential.values import fresh_error, name, truth
from differential.world import NOW, World
from support.parts import FIRST_FILTERS, USAGE_FILTERS
from support.records import STATUS_TABLES, HistoryTracker, TableConnection, status_database

Call = Callable[[], Any]

BOTH_SIDES = ("function", "feature")


def engine(w: World, records: list[Any], **attributes: Any) -> Any:
    """An engine of the side's own class over a logging tracker with those records."""
    tracker = HistoryTracker(evaluations.history(w, records), w.trace)
    vars(tracker).update(attributes)
    return w.module.SearchAnalytics(tracker, arguments.pools(w))


def calling(w: World, target: Any, operation: str, keywords: dict[str, Any]) -> Call:
    """A call of `target`'s operation, now and then with its first filters by position."""
    positional: list[Any] = []
    if w.chance(8):
        first = FIRST_FILTERS[: w.below(len(FIRST_FILTERS) + 1)]
        positional = [keywords.pop(name, None) for name in first]
    return lambda: getattr(target, operation)(*positional, **keywords)


def optional(w: World, keywords: dict[str, Any], percent: int, key: str, value: Any) -> None:
    """Pass an argument in so many of 100 cases."""
    if w.chance(percent):
        keywords[key] = value


def sides_for(w: World, keywords: dict[str, Any], *needed: str) -> tuple[str, ...]:
    """The sides of usage that records need, given the filters."""
    sides = list(needed)
    for side in BOTH_SIDES:
        if side not in sides and any(key.startswith(side) for key in keywords):
            sides.append(side)
    return tuple(sides)


def records_for(
    w: World, attributes: tuple[str, ...], sides: tuple[str, ...], most: int = 9, **fields: Any
) -> list[Any]:
    """Up to `most` records; now and then the same one several times, now and then a crowd."""
    if w.chance(3):
        return evaluations.crowd(w)
    records = [
        evaluations.evaluation(w, attributes, sides, f"record {index}", **fields)
        for index in range(w.below(most + 1))
    ]
    if records and w.chance(10):
        records.extend([records[w.below(len(records))]] * 3)
    return records


def search_stats(w: World) -> Call:
    """Statistics by group and window."""
    keywords = arguments.filters(w)
    optional(w, keywords, 70, "aggregate_by", arguments.aggregate_by(w))
    optional(w, keywords, 25, "eval_pool", arguments.eval_pool(w))
    optional(w, keywords, 60, "time_windows", arguments.time_windows(w))
    optional(w, keywords, 30, "pnl_column", arguments.pnl_column(w))
    optional(w, keywords, 97, "min_sample_size", arguments.min_sample_size(w))
    optional(w, keywords, 40, "sort_ascending", arguments.sort_ascending(w))
    records = records_for(w, evaluations.STATISTICS, BOTH_SIDES)
    return calling(w, engine(w, records), "get_search_stats", keywords)


def suggestions(w: World) -> Call:
    """Focus and avoid lists."""
    keywords = arguments.filters(w)
    optional(w, keywords, 70, "aggregate_by", arguments.aggregate_by(w))
    optional(w, keywords, 20, "pnl_column", arguments.pnl_column(w))
    optional(w, keywords, 97, "min_sample_size", arguments.min_sample_size(w))
    optional(w, keywords, 70, "top_n", arguments.top_n(w))
    records = records_for(w, evaluations.STATISTICS, BOTH_SIDES)
    return calling(w, engine(w, records), "get_suggestions", keywords)


def patterns(w: World) -> Call:
    """Depths and families."""
    keywords = arguments.filters(w)
    optional(w, keywords, 25, "eval_pool", arguments.eval_pool(w))
    sides = sides_for(w, keywords, "function")
    if w.chance(4):
        # Depths that are all unknown can be sorted: None is then the only key.
        records = records_for(w, evaluations.BASIC, sides, most=3, tree_depth=None)
    else:
        records = records_for(w, evaluations.PATTERNS, sides, most=12)
    return calling(w, engine(w, records), "get_search_patterns", keywords)


# Evaluations and passes of a recent and of an older stretch: rates at, just under and just over
# the factors at which a trend changes, and 9 or 10 evaluations.
RATES = (
    (10, 6, 10, 4),
    (10, 4, 10, 6),
    (10, 5, 10, 5),
    (10, 0, 10, 0),
    (9, 9, 10, 0),
    (10, 1, 10, 3),
    (10, 2, 20, 13),
    (0, 0, 10, 5),
    (10, 3, 5, 0),
    (20, 12, 20, 8),
    (10, 8, 0, 0),
    (12, 3, 12, 12),
    (10, 10, 2, 0),
    (20, 9, 20, 15),
    (20, 13, 20, 7),
)


def rated(w: World) -> tuple[list[Any], float]:
    """Records that make one of the `RATES`, and the recent stretch in minutes."""
    recent, recent_passed, old, old_passed = w.pick(RATES)
    span = w.pick((60, 360, 1440))
    records = []
    for index in range(recent):
        age = w.pick((0, 1, span * 60))
        records.append(evaluations.timed(w, age, index < recent_passed, f"recent {index}"))
    for index in range(old):
        age = w.pick((span * 60 + 1, span * 120, span * 600, span * 60 + 0.25))
        records.append(evaluations.timed(w, age, index < old_passed, f"old {index}"))
    return records, span


def velocity(w: World) -> Call:
    """Rates per hour over several windows."""
    keywords = arguments.filters(w)
    if w.chance(50):
        for key in USAGE_FILTERS:
            keywords.pop(key, None)
        records, span = rated(w)
        keywords["windows"] = [span, w.pick((span * 10, span, span * 2, 2 * span + 0.5))]
        if w.chance(50):
            keywords["windows"].reverse()
    else:
        optional(w, keywords, 80, "windows", arguments.windows(w))
        sides = sides_for(w, keywords)
        records = records_for(w, evaluations.VELOCITY, sides, most=24)
    return calling(w, engine(w, records), "get_search_velocity", keywords)


STATUSES = ("useful", "not_useful", "pending", "rejected", None, "Useful", "")


def status_row(w: World) -> Any:
    """A row of a status table, or what a driver may give in its place."""
    flag: Any = w.pick((None, 1, 0, None))
    if w.odd(15):
        flag = w.pick((True, "", "0", 2.5, truth(w)))
    reason = w.pick((None, "rejected: TAMPERING", "weak", ""))
    row: Any = (w.pick(STATUSES), flag, reason, w.pick((None, "pool-z", "")))
    if w.odd(10):
        return list(row)
    if w.odd(8):
        return HookedSequence(w.note, "row", row)
    if w.broken():
        return w.pick((row[:3], (), "abcd", 5, iter(row), {}))
    return row


def connection(w: World) -> dict[str, Any]:
    """The tracker's `_conn`, as attributes of the tracker: absent, None, logging, or real."""
    kind = w.below(20)
    if kind < 3:
        return {}
    if kind == 3:
        return {"_conn": None}
    tables = [table for table in STATUS_TABLES if w.chance(75)]
    if kind == 4:
        rows = {
            table: [
                (
                    f"e{w.below(6)}",
                    w.pick(STATUSES),
                    w.pick((None, 0, 1)),
                    w.pick((None, "tamper", "weak")),
                    w.pick((None, "pool-z")),
                )
                for _ in range(w.below(6))
            ]
            for table in tables
        }
        views = [table for table in STATUS_TABLES if table not in tables and w.chance(50)]
        database = status_database(rows, views)
        w.cleanup.callback(database.close)
        return {"_conn": database}
    rows = {f"e{index}": status_row(w) for index in range(6) if w.chance(70)}
    attributes: dict[str, Any] = {}
    if w.chance(50):
        attributes["dialect"] = w.pick(("postgres", "sqlite", "Postgres", None))
    return {"_conn": TableConnection(tables, rows, w.trace, **attributes)}


def yield_analysis(w: World) -> Call:
    """Yield, trend, usefulness and tampering."""
    keywords = arguments.filters(w)
    if w.chance(25):
        for key in USAGE_FILTERS:
            keywords.pop(key, None)
        records, span = rated(w)
        keywords["recent_window_minutes"] = span
    else:
        optional(w, keywords, 60, "recent_window_minutes", arguments.minutes(w))
        records = records_for(w, evaluations.YIELD, sides_for(w, keywords), most=8)
    return calling(w, engine(w, records, **connection(w)), "get_yield_analysis", keywords)


def correlation_patterns(w: World) -> Call:
    """Pairs of functions."""
    keywords = arguments.filters(w)
    optional(w, keywords, 60, "top_n", arguments.top_n(w))
    records = records_for(w, evaluations.BASIC, sides_for(w, keywords, "function"), most=10)
    return calling(w, engine(w, records), "get_correlation_patterns", keywords)


def catalogue(w: World) -> Call:
    """What the tracker and the module have to offer."""
    operation = w.pick(
        ("get_available_eras", "get_available_named_universes", "get_available_aggregations")
    )
    answer = w.tag(w.pick((["era-1"], [], (), None, {"x": 1}, iter(()))), "answer")
    answers = {"eras": answer, "universes": answer} if not w.broken(20) else {}
    target = w.module.SearchAnalytics(
        HistoryTracker([], w.trace, **answers), [w.pick(arguments.pools(w))]
    )
    return lambda: getattr(target, operation)()


def fetch(w: World) -> Call:
    """The fetch that every operation starts with."""
    keywords = arguments.filters(w)
    for key in USAGE_FILTERS:
        optional(w, keywords, 25, key, name(w, ("trend", "rank", "sma", "close", "")))
    optional(w, keywords, 60, "eval_pool", arguments.eval_pool(w))
    records = records_for(w, evaluations.BASIC, BOTH_SIDES)
    target = engine(w, records)
    return lambda: target._fetch_evaluations(**keywords)


def construction(w: World) -> Call:
    """An engine built from something, and what it then holds."""
    pools = arguments.pools(w)
    threshold: Any = w.pick(
        (0.3, 1, True, False, 0, -0.5, "0.3", None, float("nan"), -0.0, 10**400, 1j, fresh_error)
    )
    pools = list(pools) if not isinstance(pools, list) else pools
    if w.chance(70):
        pools.insert(w.below(2), _Pool(threshold))
    given: Any = w.tag(pools, "pools")
    if w.chance(40):
        given = w.pick(
            (None, [], (), tuple(pools), iter(pools), HookedSequence(w.note, "pools", pools), 5)
        )
        if w.chance(10):
            given = HookedTruth(w.note, "pools", w.pick((False, True, fresh_error(w))))
    tracker = w.tag(object(), "tracker") if w.chance(90) else None

    def build() -> Any:
        return vars(w.module.SearchAnalytics(tracker, given))

    return build


class _Pool:
    """A pool that only has a threshold, if that."""

    def __init__(self, threshold: Any) -> None:
        if not callable(threshold):
            self.is_correlation_threshold = threshold


def methods(w: World) -> Call:
    """The engine's small methods: group keys, statistics, time windows, evaluation types."""
    target = w.module.SearchAnalytics(object(), arguments.pools(w))
    kind = w.below(4)
    if kind == 0:
        record = evaluations.evaluation(w, (), BOTH_SIDES, "record")
        level = arguments.aggregate_by(w)
        return lambda: target._build_group_key(record, level)
    if kind == 1:
        record = evaluations.evaluation(w, evaluations.STATISTICS, (), "record")
        column = arguments.pnl_column(w)
        statistic: Any = w.pick(("sharpe", "returns", "turnover", "nowhere"))
        if w.broken(10):
            statistic = 5
        return lambda: target._get_stat(record, column, statistic)
    if kind == 2:
        records = evaluations.history(w, records_for(w, evaluations.STATISTICS, ()))
        members = list(w.module.TimeWindow)
        window: Any = w.pick(members)
        if w.odd(20):
            window = w.pick((None, "era", arguments._EqualTo(w, members[1], members[3])))
        era_id = w.pick((None, "era-1", "era-2"))
        now = w.pick((NOW, int(NOW), NOW + 0.5)) if not w.broken(10) else None
        return lambda: target._filter_by_time_window(records, window, era_id, now)
    kind_of_evaluation = arguments.eval_type(w)
    return lambda: target._validate_eval_type(kind_of_evaluation)
