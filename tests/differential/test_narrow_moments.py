"""Code that runs where an operation has just looked something up: it counts, as in any module."""

from __future__ import annotations

import gc
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, engine, fields, patch_constructor, plain
from differential.world import World

Call = Callable[[], Any]


class Record:
    """A record whose attributes are its own."""

    def __init__(self, **values: Any) -> None:
        for name, value in values.items():
            setattr(self, name, value)


def history(count: int, kind: type[Record] = Record) -> list[Record]:
    """Complete records of one class."""
    return [kind(**fields(index)) for index in range(count)]


class Deed:
    """A value that does something whenever it is asked for anything; true, and 1 as an index."""

    def __init__(self, action: Call) -> None:
        self.action = action

    def __bool__(self) -> bool:
        self.action()
        return True

    def __index__(self) -> int:
        self.action()
        return 1

    def __lt__(self, other: object) -> bool:
        return False


class Name(str):
    """A name that does something when it is hashed."""

    action: Call

    def __hash__(self) -> int:
        self.action()
        return str.__hash__(self)

    __eq__ = str.__eq__


def name(text: str, action: Call) -> Name:
    made = Name(text)
    made.action = action
    return made


class Measured(list):  # type: ignore[type-arg]
    """A history that does something when its length is asked for."""

    action: Call

    def __bool__(self) -> bool:
        return True

    def __len__(self) -> int:
        self.action()
        return list.__len__(self)


def empty_window(w: World) -> Call:
    made = engine(w, history(2))
    made._pool_configs[0].name = name("tight", lambda: patch_constructor(w, "WindowStats"))
    windows = [w.module.TimeWindow.ERA]
    return lambda: made.get_search_stats(min_sample_size=0, era_id="other", time_windows=windows)


def statistics(w: World) -> Call:
    measured = Measured(history(2))
    measured.action = lambda: patch_constructor(w, "SearchStatsResult")
    return call(w, measured, "get_search_stats")


def patterns(w: World) -> Call:
    top_n = Deed(lambda: patch_constructor(w, "CorrelationPatternsResult"))
    return call(w, history(2), "get_correlation_patterns", top_n=top_n)


@pytest.mark.parametrize("build", [empty_window, statistics, patterns])
def test_an_argument_patches_the_constructor_of_the_class_that_is_called(
    build: Callable[[World], Call],
) -> None:
    assert_same(build)


@pytest.mark.parametrize("value", [5.5, 5], ids=["floats", "other numbers"])
@pytest.mark.parametrize(
    ("record", "field"), [("WindowStats", "composite_score"), ("StatsRow", "evaluation_count")]
)
def test_fields_that_log_are_read_once_for_the_order(record: str, field: str, value: Any) -> None:
    def build(w: World) -> Call:
        def read(row: Any) -> Any:
            w.note("read", field)
            return value

        def patch() -> None:
            w.patch(getattr(w.module, record), field, property(read, lambda row, new: None))

        return call(w, history(3), "get_search_stats", sort_ascending=Deed(patch))

    assert_same(build)


def by_property(w: World, original: Any) -> Any:
    def get(made: Any) -> Any:
        w.note("got")
        return lambda ev, aggregate_by: "group"

    return property(get)


def by_descriptor(w: World, original: Any) -> Any:
    class Getting:
        def __get__(self, made: Any, owner: Any) -> Any:
            w.note("got")
            return original.__get__(made, owner)

    return Getting()


@pytest.mark.parametrize("kind", [by_property, by_descriptor])
def test_a_descriptor_gives_the_making_of_group_keys(kind: Callable[[World, Any], Any]) -> None:
    def build(w: World) -> Call:
        target = w.module.SearchAnalytics
        w.patch(target, "_build_group_key", kind(w, target._build_group_key))
        return call(w, history(4), "get_search_stats")

    assert_same(build)


