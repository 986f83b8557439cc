"""The group key of a record at every granularity."""

from __future__ import annotations

from types import SimpleNamespace

import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, SearchAnalytics
from support.copies import copy_of_the_module
from support.environment import failing
from support.parts import (
    RecordingTracker,
    engine_over,
    evaluation,
    function_item,
    pool,
    using,
)

RECORD = SimpleNamespace(
    function_metadata=[
        {"function_name": "f", "function_family": "F", "function_subfamily": "S"},
        {"function_name": "g", "function_family": "F", "function_subfamily": "T"},
    ],
    feature_metadata=[
        {"feature_name": "x", "feature_family": "X", "feature_subfamily": "Y"},
    ],
)
FUNCTION_SIDES = {
    "function_family": {"F"},
    "function_subfamily": {"S", "T"},
    "function": {"f", "g"},
}
FEATURE_SIDES = {"feature_family": {"X"}, "feature_subfamily": {"Y"}, "feature": {"x"}}


def key(record, by=AggregateBy.NONE):
    return engine_over([])._build_group_key(record, by)


@pytest.mark.parametrize("by", list(AggregateBy)[:-1], ids=lambda by: by.name)
def test_each_dimension_reads_its_pair_of_levels(by):
    function_level, feature_level = by.value
    found = key(RECORD, by)
    assert found == (FUNCTION_SIDES[function_level], FEATURE_SIDES[feature_level])
    assert type(found) is tuple
    assert [type(side) for side in found] == [frozenset, frozenset]


def test_no_dimension_means_the_exact_names():
    assert key(RECORD, AggregateBy.NONE) == ({"f", "g"}, {"x"})


@pytest.mark.parametrize("by", AggregateBy, ids=lambda by: by.name)
def test_neither_metadata_nor_names_give_two_empty_sides(by):
    assert key(object(), by) == (frozenset(), frozenset())


def test_order_and_repetition_do_not_matter():
    assert key(using("a", "b")) == key(using("b", "a", "a"))
    assert hash(key(using("a", "b"))) == hash(key(using("b", "a", "a")))


@pytest.mark.parametrize("by", AggregateBy, ids=lambda by: by.name)
def test_wrapped_bare_names_read_as_themselves_at_every_level(by):
    assert key(using("a", "b"), by)[0] == {"a", "b"}


def test_bare_text_left_unwrapped_is_empty_at_every_level_but_its_own():
    record = using("a", {"function_name": "b"})
    assert key(record, AggregateBy.FUNCTION_FAMILY_FEATURE)[0] == {"", "b"}
    assert key(record, AggregateBy.FUNCTION_FEATURE)[0] == {"a", "b"}
    assert key(record, AggregateBy.NONE)[0] == {"a", "b"}


def test_metadata_made_of_text_gives_a_side_of_one_empty_text():
    record = evaluation(function_metadata=["a", "b"])
    assert key(record, AggregateBy.FUNCTION_FAMILY_FEATURE)[0] == frozenset({""})
    assert key(record, AggregateBy.NONE)[0] == {"a", "b"}


@pytest.mark.parametrize(
    ("family", "expected"), [(None, "f"), ("", ""), ("F", "F"), (0, "")], ids=repr
)
def test_an_item_without_family_groups_under_its_name(family, expected):
    record = evaluation(function_metadata=[function_item("f", family)])
    assert key(record, AggregateBy.FUNCTION_FAMILY_FEATURE)[0] == {expected}


def test_values_are_not_turned_into_text():
    record = evaluation(function_metadata=[function_item(5, ("a", "b"))])
    assert key(record, AggregateBy.FUNCTION_FAMILY_FEATURE)[0] == {("a", "b")}
    assert key(record, AggregateBy.NONE)[0] == {5}


def test_an_unhashable_value_is_a_type_error():
    record = evaluation(function_metadata=[function_item(["f"])])
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        key(record)


def test_the_function_side_comes_first():
    order = []

    class Record:
        @property
        def function_metadata(self):
            order.append("functions")

        @property
        def feature_metadata(self):
            order.append("features")

    assert key(Record()) == (frozenset(), frozenset())
    assert order == ["functions", "features"]


