"""Enumerations, key maps and constants: names, values, order, and what importing them costs."""

from __future__ import annotations

import copy
import dataclasses
import enum
import math
import os
import pickle
import sys
import time
import types
import typing

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow
from support.children import run_child

MEMBERS = {
    AggregateBy: {
        "FUNCTION_FAMILY_FEATURE_FAMILY": ("function_family", "feature_family"),
        "FUNCTION_FAMILY_FEATURE_SUBFAMILY": ("function_family", "feature_subfamily"),
        "FUNCTION_FAMILY_FEATURE": ("function_family", "feature"),
        "FUNCTION_SUBFAMILY_FEATURE_FAMILY": ("function_subfamily", "feature_family"),
        "FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY": ("function_subfamily", "feature_subfamily"),
        "FUNCTION_SUBFAMILY_FEATURE": ("function_subfamily", "feature"),
        "FUNCTION_FEATURE_FAMILY": ("function", "feature_family"),
        "FUNCTION_FEATURE_SUBFAMILY": ("function", "feature_subfamily"),
        "FUNCTION_FEATURE": ("function", "feature"),
        "NONE": None,
    },
    EvalPool: {"ALL": "all", "PASSED": "passed", "SUBMITTED": "submitted"},
    TimeWindow: {
        "LIFETIME": "lifetime",
        "ERA": "era",
        "LAST_WEEK": "last_week",
        "LAST_24H": "last_24h",
    },
}
EVERY_ENUMERATION = pytest.mark.parametrize("cls", MEMBERS, ids=lambda cls: cls.__name__)


@EVERY_ENUMERATION
def test_members_stand_in_declaration_order_with_their_values(cls):
    assert [(member.name, member.value) for member in cls] == list(MEMBERS[cls].items())


@EVERY_ENUMERATION
def test_no_member_is_an_alias(cls):
    assert len(cls.__members__) == len(list(cls)) == len(MEMBERS[cls])


@EVERY_ENUMERATION
def test_members_are_found_by_value_name_and_attribute(cls):
    for name, value in MEMBERS[cls].items():
        assert cls(value) is cls[name] is getattr(cls, name)


@EVERY_ENUMERATION
def test_a_member_never_equals_its_value(cls):
    for member in cls:
        assert member != member.value
        assert member.value != member


@EVERY_ENUMERATION
def test_enumerations_are_plain_enums(cls):
    assert type(cls) is type(enum.Enum)
    assert cls.__bases__ == (enum.Enum,)
    assert cls.__module__ == "kestrune.search_analytics"
    assert cls.__qualname__ == cls.__name__


@EVERY_ENUMERATION
def test_members_survive_pickle_and_copy_as_themselves(cls):
    for member in cls:
        assert copy.copy(member) is member
        assert copy.deepcopy(member) is member
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            assert pickle.loads(pickle.dumps(member, protocol)) is member


@EVERY_ENUMERATION
def test_members_print_as_plain_members_do(cls):
    for name, value in MEMBERS[cls].items():
        assert repr(cls[name]) == f"<{cls.__name__}.{name}: {value!r}>"
        assert str(cls[name]) == f"{cls.__name__}.{name}"


@pytest.mark.parametrize(
    ("cls", "text"),
    [
        (
            AggregateBy,
            "Aggregation dimension for search stats.\n\n"
            "    Each member defines a (function_level, feature_level) pair that determines\n"
            "    how evaluation functions and features are grouped.\n    ",
        ),
        (EvalPool, "Which evaluations to include."),
        (TimeWindow, "Time window for filtering evaluations."),
    ],
    ids=["AggregateBy", "EvalPool", "TimeWindow"],
)
def test_enumerations_say_what_they_are_for(cls, text):
    assert cls.__doc__ == text


def test_aggregate_by_ends_with_none_whose_value_is_none():
    assert len(list(AggregateBy)) == 10
    assert list(AggregateBy)[-1] is AggregateBy.NONE
    assert AggregateBy.NONE.value is None
    assert AggregateBy(None) is AggregateBy.NONE


