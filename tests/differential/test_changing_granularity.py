"""How evaluations are grouped may change while they are read: each is grouped as things stand."""

from __future__ import annotations

from collections.abc import Callable
from enum import Enum
from typing import Any

import pytest
from differential.hooks import HookedDict, HookedEquality, hooked
from differential.traps import assert_same, call, engine, plain, spring, trap
from differential.world import World

Call = Callable[[], Any]
Change = Callable[[World], None]

MEMBER = "FUNCTION_FAMILY_FEATURE_FAMILY"


class OwnText(str):
    __slots__ = ()


def records(w: World, quiet: bool) -> list[Any]:
    """Enough records for each way of reading them, one of which can spring in their midst."""
    make = plain if quiet else lambda index: trap(w, index)
    return [make(0), make(1), trap(w, 2), make(3), make(4), make(5)]


def member(w: World) -> Any:
    return getattr(w.module.AggregateBy, MEMBER)


def set_back(w: World, target: Any, name: str, value: Any) -> None:
    """Set an attribute of a class or a member in spite of its metaclass, until the case is over."""
    kind: Any = type if isinstance(target, type) else object
    if name in vars(target):
        w.cleanup.callback(kind.__setattr__, target, name, vars(target)[name])
    else:
        w.cleanup.callback(kind.__delattr__, target, name)
    kind.__setattr__(target, name, value)


def set_item(w: World, mapping: dict[Any, Any], key: Any, value: Any) -> None:
    """Set an entry until the case is over."""
    w.cleanup.callback(mapping.__setitem__, key, mapping[key])
    mapping[key] = value


def change_the_value(w: World) -> None:
    set_back(w, member(w), "_value_", ("function", "feature"))


def spoil_the_value(w: World) -> None:
    set_back(w, member(w), "_value_", None)


def lengthen_the_value(w: World) -> None:
    set_back(w, member(w), "_value_", ("function", "feature", "more"))


def list_the_levels(w: World) -> None:
    set_back(w, member(w), "_value_", ["function", "feature"])


def edit_the_function_map(w: World) -> None:
    set_item(w, w.module._FUNC_KEY_MAP, "function_family", "function_name")


def edit_the_feature_map(w: World) -> None:
    set_item(w, w.module._FEAT_KEY_MAP, "feature_family", "feature_name")


def map_functions_to_a_number(w: World) -> None:
    set_item(w, w.module._FUNC_KEY_MAP, "function_family", 5)


def map_features_to_own_text(w: World) -> None:
    set_item(w, w.module._FEAT_KEY_MAP, "feature_family", OwnText("feature_name"))


def empty_the_feature_map(w: World) -> None:
    entries = dict(w.module._FEAT_KEY_MAP)
    w.cleanup.callback(w.module._FEAT_KEY_MAP.update, entries)
    w.module._FEAT_KEY_MAP.clear()


def replace_the_function_map(w: World) -> None:
    w.patch(w.module, "_FUNC_KEY_MAP", {"function_family": "function_name"})


def replace_the_feature_map(w: World) -> None:
    levels = {"feature_family": "feature_name"}
    w.patch(w.module, "_FEAT_KEY_MAP", hooked(HookedDict, w.note, "map", levels))


def equal_anything(w: World) -> None:
    w.patch(w.module.AggregateBy, "__eq__", lambda self, other: w.note("eq", self.name) or True)


def equal_itself_only(w: World) -> None:
    def same(self: Any, other: Any) -> bool:
        w.note("eq", self.name, getattr(other, "name", None))
        return self is other

    w.patch(w.module.AggregateBy, "__eq__", same)


def refuse_to_compare(w: World) -> None:
    def refuse(self: Any, other: Any) -> bool:
        raise ValueError("not to be compared")

    w.patch(w.module.AggregateBy, "__eq__", refuse)


def read_the_value_aloud(w: World) -> None:
    def value(self: Any) -> Any:
        w.note("value", self.name)
        return self._value_

    w.patch(w.module.AggregateBy, "value", property(value))


def shadow_the_value(w: World) -> None:
    w.patch(w.module.AggregateBy, "value", ("function", "feature"))


def look_up_aloud(w: World) -> None:
    def look_up(self: Any, name: str) -> Any:
        if name in ("value", "name"):
            w.note("get", name)
        return object.__getattribute__(self, name)

    w.patch(w.module.AggregateBy, "__getattribute__", look_up)


def look_members_up_aloud(w: World) -> None:
    def look_up(cls: Any, name: str) -> Any:
        if cls is w.module.AggregateBy and name == "NONE":
            w.note("member", name)
        return type.__getattribute__(cls, name)

    w.patch(type(w.module.AggregateBy), "__getattribute__", look_up)


def rename_the_names(w: World) -> None:
    set_back(w, w.module.AggregateBy, "NONE", member(w))


def replace_the_enumeration(w: World) -> None:
    w.patch(w.module, "AggregateBy", Enum("AggregateBy", {"NONE": None}))


