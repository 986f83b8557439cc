"""Pool entries become a validated list, or one exact error."""

from __future__ import annotations

from collections import OrderedDict, UserDict
from decimal import Decimal
from fractions import Fraction
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import (
    _iter_pool_configs,
    _normalize_pool_config,
    _resolve_pool_configs,
)
from support.environment import failing, raw_pool

EMPTY = "era config must contain non-empty pool configs under 'signal_pools'."
NOT_FOUND = (
    f"{EMPTY} Run register() or login(private_key) so the SDK runtime can bootstrap "
    "the active era config before calling analytics."
)
NO_THRESHOLD_ATTRIBUTE = "era pool configs must expose name and is_correlation_threshold."


def no_name(index):
    return f"era config signal_pools[{index}] must expose non-empty name."


def no_threshold(index):
    return f"era config signal_pools[{index}] missing required is_correlation_threshold."


def not_numeric(index):
    return f"era config signal_pools[{index}].is_correlation_threshold must be numeric."


def error_of(call, *args):
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - callers compare the whole text
        call(*args)
    assert type(caught.value) is ValueError
    assert caught.value.__cause__ is None
    return str(caught.value)


def names(pools):
    return [config.name for config in pools]


def era(*pools):
    return {"signal_pools": list(pools)}


def test_a_mapping_of_pools_gives_its_values_in_order():
    pools = {"x": 1, "y": 2}
    listed = _iter_pool_configs(pools)
    assert listed == [1, 2]
    assert type(listed) is list


def test_any_other_iterable_gives_its_items_in_a_new_list():
    pools = [1, 2]
    assert _iter_pool_configs(pools) == pools
    assert _iter_pool_configs(pools) is not pools
    assert _iter_pool_configs(iter("ab")) == ["a", "b"]
    assert _iter_pool_configs(UserDict(x=1)) == ["x"]


def test_values_of_a_mapping_subclass_are_asked_for():
    class Mapping(dict):
        def values(self):
            return iter("mine")

    assert _iter_pool_configs(Mapping(a=1)) == list("mine")


def test_pools_that_cannot_be_iterated_are_a_type_error():
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        _iter_pool_configs(5)


def test_a_normalised_pool_is_a_namespace_of_three():
    config = _normalize_pool_config({**raw_pool("a", 0.5), "more": 1}, 0)
    assert type(config) is SimpleNamespace
    assert list(vars(config).items()) == [
        ("name", "a"),
        ("is_correlation_threshold", 0.5),
        ("os_correlation_threshold", None),
    ]


def test_an_object_entry_is_read_by_attribute():
    entry = SimpleNamespace(
        name="a", is_correlation_threshold=0.5, os_correlation_threshold="anything"
    )
    assert _normalize_pool_config(entry, 0) == entry


@pytest.mark.parametrize(
    "threshold", [1, 0, -3, 10**30, 0.5, -0.5, 2.5, float("nan"), float("inf")], ids=repr
)
def test_numbers_of_any_size_are_kept_as_given(threshold):
    assert _normalize_pool_config(raw_pool("a", threshold), 0).is_correlation_threshold is threshold


def test_number_and_name_subclasses_are_kept_as_given():
    number, text = type("Number", (float,), {})(0.5), type("Text", (str,), {})("a")
    config = _normalize_pool_config(raw_pool(text, number), 0)
    assert config.is_correlation_threshold is number
    assert config.name is text


def test_a_name_of_blanks_passes():
    assert _normalize_pool_config(raw_pool("  "), 0).name == "  "


@pytest.mark.parametrize("name", [None, "", b"a", 5, ["a"], Fraction(1)], ids=repr)
def test_a_name_must_be_text_and_not_empty(name):
    assert error_of(_normalize_pool_config, raw_pool(name), 2) == no_name(2)


def test_a_missing_name_is_reported_before_a_missing_threshold():
    assert error_of(_normalize_pool_config, {}, 0) == no_name(0)
    assert error_of(_normalize_pool_config, {"is_correlation_threshold": 0.5}, 0) == no_name(0)


