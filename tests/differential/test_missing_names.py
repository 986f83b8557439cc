"""A name of the module that was deleted is missed where it is needed: neither sooner nor later.

Every call is made without each of the module's names in turn. What it did until then, and what it
answers where it does well without the name, are the model's.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from types import SimpleNamespace
from typing import Any

import pytest
from differential.cases import subject
from differential.hooks import HookedDict, HookedText, hooked
from differential.traps import (
    OPERATIONS,
    assert_same,
    call,
    difference,
    engine,
    forget,
    log_record_classes,
    plain,
    trap,
)
from differential.world import World
from model import search_analytics_model as model

Call = Callable[[], Any]

NAMES = sorted(
    name for name in vars(model) if not name.startswith("__") and hasattr(subject(), name)
)
NO_NAMES = {side: [] for side in ("function_metadata", "functions", "feature_metadata", "features")}


class LoggedHistory(list):  # type: ignore[type-arg]
    """A history that logs when it is asked for its length or its records."""

    note: Callable[..., None]
    label: str

    def __len__(self) -> int:
        self.note(self.label, "len")
        return super().__len__()

    def __iter__(self) -> Iterator[Any]:
        self.note(self.label, "iter")
        return super().__iter__()


class Boasting:
    """A history that claims to have records and gives none."""

    def __len__(self) -> int:
        return 3

    def __iter__(self) -> Iterator[Any]:
        return iter(())


class Unordered:
    """A depth that cannot be ordered."""


HISTORIES: dict[str, Callable[[World], Any]] = {
    "no records": lambda w: [],
    "plain records": lambda w: [plain(index) for index in range(3)],
    "logging records": lambda w: [trap(w, index) for index in range(3)],
    "logging history": lambda w: hooked(LoggedHistory, w.note, "history", [trap(w), plain(1)]),
    "claimed records": lambda w: Boasting(),
    "no names": lambda w: [trap(w, index, **NO_NAMES) for index in range(2)],
    "one name": lambda w: [
        trap(w, function_metadata=[{"function_name": "f"}], feature_metadata=[])
    ],
    "bare names": lambda w: [
        trap(w, function_metadata=None, functions=["f", "g"], feature_metadata=[], features=["x"])
    ],
    "other types": lambda w: [trap(w, index, eval_type="other") for index in range(2)],
    "nothing measured": lambda w: [trap(w, agent_is_pnl_mi=None), trap(w, 1, is_pnl_mi="none")],
    "depths without order": lambda w: [trap(w, tree_depth=Unordered()) for _ in range(2)],
    "old records": lambda w: [trap(w, index, timestamp=0.0) for index in range(2)],
}

CALLS: dict[str, tuple[str, dict[str, Any]]] = {
    "statistics": ("get_search_stats", {}),
    "statistics of large groups": ("get_search_stats", {"min_sample_size": 99}),
    "statistics of a column": ("get_search_stats", {"pnl_column": "column"}),
    "statistics of no window": ("get_search_stats", {"time_windows": ("none of them",)}),
    "statistics of a family": ("get_search_stats", {"function_family": "trend"}),
    "suggestions": ("get_suggestions", {}),
    "suggestions of large groups": ("get_suggestions", {"min_sample_size": 99}),
    "patterns": ("get_search_patterns", {}),
    "velocity": ("get_search_velocity", {}),
    "velocity of windows": ("get_search_velocity", {"windows": [1, 2.5]}),
    "yield": ("get_yield_analysis", {}),
    "correlations": ("get_correlation_patterns", {}),
    "correlations cut by True": ("get_correlation_patterns", {"top_n": True}),
}


def missed_otherwise(build: Callable[[World], Call]) -> dict[str, str]:
    """Where the two sides part, by the name that is missing."""

    def without(name: str) -> Callable[[World], Call]:
        def case(w: World) -> Call:
            made = build(w)
            forget(w, name)
            return made

        return case

    parted = {name: difference(without(name)) for name in NAMES}
    return {name: where for name, where in parted.items() if where}


@pytest.mark.parametrize("history", HISTORIES)
@pytest.mark.parametrize("name", CALLS)
def test_operation_misses_a_name(name: str, history: str) -> None:
    operation, keywords = CALLS[name]
    assert missed_otherwise(lambda w: call(w, HISTORIES[history](w), operation, **keywords)) == {}


@pytest.mark.parametrize("history", HISTORIES)
def test_statistics_by_names_miss_a_name(history: str) -> None:
    def build(w: World) -> Call:
        by = w.module.AggregateBy.NONE
        return call(w, HISTORIES[history](w), "get_search_stats", aggregate_by=by)

    assert missed_otherwise(build) == {}


@pytest.mark.parametrize("history", ["no records", "logging records"])
@pytest.mark.parametrize("operation", OPERATIONS)
def test_operation_with_other_record_classes_misses_a_name(operation: str, history: str) -> None:
    def build(w: World) -> Call:
        log_record_classes(w)
        return call(w, HISTORIES[history](w), operation)

    assert missed_otherwise(build) == {}


def group_key(by: str) -> Callable[[World], Call]:
    def build(w: World) -> Call:
        target, member = engine(w, []), getattr(w.module.AggregateBy, by)
        record = trap(w)
        return lambda: target._build_group_key(record, member)

    return build


def fetching(**keywords: Any) -> Callable[[World], Call]:
    def build(w: World) -> Call:
        target = engine(w, [trap(w, index) for index in range(3)])
        return lambda: target._fetch_evaluations(**keywords)

    return build


def within(window: Any) -> Callable[[World], Call]:
    def build(w: World) -> Call:
        target = engine(w, [])
        wanted = getattr(w.module.TimeWindow, window, window)
        records = [trap(w, index) for index in range(2)]
        return lambda: target._filter_by_time_window(records, wanted, "era-1", 5.0)

    return build


def of_module(name: str, *makers: Callable[[World], Any]) -> Callable[[World], Call]:
    def build(w: World) -> Call:
        arguments = [make(w) for make in makers]
        function = getattr(w.module, name)
        return lambda: function(*arguments)

    return build


def logged(label: str, **entries: Any) -> Callable[[World], Any]:
    return lambda w: hooked(HookedDict, w.note, label, entries)


def onboarding(w: World) -> Any:
    entry = logged("entry", name="a", is_correlation_threshold=1)(w)
    era = logged("era", signal_pools=[entry])(w)
    return hooked(HookedDict, w.note, "onboarding", {"era_config": era})


def holder(w: World) -> Any:
    return trap(w, _era_config={"signal_pools": []}, era_config=None, _tracker=None)


def drained(build: Callable[[World], Call]) -> Callable[[World], Call]:
    def case(w: World) -> Call:
        make = build(w)
        return lambda: list(make())

    return case


PARTS: dict[str, Callable[[World], Call]] = {
    "group key by level": group_key("FUNCTION_FAMILY_FEATURE_FAMILY"),
    "group key by names": group_key("NONE"),
    "fetch": fetching(),
    "fetch by function": fetching(function_family="trend", function_subfamily="f0"),
    "fetch by feature": fetching(feature_family="price", feature_subfamily="close"),
    "lifetime window": within("LIFETIME"),
    "era window": within("ERA"),
    "week window": within("LAST_WEEK"),
    "day window": within("LAST_24H"),
    "unknown window": within("unknown"),
    "aggregations": lambda w: engine(w, []).get_available_aggregations,
    "function items": of_module("_function_items", trap),
    "feature items": of_module("_feature_items", trap),
    "tamper delta": of_module("_pnl_mi_tamper_delta", lambda w: 1.0, lambda w: 2.0),
    "zero delta": of_module("_pnl_mi_tamper_delta", lambda w: 0.0, lambda w: 2.0),
    "pool entry": of_module(
        "_normalize_pool_config",
        logged("entry", name="a", is_correlation_threshold=1),
        lambda w: 0,
    ),
    "refused pool entry": of_module("_normalize_pool_config", logged("entry"), lambda w: 0),
    "raw pools": of_module("_extract_raw_pools", logged("era", signal_pools=[1])),
    "no era": of_module("_extract_raw_pools", lambda w: None),
    "candidates": drained(of_module("_candidate_era_configs", onboarding, holder, holder)),
    "candidates of a handle": drained(
        of_module("_candidate_era_configs", lambda w: None, holder, lambda w: None)
    ),
    "candidates of a runtime": drained(
        of_module("_candidate_era_configs", lambda w: None, lambda w: None, holder)
    ),
    "pools": of_module("_resolve_pool_configs", onboarding),
    "no pools": of_module("_resolve_pool_configs", lambda w: None),
    "tracker": of_module("_tracker_from_config", logged("config", data_dir="nowhere")),
    "no tracker": of_module("_tracker_from_config", logged("config")),
}


@pytest.mark.parametrize("part", PARTS)
def test_part_misses_a_name(part: str) -> None:
    assert missed_otherwise(PARTS[part]) == {}


def test_a_column_is_spelled_out_before_the_clock_is_missed() -> None:
    def build(w: World) -> Call:
        column = hooked(HookedText, w.note, "column", "mine")
        made = call(w, [trap(w)], "get_search_stats", pnl_column=column)
        forget(w, "time")
        return made

    assert_same(build)


class Index:
    """A number of rows that only says so when a list is cut by it."""

    def __init__(self, w: World) -> None:
        self.w = w

    def __lt__(self, other: Any) -> bool:
        return False

    def __index__(self) -> int:
        self.w.note("top_n", "index")
        return 1


def test_the_result_of_correlation_patterns_is_missed_before_they_are_cut() -> None:
    def build(w: World) -> Call:
        made = call(w, [plain()], "get_correlation_patterns", top_n=Index(w))
        forget(w, "CorrelationPatternsResult")
        return made

    assert_same(build)


def test_a_pool_namespace_is_missed_before_the_second_threshold_is_read() -> None:
    def build(w: World) -> Call:
        entry = SimpleNamespace(name="a", is_correlation_threshold=1)
        w.patch(
            w.module,
            "_get_attr_or_item",
            lambda value, key, default: w.note("read", key) or getattr(value, key, default),
        )
        forget(w, "SimpleNamespace")
        return lambda: w.module._normalize_pool_config(entry, 0)

    assert_same(build)
