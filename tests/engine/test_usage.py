"""Function and feature items of a record, and what one item says under a key."""

from __future__ import annotations

from collections import OrderedDict, UserDict
from types import SimpleNamespace

import pytest
from differential.traps import assert_same, call, plain
from kestrune.search_analytics import _feature_items, _function_items, _usage_items, _usage_value
from support.environment import failing


def items(metadata, names):
    record = SimpleNamespace(meta=metadata, names=names)
    return _usage_items(record, "meta", "names", "key")


@pytest.mark.parametrize("metadata", [[{}], ["text"], (0,), "text", {"a": 1}, 5], ids=repr)
def test_truthy_metadata_is_returned_as_it_is(metadata):
    assert items(metadata, ["ignored"]) is metadata


@pytest.mark.parametrize("metadata", [None, [], (), "", 0, {}], ids=repr)
def test_without_metadata_bare_names_are_wrapped(metadata):
    assert items(metadata, ["a", 5, None]) == [{"key": "a"}, {"key": 5}, {"key": None}]


def test_wrapped_names_are_new_each_time():
    record = SimpleNamespace(functions=["f1", "f2"], function_metadata=[])
    first = _function_items(record)
    assert first == [{"function_name": "f1"}, {"function_name": "f2"}]
    assert _function_items(record) is not first
    assert [type(item) for item in first] == [dict, dict]


@pytest.mark.parametrize("mapping", [{"key": "b"}, OrderedDict(), {}], ids=repr)
def test_names_that_hold_a_mapping_are_returned_as_they_are(mapping):
    names = ["a", mapping]
    assert items(None, names) is names


def test_a_mapping_that_is_no_dict_is_a_bare_name():
    name = UserDict()
    assert items(None, [name]) == [{"key": name}]


@pytest.mark.parametrize("names", [None, [], (), "", 0], ids=repr)
def test_without_metadata_and_names_there_is_nothing(names):
    assert items(None, names) == []
    assert items(None, names) is not items(None, names)


def test_a_record_without_the_attributes_has_nothing():
    assert _function_items(object()) == []
    assert _feature_items(object()) == []


def test_names_may_be_text_or_any_iterable():
    assert items(None, "ab") == [{"key": "a"}, {"key": "b"}]
    assert items(None, ("a",)) == [{"key": "a"}]
    assert items(None, {"x": 1}) == [{"key": "x"}]


def test_a_one_shot_iterator_of_names_is_used_up_by_the_test_for_mappings():
    assert items(None, iter(["a", "b"])) == []
    rest = iter(["a", {}, "b"])
    assert items(None, rest) is rest
    assert list(rest) == ["b"]


def test_names_that_cannot_be_iterated_are_a_type_error():
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        items(None, 5)


def test_names_are_not_read_when_there_is_metadata():
    class Record:
        meta = (1,)
        names = property(failing(AssertionError("read")))

    assert _usage_items(Record(), "meta", "names", "key") == (1,)


@pytest.mark.parametrize("error", [ValueError("mine"), KeyboardInterrupt()], ids=repr)
@pytest.mark.parametrize("attribute", ["meta", "names"])
def test_errors_of_the_record_pass_unchanged(attribute, error):
    record = type("Record", (), {attribute: property(failing(error))})()
    with pytest.raises(type(error)) as caught:
        _usage_items(record, "meta", "names", "key")
    assert caught.value is error


def test_errors_of_the_metadatas_truth_pass_unchanged():
    class Metadata:
        __bool__ = failing(ValueError("mine"))

    with pytest.raises(ValueError, match="mine"):
        items(Metadata(), [])


def test_functions_and_features_read_their_own_attributes():
    record = SimpleNamespace(
        function_metadata=["FM"], functions=["F"], feature_metadata=["XM"], features=["X"]
    )
    assert _function_items(record) == ["FM"]
    assert _feature_items(record) == ["XM"]
    record.function_metadata = record.feature_metadata = None
    assert _function_items(record) == [{"function_name": "F"}]
    assert _feature_items(record) == [{"feature_name": "X"}]


