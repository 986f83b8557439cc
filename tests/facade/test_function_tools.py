"""The standard library's tools take native functions for ordinary ones."""

from __future__ import annotations

import contextlib
import functools
import inspect
import io
import pickle
import pydoc
import types
import typing
from unittest import mock

import kestrune.search_analytics as search_analytics
import pytest
from support.copies import copy_of_the_module
from support.parts import engine_over, evaluation
from support.signatures import DECLARATIONS, OPERATIONS, function, ordinary

EVERY_FUNCTION = pytest.mark.parametrize("name", DECLARATIONS)
EVERY_OPERATION = pytest.mark.parametrize("name", OPERATIONS)


@EVERY_FUNCTION
def test_wraps_copies_from_a_native_function(name):
    native = function(search_analytics, name)

    @functools.wraps(native)
    def wrapper(*args, **kwargs):
        return native(*args, **kwargs)

    assert wrapper.__wrapped__ is native
    assert wrapper.__name__ == native.__name__
    assert wrapper.__qualname__ == native.__qualname__
    assert wrapper.__doc__ == native.__doc__
    assert wrapper.__annotations__ == native.__annotations__
    assert inspect.signature(wrapper) == inspect.signature(native)
    assert inspect.unwrap(wrapper) is native


def test_wraps_copies_to_a_native_function():
    module = copy_of_the_module()

    def documented(record: int) -> str:
        """Other text."""

    documented.note = "mine"
    native = functools.update_wrapper(module._function_items, documented)
    assert native.__name__ == "documented"
    assert native.__doc__ == "Other text."
    assert native.__wrapped__ is documented
    assert native.note == "mine"
    assert inspect.signature(native) == inspect.signature(documented)
    assert native(evaluation(function_metadata=[1])) == [1]
    assert search_analytics._function_items.__name__ == "_function_items"


def test_partial_and_partialmethod():
    read = functools.partial(search_analytics._usage_value, key="a", name_key="b")
    assert read({"b": 1}) == 1
    assert str(inspect.signature(read)) == "(item, *, key='a', name_key='b')"

    class Engine(search_analytics.SearchAnalytics):
        top_pair = functools.partialmethod(
            search_analytics.SearchAnalytics.get_correlation_patterns, top_n=1
        )

    engine = engine_over([evaluation()])
    engine.__class__ = Engine
    assert len(engine.top_pair().pairs) == 1


def test_lru_cache_and_singledispatch():
    cached = functools.lru_cache(search_analytics._submission_status_table_and_signal_column)
    assert cached("signal") is cached("signal")
    assert cached.__wrapped__ is search_analytics._submission_status_table_and_signal_column
    generic = functools.singledispatch(search_analytics._unwrap_era_config)
    generic.register(int, lambda value: -value)
    assert (generic("x"), generic(3)) == ("x", -3)


@EVERY_OPERATION
def test_type_hints_resolve_to_the_record_classes(name):
    expected = getattr(search_analytics, OPERATIONS[name][1], list)
    assert typing.get_type_hints(getattr(search_analytics, name)) == {"return": expected}
    method = getattr(search_analytics.SearchAnalytics, name)
    assert typing.get_type_hints(method) == {"return": expected}


def test_type_hints_of_the_singleton_and_of_a_helper():
    assert typing.get_type_hints(search_analytics._get_or_init) == {
        "return": search_analytics.SearchAnalytics
    }
    assert typing.get_type_hints(search_analytics._usage_value) == {}


@EVERY_FUNCTION
def test_pydoc_describes_it_like_an_ordinary_def(name):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    # Without a documentation of its own, a method would be given that of its base.
    plain.__doc__ = inspect.getdoc(native)
    assert pydoc.plain(pydoc.render_doc(native)) == pydoc.plain(pydoc.render_doc(plain))


def test_help_prints_the_module():
    with contextlib.redirect_stdout(io.StringIO()) as printed:
        help(search_analytics)
    text = printed.getvalue()
    assert "FUNCTIONS" in text
    for name in OPERATIONS:
        assert f"{name}(" in text
    for cls in ("AggregateBy", "StatsRow", "SearchAnalytics"):
        assert f"class {cls}" in text
    assert "Aggregated performance statistics with flexible grouping." in text


