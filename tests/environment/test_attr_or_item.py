"""Reading a mapping by key and anything else by attribute, with a default."""

from __future__ import annotations

from collections import OrderedDict, UserDict
from types import MappingProxyType, SimpleNamespace

import pytest
from kestrune.search_analytics import (
    _get_attr_or_item,
    _normalize_pool_config,
    _unwrap_era_config,
    _usage_value,
)
from support.environment import failing, raw_pool


def test_a_mapping_is_read_by_key():
    value = object()
    assert _get_attr_or_item({"a": value}, "a") is value


def test_an_object_is_read_by_attribute():
    value = object()
    assert _get_attr_or_item(SimpleNamespace(a=value), "a") is value


@pytest.mark.parametrize("empty", [{}, SimpleNamespace(), None, 5], ids=repr)
def test_what_is_absent_gives_the_default(empty):
    default = object()
    assert _get_attr_or_item(empty, "a") is None
    assert _get_attr_or_item(empty, "a", default) is default


def test_an_entry_of_none_is_not_absent():
    assert _get_attr_or_item({"a": None}, "a", 1) is None
    assert _get_attr_or_item(SimpleNamespace(a=None), "a", 1) is None


def test_a_mapping_is_never_read_by_attribute():
    class Mapping(dict):
        a = 1

    assert _get_attr_or_item(Mapping(), "a") is None
    assert _get_attr_or_item({}, "keys") is None


def test_the_get_of_a_subclass_is_honoured():
    asked = []

    class Mapping(dict):
        def get(self, *args):
            asked.append(args)
            return "mine"

    assert _get_attr_or_item(Mapping(a=1), "a", 2) == "mine"
    assert asked == [("a", 2)]


def test_subclasses_without_their_own_get_are_read_by_key():
    assert _get_attr_or_item(OrderedDict(a=1), "a") == 1


@pytest.mark.parametrize("wrap", [UserDict, MappingProxyType], ids=lambda cls: cls.__name__)
def test_mappings_that_are_no_dict_are_read_by_attribute(wrap):
    mapping = wrap({"a": 1})
    assert _get_attr_or_item(mapping, "a", "absent") == "absent"
    assert callable(_get_attr_or_item(mapping, "keys"))


def claiming(cls, **attributes):
    """A proxy: an object that names `cls` as its class and derives from nothing."""
    return type("Proxy", (), {"__class__": property(lambda self: cls), **attributes})()


def test_a_proxy_that_only_says_it_is_a_dict_is_read_by_attribute():
    proxy = claiming(dict, a="attribute", get=failing(AssertionError))
    assert isinstance(proxy, dict)
    assert _get_attr_or_item(proxy, "a") == "attribute"
    assert _get_attr_or_item(proxy, "b", "absent") == "absent"
    assert _unwrap_era_config(proxy) is proxy
    assert _usage_value(proxy, "function_name", "function_name") == str(proxy)


@pytest.mark.parametrize(
    ("field", "value"),
    [
        ("name", claiming(str, __len__=lambda self: 1)),
        ("is_correlation_threshold", claiming(float)),
        ("is_correlation_threshold", claiming(int)),
    ],
    ids=["text", "float", "int"],
)
def test_a_proxy_that_only_says_it_is_text_or_a_number_is_refused(field, value):
    assert _normalize_pool_config(raw_pool(), 0)
    with pytest.raises(ValueError, match=r"^era config signal_pools\[0\]"):
        _normalize_pool_config({**raw_pool(), field: value}, 0)


@pytest.mark.parametrize(
    "error", [AttributeError("x"), type("Mine", (AttributeError,), {})()], ids=["error", "subclass"]
)
def test_attribute_errors_mean_absent(error):
    class Object:
        a = property(failing(error))

    assert _get_attr_or_item(Object(), "a", 1) == 1


@pytest.mark.parametrize(
    "error", [ValueError("x"), KeyError("a"), KeyboardInterrupt(), SystemExit(3)], ids=repr
)
def test_other_errors_pass_unchanged(error):
    class Object:
        a = property(failing(error))

    class Mapping(dict):
        get = failing(error)

    for value in (Object(), Mapping()):
        with pytest.raises(type(error)) as caught:
            _get_attr_or_item(value, "a", 1)
        assert caught.value is error


def test_an_unhashable_key_and_an_attribute_that_is_no_text_are_type_errors():
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        _get_attr_or_item({}, [])
    with pytest.raises(TypeError, match="attribute name must be string"):
        _get_attr_or_item(SimpleNamespace(), 1)


def test_a_key_that_is_no_text_serves_a_mapping():
    assert _get_attr_or_item({1: "one"}, 1) == "one"
