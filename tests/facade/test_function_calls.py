"""Calling a native function: binding, its errors in the interpreter's words, live defaults."""

from __future__ import annotations

import types

import kestrune.search_analytics as search_analytics
import pytest
from support.parts import engine_over, evaluation
from support.signatures import DECLARATIONS, function, ordinary

EVERY_FUNCTION = pytest.mark.parametrize("name", DECLARATIONS)


class Text(str):
    """A keyword name that is not exactly `str`."""


def text_of_type_error(call, *args, **kwargs):
    with pytest.raises(TypeError) as caught:
        call(*args, **kwargs)
    return str(caught.value)


def outcome(call, *args, **kwargs):
    """The text of the TypeError of a call that does nothing, or None when it is accepted."""
    try:
        call(*args, **kwargs)
    except TypeError as error:
        return str(error)
    return None


def wrong_calls(name):
    """Calls that no function of those parameters accepts: (positional, keywords)."""
    parameters, _ = DECLARATIONS[name]
    names = [text.split("=")[0].strip() for text in parameters.split(",") if text.strip()]
    required = [text for text in parameters.split(",") if text.strip() and "=" not in text]
    yield tuple(range(len(names) + 1)), {}
    yield tuple(range(len(names) + 7)), {}
    yield tuple(range(len(names))), {"no_such_parameter": 1}
    yield (1,) * len(required), {"no_such_parameter": 1, "nor_this": 2}
    yield (1,) * len(required), {"\udc80": 1}
    yield (1,) * len(required), {"": 1}
    yield (1,) * len(required), {Text("nothing"): 1}
    yield tuple(range(len(names) + 1)), {"no_such_parameter": 1}
    if names:
        yield tuple(range(len(names))), {names[0]: 1}
        yield tuple(range(len(names))), {names[-1]: 1}
        yield tuple(range(len(names) + 1)), {names[0]: 1}
        yield (1,), {Text(names[0]): 1}
        yield (1,) * len(required), {names[0].upper(): 1}
    for count in range(len(required)):
        yield (1,) * count, {}
        yield (1,) * count, {names[-1]: 1} if len(names) > len(required) else {}


@EVERY_FUNCTION
def test_wrong_calls_fail_in_the_words_of_an_ordinary_def(name):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    for args, kwargs in wrong_calls(name):
        assert text_of_type_error(native, *args, **kwargs) == text_of_type_error(
            plain, *args, **kwargs
        )


@EVERY_FUNCTION
def test_keyword_names_must_be_text(name):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    assert text_of_type_error(lambda: native(**{1: 2})) == text_of_type_error(
        lambda: plain(**{1: 2})
    )


@pytest.mark.parametrize("name", [name for name in DECLARATIONS if "." in name])
def test_wrong_calls_of_bound_methods_count_the_instance(name):
    engine = engine_over([])
    native = getattr(engine, name.split(".")[1])
    plain = types.MethodType(ordinary(search_analytics, name), engine)
    for args, kwargs in wrong_calls(name):
        if len(args) > 1 or kwargs:
            args = args[1:]
        expected = outcome(plain, *args, **kwargs)
        if expected is not None:
            assert text_of_type_error(native, *args, **kwargs) == expected