def test_inspect_lists_the_functions_of_the_module_and_of_the_class():
    listed = dict(inspect.getmembers(search_analytics, inspect.isfunction))
    ours = {name for name in DECLARATIONS if "." not in name}
    assert ours | {"dataclass", "field"} == set(listed)
    methods = dict(inspect.getmembers(search_analytics.SearchAnalytics, inspect.isfunction))
    assert {f"SearchAnalytics.{name}" for name in methods} == {n for n in DECLARATIONS if "." in n}


def test_classify_class_attributes_calls_them_methods():
    kinds = {
        attribute.name: attribute.kind
        for attribute in inspect.classify_class_attrs(search_analytics.SearchAnalytics)
        if attribute.defining_class is search_analytics.SearchAnalytics
    }
    assert kinds["get_search_stats"] == kinds["_fetch_evaluations"] == "method"


@EVERY_FUNCTION
def test_autospec_keeps_the_signature(name):
    native = function(search_analytics, name)
    double = mock.create_autospec(native)
    assert inspect.signature(double) == inspect.signature(native)
    required = [None] * (native.__code__.co_argcount - len(native.__defaults__ or ()))
    double(*required)
    assert double.call_count == 1
    with pytest.raises(TypeError):
        double(*required, no_such_parameter=1)


@EVERY_OPERATION
def test_patch_with_autospec_replaces_a_module_function(name):
    original = getattr(search_analytics, name)
    with mock.patch(f"kestrune.search_analytics.{name}", autospec=True) as double:
        double.return_value = "mine"
        assert getattr(search_analytics, name)() == "mine"
        assert isinstance(getattr(search_analytics, name), types.FunctionType)
        with pytest.raises(TypeError):
            getattr(search_analytics, name)(no_such_parameter=1)
    assert getattr(search_analytics, name) is original


@EVERY_OPERATION
def test_patch_object_with_autospec_replaces_a_method(name):
    engine = engine_over([])
    with mock.patch.object(search_analytics.SearchAnalytics, name, autospec=True) as double:
        getattr(engine, name)()
        double.assert_called_once_with(engine)
        with pytest.raises(TypeError):
            getattr(engine, name)(no_such_parameter=1)


def test_autospec_of_the_class_and_of_an_instance():
    double = mock.create_autospec(search_analytics.SearchAnalytics)
    instance = double("tracker", ["pool"])
    instance.get_search_stats(era_id=1)
    instance.get_search_stats.assert_called_once_with(era_id=1)
    with pytest.raises(TypeError):
        double("tracker")
    with pytest.raises(TypeError):
        instance.get_search_stats(no_such_parameter=1)
    with pytest.raises(TypeError):
        mock.create_autospec(engine_over([])).get_available_eras(1)


def test_wrapping_mock_calls_through(now):
    engine = engine_over([evaluation()])
    with mock.patch.object(
        search_analytics, "_usage_value", wraps=search_analytics._usage_value
    ) as double:
        engine.get_correlation_patterns()
    assert [call.args[1] for call in double.call_args_list] == ["function_name"] * 2


def test_bound_methods_pickle_with_their_engine(now):
    engine = engine_over([evaluation()])
    method = pickle.loads(pickle.dumps(engine.get_search_patterns))
    assert method.__self__ is not engine
    assert method() == engine.get_search_patterns()


def test_a_subclass_overriding_with_a_wrapped_method_keeps_its_signature():
    base = search_analytics.SearchAnalytics.get_search_velocity

    class Mine(search_analytics.SearchAnalytics):
        @functools.wraps(base)
        def get_search_velocity(self, *args, **kwargs):
            return "mine"

    assert inspect.signature(Mine.get_search_velocity) == inspect.signature(base)
    plain = ordinary(search_analytics, "SearchAnalytics.get_search_velocity")
    assert str(inspect.signature(base)) == str(inspect.signature(plain))