def test_aggregate_by_values_are_tuples_and_a_list_is_not_one():
    assert AggregateBy(("function", "feature")) is AggregateBy.FUNCTION_FEATURE
    assert all(type(member.value) is tuple for member in list(AggregateBy)[:-1])
    with pytest.raises(ValueError, match="is not a valid AggregateBy"):
        AggregateBy(["function", "feature"])


def test_eval_pool_is_looked_up_by_value_but_not_equal_to_it():
    assert EvalPool("all") is EvalPool.ALL
    assert EvalPool.ALL.value == "all"
    assert (EvalPool.ALL == "all") is False


def test_members_are_hashable_and_cannot_be_rebound():
    assert {TimeWindow.ERA: 1}[TimeWindow.ERA] == 1
    with pytest.raises(AttributeError):
        TimeWindow.ERA = 3


def test_key_maps_translate_levels_to_name_keys_in_order():
    assert type(search_analytics._FUNC_KEY_MAP) is dict
    assert list(search_analytics._FUNC_KEY_MAP.items()) == [
        ("function_family", "function_family"),
        ("function_subfamily", "function_subfamily"),
        ("function", "function_name"),
    ]
    assert type(search_analytics._FEAT_KEY_MAP) is dict
    assert list(search_analytics._FEAT_KEY_MAP.items()) == [
        ("feature_family", "feature_family"),
        ("feature_subfamily", "feature_subfamily"),
        ("feature", "feature_name"),
    ]


@pytest.mark.parametrize(
    ("name", "value"),
    [
        ("_DEFAULT_ANALYTICS_HISTORY_LIMIT", 10000),
        ("_AUTH_REQUIRED_MESSAGE", "No wallet initialized. Call register() or login() first."),
    ],
    ids=["history limit", "auth message"],
)
def test_constants_have_their_values(name, value):
    assert getattr(search_analytics, name) == value
    assert type(getattr(search_analytics, name)) is type(value)


@pytest.mark.parametrize(
    ("name", "imported"),
    {
        "_os": os,
        "_sys": sys,
        "time": time,
        "math": math,
        "dataclass": dataclasses.dataclass,
        "field": dataclasses.field,
        "Enum": enum.Enum,
        "SimpleNamespace": types.SimpleNamespace,
        "List": typing.List,  # noqa: UP006 - the object itself is meant
        "Optional": typing.Optional,
        "Tuple": typing.Tuple,  # noqa: UP006
        "FrozenSet": typing.FrozenSet,  # noqa: UP006
    }.items(),
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_imported_names_are_the_standard_ones(name, imported):
    assert getattr(search_analytics, name) is imported


def test_the_module_says_what_it_is_for():
    assert search_analytics.__doc__ == (
        "Search analytics subcomponent \N{EM DASH} aggregated statistics, suggestions, patterns."
    )


def test_importing_the_module_imports_no_sibling():
    run_child("""
        import sys

        class Watcher:
            asked = []
            def find_spec(self, name, path=None, target=None):
                self.asked.append(name)

        sys.meta_path.insert(0, Watcher())
        import kestrune.search_analytics
        siblings = {name for name in Watcher.asked if name.startswith("kestrune.")}
        assert siblings == {"kestrune.search_analytics"}, siblings
        loaded = {name for name in sys.modules if name.startswith("kestrune.")}
        assert loaded == {"kestrune.search_analytics"}, loaded
    """)


def test_importing_succeeds_where_every_sibling_would_fail():
    run_child("""
        import sys
        for name in ("agent_onboarding", "auth", "search_templates", "search_tracking", "_runtime"):
            sys.modules["kestrune." + name] = None
        import kestrune.search_analytics as search_analytics
        try:
            search_analytics.get_available_aggregations()
        except ModuleNotFoundError as error:
            assert error.name == "kestrune.agent_onboarding", error
        else:
            raise SystemExit("the missing onboarding module went unnoticed")
    """)