@pytest.mark.parametrize(
    ("by", "error", "text"),
    [
        (None, AttributeError, "'NoneType' object has no attribute 'value'"),
        ("function", AttributeError, "'str' object has no attribute 'value'"),
        (EvalPool.PASSED, ValueError, "too many values to unpack (expected 2"),
        (SimpleNamespace(value=("function",)), ValueError, "not enough values to unpack"),
        (SimpleNamespace(value=(1, 2, 3)), ValueError, "too many values to unpack (expected 2"),
        (SimpleNamespace(value=None), TypeError, "cannot unpack non-iterable NoneType object"),
        (SimpleNamespace(value=("no", "feature")), KeyError, "'no'"),
        (SimpleNamespace(value=("function", "no")), KeyError, "'no'"),
        (SimpleNamespace(value=([], "feature")), TypeError, "unhashable type: 'list'"),
    ],
    ids=repr,
)
def test_other_dimensions_fail_as_unpacking_and_look_up_do(by, error, text):
    with pytest.raises(error) as caught:
        key(RECORD, by)
    assert type(caught.value) is error
    assert text in str(caught.value)


def test_anything_with_a_pair_of_levels_serves():
    assert key(RECORD, SimpleNamespace(value=["function", "feature_family"])) == ({"f", "g"}, {"X"})
    levels = iter(("function_family", "feature"))
    assert key(RECORD, SimpleNamespace(value=levels)) == ({"F"}, {"x"})


def test_levels_are_looked_up_before_any_item_is_read():
    class Untouchable:
        function_metadata = property(failing(AssertionError("read")))

    with pytest.raises(KeyError):
        key(Untouchable(), SimpleNamespace(value=("function", "no")))


def test_what_equals_no_dimension_is_taken_for_it():
    class Nothing:
        value = property(failing(AssertionError("read")))

        def __eq__(self, other):
            return other is AggregateBy.NONE

        __hash__ = None

    assert key(RECORD, Nothing()) == ({"f", "g"}, {"x"})


def test_metadata_that_cannot_be_iterated_is_a_type_error():
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        key(SimpleNamespace(function_metadata=5))


def test_errors_of_an_item_pass_unchanged_but_stop_iteration():
    error = KeyError("mine")

    class Item(dict):
        get = failing(error)

    with pytest.raises(KeyError) as caught:
        key(SimpleNamespace(function_metadata=[Item()]))
    assert caught.value is error

    class Stopping(dict):
        get = failing(StopIteration())

    with pytest.raises(RuntimeError, match="generator raised StopIteration"):
        key(SimpleNamespace(function_metadata=[Stopping()]))


def test_each_call_gives_a_new_key():
    assert key(RECORD) is not key(RECORD)


def test_a_member_whose_value_a_record_changes_groups_by_the_new_one():
    """Of a fresh copy: nobody has asked the member for its dictionary yet."""
    module = copy_of_the_module()
    by = module.AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY

    class Changing:
        def __getattr__(self, name):
            by._value_ = ("function", "feature")
            return getattr(record, name)

    record = evaluation()
    records = [record, record, Changing(), record]
    engine = module.SearchAnalytics(RecordingTracker(records), [pool()])
    rows = engine.get_search_stats(aggregate_by=by, min_sample_size=0).rows
    by_name = key(record, AggregateBy.FUNCTION_FEATURE)
    by_family = key(record, AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY)
    assert {row.group_key: row.evaluation_count for row in rows} == {by_family: 2, by_name: 2}


def patched(record, aggregate_by):
    return ("patched",), ()


def by_class(engine):
    type(engine)._build_group_key = staticmethod(patched)


def by_dictionary(engine):
    vars(engine)["_build_group_key"] = patched


def by_another_dictionary(engine):
    engine.__dict__ = {**vars(engine), "_build_group_key": patched}


def by_attribute(engine):
    engine._build_group_key = patched


def by_an_attribute_that_another_engine_has(engine):
    engine._build_group_key = patched


@pytest.mark.parametrize(
    "patch",
    [
        *(by_class, by_dictionary, by_another_dictionary),
        *(by_attribute, by_an_attribute_that_another_engine_has),
    ],
)
def test_a_record_that_patches_the_method_is_grouped_by_the_new_one(patch):
    class Engine(SearchAnalytics):
        """A class whose instances nobody has given attributes yet."""

    class Patching:
        def __getattr__(self, name):
            patch(engine)
            return getattr(record, name)

    record = evaluation()
    history = [record, record, Patching(), record]
    other = Engine(RecordingTracker([]), [pool()])
    if patch is by_an_attribute_that_another_engine_has:
        other._build_group_key = patched
    engine = Engine(RecordingTracker(history), [pool()])
    by = AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY
    rows = engine.get_search_stats(aggregate_by=by, min_sample_size=0).rows
    usual = key(record, by)
    assert {row.group_key: row.evaluation_count for row in rows} == {usual: 2, patched(0, 0): 2}
