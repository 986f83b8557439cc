"""What a caller replaces in the midst of a walk counts from there on, as in any Python module."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from differential.hooks import HookedNumber
from differential.traps import (
    OPERATIONS,
    READ,
    assert_same,
    call,
    engine,
    patch_constructor,
    plain,
    spring,
    trap,
)
from differential.world import World
from support.outcome import RECORDS

Call = Callable[[], Any]

HELPERS = (
    "_usage_items",
    "_usage_value",
    "_function_items",
    "_feature_items",
    "_tracker_table_exists",
    "_submission_status_table_and_signal_column",
    "_pnl_mi_tamper_delta",
)


def replace(w: World, name: str) -> None:
    """Have every call of a function or class of the module logged from now on."""
    original = getattr(w.module, name)

    def called(*arguments: Any, **keywords: Any) -> Any:
        w.note("called", name)
        return original(*arguments, **keywords)

    w.patch(w.module, name, called)


def records(w: World, quiet: bool) -> list[Any]:
    """Records of which the third can spring, of both ways of naming functions."""
    make = plain if quiet else lambda index, **changes: trap(w, index, **changes)
    bare = {"function_metadata": None, "functions": ["f", "g"], "features": ["x"]}
    return [make(0), make(1), trap(w, 2), make(3), make(4, **bare), make(5)]


QUIET = pytest.mark.parametrize("quiet", [True, False], ids=["plain records", "logging records"])


@QUIET
@pytest.mark.parametrize("helper", HELPERS)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_record_replaces_a_helper(operation: str, helper: str, quiet: bool) -> None:
    for moment in READ[operation]:

        def build(w: World, moment: str = moment) -> Call:
            history = records(w, quiet)
            spring(history[2], moment, lambda: replace(w, helper))
            return call(w, history, operation)

        assert_same(build)


@QUIET
@pytest.mark.parametrize("helper", ["_usage_items", "_usage_value", "_function_items"])
def test_a_record_replaces_a_helper_of_the_filters(helper: str, quiet: bool) -> None:
    def build(w: World) -> Call:
        history = records(w, quiet)
        spring(history[2], "function_metadata", lambda: replace(w, helper))
        made = engine(w, history)
        return lambda: made._fetch_evaluations(function_family="trend", function_subfamily="f2")

    assert_same(build)


@QUIET
@pytest.mark.parametrize("record", sorted(RECORDS))
@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_record_replaces_a_record_class(operation: str, record: str, quiet: bool) -> None:
    for moment in READ[operation]:

        def build(w: World, moment: str = moment) -> Call:
            history = records(w, quiet)
            spring(history[2], moment, lambda: replace(w, record))
            return call(w, history, operation)

        assert_same(build)


class Springing(HookedNumber):
    """A number that replaces something when it is divided."""

    action: Call

    def _with(self, value: Any) -> Springing:
        made = Springing(self.note, self.label, value)
        made.action = self.action
        return made

    def __truediv__(self, other: Any) -> Any:
        self.action()
        return super().__truediv__(other)


REPLACEMENTS = pytest.mark.parametrize("change", [replace, patch_constructor])


def once(action: Call) -> Call:
    """A call that runs `action` the first time only."""
    left = [action]
    return lambda: left and left.pop()()


@REPLACEMENTS
@pytest.mark.parametrize("record", ["WindowStats", "StatsRow", "SearchStatsResult"])
def test_a_mean_replaces_a_record_class(record: str, change: Callable[[World, str], None]) -> None:
    def build(w: World) -> Call:
        number = Springing(w.note, "number", 1.5)
        number.action = once(lambda: change(w, record))
        springing = plain(1, sharpe=number, per_column_stats=None)
        return call(w, [plain(0), springing, plain(2)], "get_search_stats")

    assert_same(build)


class Size(int):
    """A smallest number of evaluations that does something when a group is compared with it."""

    action: Call

    def __gt__(self, other: Any) -> bool:
        self.action()
        return int.__gt__(self, other)


@REPLACEMENTS
@pytest.mark.parametrize("record", ["WindowStats", "StatsRow", "SearchStatsResult"])
def test_the_second_group_replaces_a_record_class(
    record: str, change: Callable[[World, str], None]
) -> None:
    def build(w: World) -> Call:
        size, groups = Size(1), [lambda: None, once(lambda: change(w, record))]
        size.action = lambda: groups and groups.pop(0)()
        history = [plain(index) for index in range(3)]
        return call(w, history, "get_search_stats", min_sample_size=size)

    assert_same(build)


@QUIET
@pytest.mark.parametrize("record", sorted(RECORDS))
@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_record_patches_the_constructor_of_a_record_class(
    operation: str, record: str, quiet: bool
) -> None:
    for moment in READ[operation]:

        def build(w: World, moment: str = moment) -> Call:
            history = records(w, quiet)
            spring(history[2], moment, lambda: patch_constructor(w, record))
            return call(w, history, operation)

        assert_same(build)


@pytest.mark.parametrize("record", ["DepthBucket", "FamilyYield", "FunctionPairPattern"])
def test_the_making_of_a_record_replaces_its_class(record: str) -> None:
    def build(w: World) -> Call:
        original = getattr(w.module, record)

        def make(**values: Any) -> Any:
            w.note("made first")
            w.patch(w.module, record, lambda **later: w.note("made later") or original(**later))
            return original(**values)

        w.patch(w.module, record, make)
        operation = (
            "get_correlation_patterns" if record == "FunctionPairPattern" else "get_search_patterns"
        )
        return call(w, [plain(index, tree_depth=index) for index in range(3)], operation)

    assert_same(build)


@QUIET
@pytest.mark.parametrize("place", ["engine", "class"])
def test_a_record_replaces_the_making_of_group_keys(place: str, quiet: bool) -> None:
    def build(w: World) -> Call:
        history = records(w, quiet)
        made = engine(w, history)
        target = made if place == "engine" else w.module.SearchAnalytics
        spring(
            history[2],
            "correlation",
            lambda: w.patch(target, "_build_group_key", lambda *given: w.note("asked") or "group"),
        )
        return lambda: made.get_search_stats(min_sample_size=0)

    assert_same(build)


@QUIET
def test_an_engine_that_logs_its_attributes(quiet: bool) -> None:
    for operation in OPERATIONS:

        def build(w: World, operation: str = operation) -> Call:
            class Logging(w.module.SearchAnalytics):  # type: ignore[misc, name-defined]
                def __getattribute__(self, name: str) -> Any:
                    w.note("engine", name)
                    return object.__getattribute__(self, name)

            history = [*records(w, quiet), SimpleNamespace(**vars(plain(6)))]
            made = engine(w, history)
            made.__class__ = Logging
            return lambda: getattr(made, operation)(**OPERATIONS[operation])

        assert_same(build)


class Changing:
    """A history that runs an action between two of its records."""

    def __init__(self, history: list[Any], action: Call) -> None:
        self.history, self.action = history, action

    def __len__(self) -> int:
        return len(self.history)

    def __iter__(self) -> Any:
        for number, record in enumerate(self.history):
            if number == 3:
                once(self.action)()
            yield record


@pytest.mark.parametrize("helper", HELPERS)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_history_replaces_a_helper_between_two_records(operation: str, helper: str) -> None:
    def build(w: World) -> Call:
        history = Changing([plain(i) for i in range(6)], lambda: replace(w, helper))
        return call(w, history, operation)

    assert_same(build)


class Clearing:
    """A truth that empties the history."""

    def __init__(self, history: list[Any]) -> None:
        self.history = history

    def __bool__(self) -> bool:
        self.history.clear()
        return True


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_record_that_is_dropped_while_it_is_asked_is_asked_on(operation: str) -> None:
    def build(w: World) -> Call:
        history: list[Any] = [plain(i) for i in range(6)]
        history[4].passed_thresholds = Clearing(history)
        return call(w, history, operation)

    assert_same(build)