@pytest.mark.parametrize(
    ("call", "text"),
    [
        (
            lambda: search_analytics.get_available_eras(1),
            "get_available_eras() takes 0 positional arguments but 1 was given",
        ),
        (
            lambda: search_analytics.get_search_stats(era=1),
            "get_search_stats() got an unexpected keyword argument 'era'",
        ),
        (
            lambda: search_analytics.get_search_stats(1, era_id=1),
            "get_search_stats() got multiple values for argument 'era_id'",
        ),
        (
            lambda: search_analytics._usage_value({}),
            "_usage_value() missing 2 required positional arguments: 'key' and 'name_key'",
        ),
        (
            lambda: search_analytics._usage_items({}),
            "_usage_items() missing 3 required positional arguments: "
            "'metadata_attr', 'names_attr', and 'name_key'",
        ),
        (
            lambda: search_analytics._get_attr_or_item(1, 2, 3, 4),
            "_get_attr_or_item() takes from 2 to 3 positional arguments but 4 were given",
        ),
        (
            lambda: search_analytics.SearchAnalytics(),
            "SearchAnalytics.__init__() missing 2 required positional arguments: "
            "'search_tracker' and 'pool_configs'",
        ),
        (
            lambda: engine_over([]).get_available_eras(1),
            "SearchAnalytics.get_available_eras() takes 1 positional argument but 2 were given",
        ),
        (
            lambda: search_analytics.SearchAnalytics.get_available_eras(),
            "SearchAnalytics.get_available_eras() missing 1 required positional argument: 'self'",
        ),
        (
            lambda: engine_over([])._fetch_evaluations(self=1),
            "SearchAnalytics._fetch_evaluations() got multiple values for argument 'self'",
        ),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_the_words_themselves(call, text):
    # Newer interpreters add a suggestion to the text.
    assert text_of_type_error(call).split(". Did you mean")[0] == text


@EVERY_FUNCTION
def test_a_wrong_call_calls_nothing(monkeypatch, name):
    """Binding fails before the function does anything: no argument is touched."""

    class Untouchable:
        def __getattr__(self, attribute):
            raise AssertionError(attribute)

    many = [Untouchable()] * 40
    assert "positional argument" in text_of_type_error(function(search_analytics, name), *many)


def test_positional_and_keyword_arguments_mix():
    value = search_analytics._get_attr_or_item
    assert value({"a": 1}, "b", 2) == 2
    assert value({"a": 1}, "b", default=2) == 2
    assert value({"a": 1}, default=2, key="b") == 2
    assert value(default=2, key="a", value={"a": 1}) == 1
    assert value(*[{"a": 1}], key="b") is None


def test_a_keyword_equal_to_a_parameter_name_by_text_binds():
    assert search_analytics._get_attr_or_item({"a": 1}, **{Text("key"): "a"}) == 1
    spelled = "".join(["k", "e", "y"])  # not interned
    assert search_analytics._get_attr_or_item({"a": 1}, **{spelled: "a"}) == 1


def test_defaults_are_live(monkeypatch):
    lookup = search_analytics._get_attr_or_item
    original = lookup.__defaults__
    try:
        lookup.__defaults__ = ("mine",)
        assert lookup({}, "a") == "mine"
        lookup.__defaults__ = ("a", "mine")
        assert lookup({}) == "mine"
        lookup.__defaults__ = ({}, "a", "more")
        assert lookup() == "more"
        lookup.__defaults__ = None
        assert text_of_type_error(lookup, {}, "a") == (
            "_get_attr_or_item() missing 1 required positional argument: 'default'"
        )
        del lookup.__defaults__
        assert lookup.__defaults__ is None
    finally:
        lookup.__defaults__ = original
    assert lookup({}, "a") is None


def test_defaults_of_a_method_are_live(now):
    method = search_analytics.SearchAnalytics.get_search_stats
    original = method.__defaults__
    engine = engine_over([evaluation()])
    assert engine.get_search_stats().groups_shown == 0
    try:
        method.__defaults__ = (*original[:-2], 1, original[-1])
        assert engine.get_search_stats().groups_shown == 1
    finally:
        method.__defaults__ = original


def test_keyword_defaults_are_ignored_by_positional_parameters():
    lookup = search_analytics._get_attr_or_item
    try:
        lookup.__kwdefaults__ = {"default": "mine"}
        assert lookup({}, "a") is None
    finally:
        lookup.__kwdefaults__ = None


def test_a_module_function_binds_as_a_method():
    class Owner:
        lookup = search_analytics._get_attr_or_item
        static = staticmethod(search_analytics._get_attr_or_item)
        on_class = classmethod(search_analytics._get_attr_or_item)
        answer = 42

    owner = Owner()
    assert type(owner.lookup) is types.MethodType
    assert owner.lookup.__self__ is owner
    assert owner.lookup.__func__ is search_analytics._get_attr_or_item
    assert owner.lookup("answer") == 42
    assert owner.static(owner, "answer") == 42
    assert Owner.on_class("answer") == 42
    assert Owner.lookup is search_analytics._get_attr_or_item


def test_functions_bind_as_descriptors():
    native = search_analytics._usage_value
    assert native.__get__(None, int) is native
    assert native.__get__(1).__self__ == 1
    assert native.__get__(1, int) == types.MethodType(native, 1)
    plain = ordinary(search_analytics, "_usage_value")
    assert text_of_type_error(native.__get__, None, None) == text_of_type_error(
        plain.__get__, None, None
    )


def test_methods_are_called_through_class_instance_and_super(now):
    class Mine(search_analytics.SearchAnalytics):
        def get_search_patterns(self, **filters):
            return super().get_search_patterns(**filters)

    engine = engine_over([evaluation()])
    engine.__class__ = Mine
    expected = search_analytics.SearchAnalytics.get_search_patterns(engine)
    assert engine.get_search_patterns() == expected
    assert search_analytics.SearchAnalytics.get_search_patterns(self=engine) == expected


def test_call_attribute_works():
    assert search_analytics._usage_value.__call__({"a": 1}, "a", "b") == 1


def test_many_arguments_through_star_calls():
    nones = [None] * 11
    assert engine_over([]).get_correlation_patterns(*nones, top_n=3).pairs == []