def test_the_attribute_names_must_be_text():
    with pytest.raises(TypeError, match="attribute name must be string"):
        _usage_items(object(), 1, "names", "key")


@pytest.mark.parametrize(
    ("item", "expected"),
    [
        ({"family": "F", "name": "n"}, "F"),
        ({"family": None, "name": "n"}, "n"),
        ({"name": "n"}, "n"),
        ({"family": "", "name": "n"}, ""),
        ({"family": 0, "name": "n"}, ""),
        ({"family": [], "name": "n"}, ""),
        ({"family": False, "name": "n"}, ""),
        ({"name": None}, ""),
        ({"name": ""}, ""),
        ({}, ""),
        ({"family": 5}, 5),
        ({"family": ("a", "b")}, ("a", "b")),
        ("text", ""),
        (5, ""),
        (None, ""),
        (UserDict(family="F"), ""),
    ],
    ids=repr,
)
def test_what_an_item_says_under_a_family_key(item, expected):
    assert _usage_value(item, "family", "name") == expected


def test_a_value_is_returned_as_it_is_stored():
    value = object()
    assert _usage_value({"family": value}, "family", "name") is value
    assert _usage_value({"name": value}, "family", "name") is value


@pytest.mark.parametrize(
    ("item", "text"), [("f", "f"), (5, "5"), (None, "None"), ([], "[]")], ids=repr
)
def test_a_bare_item_is_its_own_name(item, text):
    assert _usage_value(item, "name", "name") == text


def test_a_bare_item_is_not_printed_for_another_key():
    class Item:
        __str__ = failing(AssertionError("printed"))

    assert _usage_value(Item(), "family", "name") == ""


def test_the_get_of_a_mapping_subclass_is_honoured():
    asked = []

    class Item(dict):
        def get(self, *args):
            asked.append(args)

    assert _usage_value(Item(family="F"), "family", "name") == ""
    assert asked == [("family",), ("name",)]


def test_the_name_is_not_asked_for_when_the_family_is_there():
    asked = []

    class Item(dict):
        def get(self, *args):
            asked.append(args)
            return "F"

    assert _usage_value(Item(), "family", "name") == "F"
    assert asked == [("family",)]


def test_errors_of_the_values_truth_pass_unchanged():
    class Value:
        __bool__ = failing(ValueError("mine"))

    with pytest.raises(ValueError, match="mine"):
        _usage_value({"family": Value()}, "family", "name")


def test_keys_are_compared_by_equality():
    class Key:
        def __eq__(self, other):
            return True

        __hash__ = object.__hash__

    assert _usage_value("f", Key(), "name") == "f"


def test_an_unhashable_key_is_a_type_error():
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        _usage_value({}, [], "name")


class Hashed(str):
    """A name that notes when it is hashed."""

    __slots__ = ("note",)

    def __hash__(self):
        self.note("hashed")
        return str.__hash__(self)

    __eq__ = str.__eq__


@pytest.mark.parametrize("name", ["function_metadata", "functions", "missing"])
def test_names_of_attributes_are_hashed_as_often_as_by_python(name):
    def build(w):
        attribute = Hashed(name)
        attribute.note = w.note
        records = [plain(0), plain(1, functions=["f"])]
        return lambda: [
            w.module._usage_items(record, attribute, attribute, "function_name")
            for record in records
        ]

    assert_same(build)


@pytest.mark.parametrize("operation", ["get_search_stats", "get_correlation_patterns"])
def test_records_without_items_fall_back_to_their_names(operation):
    def build(w):
        records = [plain(i, function_metadata=[], functions=[f"f{i}", "g"]) for i in range(4)]
        return call(w, records, operation)

    assert_same(build)


def test_empty_names_of_records_that_are_read_in_place_make_no_pair():
    def build(w):
        items = [{"function_name": name} for name in ("f", "", "g")]
        return call(
            w, [plain(i, function_metadata=items) for i in range(4)], "get_correlation_patterns"
        )

    assert_same(build)