def test_a_foreign_grouping_is_asked_for_nothing_but_its_value() -> None:
    def build(w: World) -> Call:
        class Grouping:
            value = ("function_family", "feature_family")

            @property
            def _value_(self) -> Any:
                raise RuntimeError

        return call(w, history(3), "get_search_stats", aggregate_by=Grouping())

    assert_same(build)


@pytest.mark.parametrize("reads", [False, True], ids=["plain object", "reading descriptor"])
def test_what_stands_in_the_class_of_records_becomes_a_descriptor(reads: bool) -> None:
    def build(w: World) -> Call:
        class Plain:
            pass

        class Depth(Record):
            tree_depth = Plain()

        def read(self: Any, record: Any, owner: Any) -> int:
            w.note("read")
            return 99

        def become() -> None:
            Plain.__get__ = read  # type: ignore[attr-defined]
            Plain.__set__ = lambda *given: None  # type: ignore[attr-defined]

        if reads:
            Plain.__get__ = read  # type: ignore[attr-defined]
        records = history(6, Depth)
        records[2].passed_thresholds = Deed(become)  # type: ignore[attr-defined]
        return call(w, records, "get_search_patterns")

    assert_same(build)


def test_names_of_attributes_are_hashed_as_often_as_look_ups_need() -> None:
    def build(w: World) -> Call:
        metadata = name("function_metadata", lambda: w.note("hashed metadata"))
        bare = name("functions", lambda: w.note("hashed functions"))
        records = history(3)
        records[1].function_metadata = None  # type: ignore[attr-defined]
        return lambda: [
            w.module._usage_items(record, metadata, bare, "function_name") for record in records
        ]

    assert_same(build)


@pytest.mark.parametrize("operation", ["get_search_stats", "get_search_patterns"])
def test_somebody_lists_all_objects_while_names_are_collected(operation: str) -> None:
    def build(w: World) -> Call:
        seen: list[Any] = []
        w.cleanup.callback(seen.clear)
        names = [name(text, lambda: seen.append(gc.get_objects())) for text in ("a", "b")]
        items = [{"function_family": each, "function_subfamily": each} for each in names]
        return call(w, [Record(**fields(function_metadata=items))], operation)

    assert_same(build)


@pytest.mark.parametrize("operation", ["get_yield_analysis", "get_correlation_patterns"])
def test_a_length_beyond_the_integers_that_floats_hold(operation: str) -> None:
    class Endless(list):  # type: ignore[type-arg]
        def __len__(self) -> int:
            return 2**53 + 1

    assert_same(lambda w: call(w, Endless(history(7)), operation))


def test_a_key_map_is_asked_once_for_each_record_when_the_other_changes() -> None:
    def build(w: World) -> Call:
        class Level(str):
            def __eq__(self, other: object) -> bool:
                w.note("compared")
                return str.__eq__(self, other)

            __hash__ = str.__hash__

        level = Level("function_subfamily")
        w.patch(w.module, "_FUNC_KEY_MAP", {level: "function_family"})
        features = {"feature_subfamily": "feature_name"}
        records = history(6)
        records[2].passed_thresholds = Deed(  # type: ignore[attr-defined]
            lambda: w.patch(w.module, "_FEAT_KEY_MAP", features)
        )
        return call(w, records, "get_search_stats")

    assert_same(build)


def test_a_name_that_is_compared_changes_the_record_that_is_being_grouped() -> None:
    def build(w: World) -> Call:
        class Comparing(str):
            __hash__ = str.__hash__

            def __eq__(self, other: object) -> bool:
                w.note("compared", str(other))
                for record in records[1:]:
                    record.era_id = "other"
                return str.__eq__(self, other)

        names = [Comparing("f"), "f", "f", "f"]
        items = [[{"function_family": each, "function_subfamily": each}] for each in names]
        records = [plain(index, function_metadata=each) for index, each in enumerate(items)]
        return call(w, records, "get_search_stats")

    assert_same(build)