def test_a_missing_threshold():
    assert error_of(_normalize_pool_config, {"name": "a"}, 1) == no_threshold(1)
    assert error_of(_normalize_pool_config, raw_pool("a", None), 1) == no_threshold(1)


@pytest.mark.parametrize(
    "threshold",
    [
        True,
        False,
        "0.5",
        Decimal("0.5"),
        Fraction(1, 2),
        1j,
        [],
        pytest.param(object(), id="object"),
    ],
    ids=repr,
)
def test_a_threshold_must_be_a_number(threshold):
    assert error_of(_normalize_pool_config, raw_pool("a", threshold), 0) == not_numeric(0)


def test_the_index_is_printed_as_text_of_whatever_was_given():
    assert error_of(_normalize_pool_config, raw_pool(None), "any") == no_name("any")


def test_an_object_without_attributes():
    assert error_of(_normalize_pool_config, object(), 0) == NO_THRESHOLD_ATTRIBUTE


def test_an_object_with_a_name_but_without_threshold():
    entry = SimpleNamespace(name="a")
    assert error_of(_normalize_pool_config, entry, 0) == NO_THRESHOLD_ATTRIBUTE


def test_an_object_whose_threshold_is_none():
    entry = SimpleNamespace(name="a", is_correlation_threshold=None)
    assert error_of(_normalize_pool_config, entry, 0) == no_threshold(0)


def test_an_object_with_a_threshold_but_without_name():
    entry = SimpleNamespace(is_correlation_threshold=0.5)
    assert error_of(_normalize_pool_config, entry, 4) == no_name(4)


def test_a_mapping_that_is_no_dict_is_read_by_attribute():
    assert error_of(_normalize_pool_config, UserDict(raw_pool()), 0) == NO_THRESHOLD_ATTRIBUTE


def test_the_second_threshold_is_read_last_and_only_after_the_checks():
    read = []

    class Entry:
        def __getattr__(self, name):
            read.append(name)
            return {"name": "a", "is_correlation_threshold": 0.5}.get(name)

    _normalize_pool_config(Entry(), 0)
    assert read == [
        "is_correlation_threshold",
        "name",
        "is_correlation_threshold",
        "os_correlation_threshold",
    ]


def test_errors_of_an_entry_pass_unchanged():
    error = KeyError("mine")

    class Entry:
        is_correlation_threshold = property(failing(error))

    with pytest.raises(KeyError) as caught:
        _normalize_pool_config(Entry(), 0)
    assert caught.value is error


def test_pools_of_the_wrapped_configuration_are_used():
    config = {"era_config": {"era_config": era(raw_pool("inner")), **era(raw_pool("outer"))}}
    assert names(_resolve_pool_configs(config)) == ["inner"]


def test_a_mapping_without_wrapped_mapping_is_used_as_it_stands():
    assert names(_resolve_pool_configs({"era": era(raw_pool("a"))})) == ["a"]
    assert names(_resolve_pool_configs(era(raw_pool("a")))) == ["a"]


def test_a_candidate_of_none_is_skipped():
    config = {"era_config": None, "current_era_config": era(raw_pool("a"))}
    assert names(_resolve_pool_configs(config)) == ["a"]


def test_a_candidate_without_pools_is_skipped():
    config = {"era_config": {"signal_pools": None}, "era": era(raw_pool("a"))}
    assert names(_resolve_pool_configs(config)) == ["a"]


@pytest.mark.parametrize(
    "empty", [[], {}, (), "", iter([])], ids=lambda value: type(value).__name__
)
def test_the_first_candidate_with_empty_pools_decides(empty):
    config = {"era_config": {"signal_pools": empty}, "synced_era_config": era(raw_pool("a"))}
    assert error_of(_resolve_pool_configs, config) == EMPTY


