"""Unwrapping era configurations and reading their pools."""

from __future__ import annotations

from collections import UserDict
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import _extract_raw_pools, _unwrap_era_config
from support.environment import failing


class Convertible:
    """An era configuration that turns into a mapping."""

    signal_pools = "attribute"

    def __init__(self, result):
        self.result = result

    def to_dict(self):
        return self.result


def test_none_unwraps_to_none():
    assert _unwrap_era_config(None) is None


def test_a_wrapped_mapping_is_unwrapped_once():
    innermost = {"signal_pools": 1}
    inner = {"era_config": innermost}
    assert _unwrap_era_config({"era_config": inner}) is inner
    assert _unwrap_era_config(inner) is innermost


@pytest.mark.parametrize("entry", [None, 5, [], SimpleNamespace(), UserDict()], ids=repr)
def test_a_mapping_whose_entry_is_no_mapping_stays_as_it_is(entry):
    mapping = {"era_config": entry}
    assert _unwrap_era_config(mapping) is mapping


def test_a_plain_mapping_stays_as_it_is():
    mapping = {"signal_pools": []}
    assert _unwrap_era_config(mapping) is mapping


def test_the_wrapped_entry_is_read_a_second_time_by_subscription():
    first, second = {"first": 1}, {"second": 2}
    asked = []

    class Mapping(dict):
        def get(self, key, default=None):
            asked.append("get")
            return first

        def __getitem__(self, key):
            asked.append("item")
            return second

    assert _unwrap_era_config(Mapping()) is second
    assert asked == ["get", "item"]


def test_the_wrapped_entry_is_asked_for_by_its_key_alone():
    asked = []

    class Mapping(dict):
        def get(self, *args):
            asked.append(args)

    mapping = Mapping()
    assert _unwrap_era_config(mapping) is mapping
    assert asked == [("era_config",)]


@pytest.mark.parametrize("result", [{"signal_pools": 1}, None, 5, []], ids=repr)
def test_to_dict_is_called_and_its_result_is_not_checked(result):
    assert _unwrap_era_config(Convertible(result)) is result


def test_a_to_dict_that_cannot_be_called_is_ignored():
    value = SimpleNamespace(to_dict="text")
    assert _unwrap_era_config(value) is value


def test_a_mapping_with_to_dict_is_converted_unless_it_wraps_a_mapping():
    class Mapping(dict):
        def to_dict(self):
            return "converted"

    assert _unwrap_era_config(Mapping()) == "converted"
    assert _unwrap_era_config(Mapping(era_config={"a": 1})) == {"a": 1}


def test_an_object_without_to_dict_stays_as_it_is():
    value = object()
    assert _unwrap_era_config(value) is value


def test_errors_of_to_dict_pass_unchanged():
    error = LookupError("mine")
    with pytest.raises(LookupError) as caught:
        _unwrap_era_config(SimpleNamespace(to_dict=failing(error)))
    assert caught.value is error


def test_a_to_dict_that_returns_itself_is_not_followed():
    value = SimpleNamespace()
    value.to_dict = lambda: value
    assert _unwrap_era_config(value) is value


def test_pools_of_nothing_are_none():
    assert _extract_raw_pools(None) is None
    assert _extract_raw_pools({}) is None
    assert _extract_raw_pools(SimpleNamespace()) is None
    assert _extract_raw_pools(Convertible(None)) is None


def test_pools_are_read_by_key_from_a_mapping_and_by_attribute_from_an_object():
    pools = object()
    assert _extract_raw_pools({"signal_pools": pools}) is pools
    assert _extract_raw_pools(SimpleNamespace(signal_pools=pools)) is pools


def test_pools_come_from_the_converted_mapping_not_from_the_attributes():
    assert _extract_raw_pools(Convertible({"signal_pools": "converted"})) == "converted"
    assert _extract_raw_pools(Convertible({})) is None


def test_pools_of_a_wrapped_mapping():
    assert _extract_raw_pools({"era_config": {"signal_pools": 1}, "signal_pools": 2}) == 1


def test_pools_of_a_mapping_that_is_no_dict_are_read_by_attribute():
    assert _extract_raw_pools(UserDict({"signal_pools": 1})) is None