def let_everything_be_names(w: World) -> None:
    class Everything:
        NONE = member(w)

    w.patch(w.module, "AggregateBy", Everything)


CHANGES: dict[str, Change] = {
    change.__name__.replace("_", " "): change
    for change in (
        *(change_the_value, spoil_the_value, lengthen_the_value, list_the_levels),
        *(edit_the_function_map, edit_the_feature_map, empty_the_feature_map),
        *(map_functions_to_a_number, map_features_to_own_text),
        *(replace_the_function_map, replace_the_feature_map),
        *(equal_anything, equal_itself_only, refuse_to_compare),
        *(read_the_value_aloud, shadow_the_value, look_up_aloud, look_members_up_aloud),
        *(rename_the_names, replace_the_enumeration, let_everything_be_names),
    )
}
EVERY_CHANGE = pytest.mark.parametrize("change", CHANGES)
QUIET = pytest.mark.parametrize("quiet", [True, False], ids=["plain records", "logging records"])


@QUIET
@EVERY_CHANGE
def test_grouping_is_changed_before_the_call(change: str, quiet: bool) -> None:
    def build(w: World) -> Call:
        by = member(w)
        made = call(w, records(w, quiet), "get_search_stats", aggregate_by=by)
        CHANGES[change](w)
        return made

    assert_same(build)


@QUIET
@EVERY_CHANGE
def test_grouping_by_names_is_changed_before_the_call(change: str, quiet: bool) -> None:
    def build(w: World) -> Call:
        by = w.module.AggregateBy.NONE
        made = call(w, records(w, quiet), "get_search_stats", aggregate_by=by)
        CHANGES[change](w)
        return made

    assert_same(build)


@pytest.mark.parametrize(
    "moment", ["per_column_stats", "passed_thresholds", "function_metadata", "feature_metadata"]
)
@QUIET
@EVERY_CHANGE
def test_grouping_is_changed_by_a_record(change: str, quiet: bool, moment: str) -> None:
    def build(w: World) -> Call:
        by = member(w)
        history = records(w, quiet)
        spring(history[2], moment, lambda: CHANGES[change](w))
        return call(w, history, "get_search_stats", aggregate_by=by)

    assert_same(build)


@EVERY_CHANGE
def test_grouping_is_changed_by_a_pool(change: str) -> None:
    def build(w: World) -> Call:
        by = member(w)
        made = engine(w, [plain(index) for index in range(4)])
        pool = trap(w, name="sprung", is_correlation_threshold=0.5)
        spring(pool, "name", lambda: CHANGES[change](w))
        made._pool_configs = [pool]
        return lambda: made.get_search_stats(min_sample_size=0, aggregate_by=by)

    assert_same(build)


@EVERY_CHANGE
def test_a_group_key_is_built_as_things_stand(change: str) -> None:
    def build(w: World) -> Call:
        by, made, record = member(w), engine(w, []), trap(w)
        spring(record, "function_metadata", lambda: CHANGES[change](w))
        return lambda: [made._build_group_key(record, by), made._build_group_key(record, by)]

    assert_same(build)


class Levels:
    """What to group by: logs being compared and asked for its value."""

    def __init__(self, w: World, value: Any) -> None:
        self.w, self.levels = w, value

    def __eq__(self, other: object) -> bool:
        self.w.note("levels", "eq", getattr(other, "name", None))
        return False

    __hash__ = None  # type: ignore[assignment]

    @property
    def value(self) -> Any:
        self.w.note("levels", "value")
        return self.levels


class Foreign(Enum):
    """Somebody else's enumeration."""

    LEVELS = ("function_family", "feature_family")
    NONE = None


GROUPINGS: dict[str, Callable[[World], Any]] = {
    "logging": lambda w: Levels(w, ("function_family", "feature_family")),
    "logging levels": lambda w: Levels(
        w,
        (
            HookedEquality(w.note, "function level", "function_family"),
            HookedEquality(w.note, "feature level", "feature_family"),
        ),
    ),
    "iterated levels": lambda w: Levels(w, iter(["function_family", "feature_family"])),
    "foreign": lambda w: Foreign.LEVELS,
    "foreign names": lambda w: Foreign.NONE,
    "a value itself": lambda w: ("function_family", "feature_family"),
}


@QUIET
@pytest.mark.parametrize("grouping", GROUPINGS)
def test_groupings_of_another_kind(grouping: str, quiet: bool) -> None:
    def build(w: World) -> Call:
        by = GROUPINGS[grouping](w)
        return call(w, records(w, quiet), "get_search_stats", aggregate_by=by)

    assert_same(build)


def test_an_empty_key_is_not_taken_for_a_key_that_is_no_text() -> None:
    def build(w: World) -> Call:
        items = [{"": "empty", "function_name": "f", 5: "five"}]
        texts = [{"": "empty", "function_name": "f"}]
        history = [plain(i, function_metadata=items if i % 2 else texts) for i in range(6)]
        map_functions_to_a_number(w)
        return call(w, history, "get_search_stats", aggregate_by=member(w))

    assert_same(build)