def test_a_mapping_of_two_pools_gives_two_in_its_order():
    pools = OrderedDict(z=raw_pool("first"), a=raw_pool("second"))
    assert names(_resolve_pool_configs({"signal_pools": pools})) == ["first", "second"]
    pools["a"] = raw_pool(None)
    assert error_of(_resolve_pool_configs, {"signal_pools": pools}) == no_name(1)


def test_a_threshold_of_true_fails_and_of_one_passes_as_an_int():
    assert error_of(_resolve_pool_configs, era(raw_pool("a", True))) == not_numeric(0)
    (config,) = _resolve_pool_configs(era(raw_pool("a", 1)))
    assert type(config.is_correlation_threshold) is int


def test_pools_given_as_text_fail_at_their_first_character():
    assert error_of(_resolve_pool_configs, {"signal_pools": "ab"}) == NO_THRESHOLD_ATTRIBUTE


def test_the_first_failing_entry_is_reported_by_its_index():
    config = era(raw_pool(), raw_pool(), raw_pool("c", "x"), raw_pool(None))
    assert error_of(_resolve_pool_configs, config) == not_numeric(2)


@pytest.mark.parametrize("config", [None, {}, [], {"era_config": None}, {"era": {}}], ids=repr)
def test_no_pools_anywhere(config):
    assert error_of(_resolve_pool_configs, config) == NOT_FOUND
    assert error_of(_resolve_pool_configs, config, object(), object()) == NOT_FOUND


def test_sources_decide_in_their_order():
    handle = SimpleNamespace(_era_config=era(raw_pool("handle")))
    runtime = SimpleNamespace(era_config=era(raw_pool("runtime")))
    keys = ("era_config", "current_era_config", "synced_era_config", "era")
    config = {key: era(raw_pool(key)) for key in keys} | era(raw_pool("mapping"))
    for expected in (*keys, "signal_pools"):
        found = "mapping" if expected == "signal_pools" else expected
        assert names(_resolve_pool_configs(config, handle, runtime)) == [found]
        del config[expected]
    assert names(_resolve_pool_configs(config, handle, runtime)) == ["handle"]
    assert names(_resolve_pool_configs(config, None, runtime)) == ["runtime"]
    assert names(_resolve_pool_configs(config, runtime=runtime)) == ["runtime"]


def test_later_sources_are_not_touched_once_pools_are_found():
    class Untouchable:
        def __getattr__(self, name):
            raise AssertionError(name)

    config = {"era_config": era(raw_pool("a")), "era": Untouchable()}
    assert names(_resolve_pool_configs(config, Untouchable(), Untouchable())) == ["a"]


def test_a_handle_object_with_to_dict_gives_the_pools_of_the_mapping():
    config = SimpleNamespace(to_dict=lambda: era(raw_pool("dict")), signal_pools=[raw_pool("attr")])
    assert names(_resolve_pool_configs(None, SimpleNamespace(_era_config=config))) == ["dict"]


def test_an_object_exposes_its_pools_as_attribute():
    config = SimpleNamespace(signal_pools=(SimpleNamespace(**raw_pool("a")),))
    assert names(_resolve_pool_configs({"era": config})) == ["a"]


def test_errors_of_the_sources_pass_unchanged():
    error = OSError("mine")
    for config in (
        {"era": SimpleNamespace(to_dict=failing(error))},
        {"signal_pools": map(failing(error), [1])},
    ):
        with pytest.raises(OSError, match="mine") as caught:
            _resolve_pool_configs(config)
        assert caught.value is error
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        _resolve_pool_configs({"signal_pools": 5})


def test_each_resolution_gives_a_new_list():
    config = era(raw_pool())
    assert _resolve_pool_configs(config) is not _resolve_pool_configs(config)
    assert type(_resolve_pool_configs(config)) is list


def test_resolved_pools_serve_the_engine():
    pools = _resolve_pool_configs(era(raw_pool("a", 0.5), raw_pool("b", 1)))
    assert search_analytics.SearchAnalytics(object(), pools)._pool_configs is pools
