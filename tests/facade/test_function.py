"""Native functions look like functions made by `def`: names, code, attributes, writability."""

from __future__ import annotations

import copy
import gc
import inspect
import pickle
import re
import sys
import types
import weakref

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.signatures import DECLARATIONS, OPERATIONS, function, ordinary

EVERY_FUNCTION = pytest.mark.parametrize("name", DECLARATIONS)
SOME_FUNCTIONS = pytest.mark.parametrize(
    "name", ["get_yield_analysis", "_get_attr_or_item", "SearchAnalytics.get_search_stats"]
)


@pytest.fixture
def pair(name):
    """The function of that name and an ordinary `def` of the same shape, both put back after."""
    native = function(search_analytics, name)
    writable = ("__name__", "__qualname__", "__module__", "__doc__", "__defaults__")
    before = {key: getattr(native, key) for key in (*writable, "__kwdefaults__")}
    annotations, attributes = dict(native.__annotations__), dict(native.__dict__)
    annotate = getattr(native, "__annotate__", None)
    yield native, ordinary(search_analytics, name)
    for key, value in before.items():
        setattr(native, key, value)
    native.__annotations__ = annotations
    if annotate is not None:
        native.__annotate__ = annotate
    native.__dict__ = attributes


def outcome(action, *args):
    """What `action` gives, or the type and text of what it raises."""
    try:
        return action(*args)
    except Exception as error:
        return type(error), str(error)


@EVERY_FUNCTION
def test_signature_is_that_of_an_ordinary_def(name):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    assert inspect.signature(native) == inspect.signature(plain)
    assert str(inspect.signature(native)) == str(inspect.signature(plain))
    assert inspect.getfullargspec(native) == inspect.getfullargspec(plain)


@pytest.mark.parametrize("name", OPERATIONS)
def test_default_enumeration_members_are_the_members_themselves(name):
    for owner in (search_analytics, search_analytics.SearchAnalytics):
        parameters = inspect.signature(getattr(owner, name)).parameters
        if "aggregate_by" in parameters:
            assert (
                parameters["aggregate_by"].default
                is search_analytics.AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY
            )
        if "eval_pool" in parameters:
            assert parameters["eval_pool"].default is search_analytics.EvalPool.ALL


def test_the_whole_signature_of_search_stats_prints():
    assert str(inspect.signature(search_analytics.get_search_stats)) == (
        "(era_id=None, eval_type=None, named_universe=None, metaparameters=None, "
        "function_family=None, function_subfamily=None, feature_family=None, "
        "feature_subfamily=None, strategy_pool_id=None, signal_pool_id=None, "
        "strategy_signal_pool=None, aggregate_by=<AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY:"
        " ('function_subfamily', 'feature_subfamily')>, eval_pool=<EvalPool.ALL: 'all'>, "
        "time_windows=None, pnl_column=None, min_sample_size=100, sort_ascending=False) "
        "-> 'SearchStatsResult'"
    )


@EVERY_FUNCTION
@pytest.mark.parametrize(
    "attribute",
    ["__name__", "__qualname__", "__module__", "__defaults__", "__kwdefaults__", "__annotations__"],
)
def test_attributes_equal_those_of_an_ordinary_def(name, attribute):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    assert getattr(native, attribute) == getattr(plain, attribute)
    assert type(getattr(native, attribute)) is type(getattr(plain, attribute))


@EVERY_FUNCTION
def test_code_describes_the_parameters(name):
    native = function(search_analytics, name).__code__
    plain = ordinary(search_analytics, name).__code__
    assert isinstance(native, types.CodeType)
    for attribute in ("co_name", "co_qualname", "co_argcount", "co_posonlyargcount"):
        assert getattr(native, attribute, None) == getattr(plain, attribute, None)
    assert native.co_kwonlyargcount == 0
    assert native.co_varnames[: native.co_argcount] == plain.co_varnames
    assert not native.co_flags & (inspect.CO_VARARGS | inspect.CO_VARKEYWORDS)


@EVERY_FUNCTION
def test_only_the_candidates_are_a_generator_function(name):
    native = function(search_analytics, name)
    assert inspect.isgeneratorfunction(native) is (name == "_candidate_era_configs")
    assert not inspect.iscoroutinefunction(native)
    assert not inspect.isasyncgenfunction(native)


@EVERY_FUNCTION
def test_functions_pass_for_functions(name):
    native = function(search_analytics, name)
    assert inspect.isfunction(native)
    assert inspect.isroutine(native)
    assert isinstance(native, types.FunctionType)
    assert not inspect.isbuiltin(native)
    assert not inspect.ismethod(native)
    assert callable(native)


@EVERY_FUNCTION
def test_globals_are_the_namespace_of_the_module(name):
    native = function(search_analytics, name)
    assert native.__globals__ is vars(search_analytics)
    assert native.__closure__ is None
    assert inspect.getmodule(native) is search_analytics


@EVERY_FUNCTION
def test_printed_form_is_that_of_a_function(name):
    native = function(search_analytics, name)
    assert re.fullmatch(rf"<function {re.escape(name)} at 0x[0-9a-f]+>", repr(native))


@EVERY_FUNCTION
def test_documentation_is_text_or_none(name):
    documentation = function(search_analytics, name).__doc__
    assert documentation is None or (isinstance(documentation, str) and documentation)


DOCUMENTED = {
    "SearchAnalytics.get_search_stats": "Aggregated performance statistics with flexible grouping.",
    "SearchAnalytics.get_suggestions": "Composite-scored focus/avoid suggestions.",
    "SearchAnalytics.get_search_patterns": "Depth distribution and family yield analysis.",
    "SearchAnalytics.get_search_velocity": "Evaluation rate across time windows.",
    "SearchAnalytics.get_yield_analysis": "Era-level and family-level yield breakdown.",
    "SearchAnalytics.get_correlation_patterns": "Function pair correlation patterns.",
    "SearchAnalytics.get_available_eras": "Sorted list of distinct era_id values.",
    "SearchAnalytics.get_available_named_universes": (
        "Sorted list of distinct named_universe values."
    ),
    "SearchAnalytics.get_available_aggregations": (
        "List of all AggregateBy enum values in declaration order."
    ),
    "_get_or_init": "Return the module-level analytics singleton, initializing lazily.",
}


@pytest.mark.parametrize(("name", "text"), DOCUMENTED.items(), ids=DOCUMENTED)
def test_functions_carry_their_documentation(name, text):
    assert function(search_analytics, name).__doc__ == text


@EVERY_FUNCTION
def test_functions_copy_and_pickle_by_name(name):
    native = function(search_analytics, name)
    assert copy.copy(native) is native
    assert copy.deepcopy(native) is native
    assert copy.deepcopy([native]) == [native]
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        assert pickle.loads(pickle.dumps(native, protocol)) is native
    assert pickle._loads(pickle._dumps(native)) is native  # the pickler written in Python


def test_the_group_key_factory_copies_as_a_function_does():
    factory = search_analytics.StatsRow.__dataclass_fields__["group_key"].default_factory
    assert copy.deepcopy(factory) is factory
    assert inspect.isfunction(factory)
    assert factory.__globals__ is vars(search_analytics)
    with pytest.raises((pickle.PicklingError, AttributeError)):
        pickle.dumps(factory)


def test_a_replaced_function_is_not_pickled_under_its_name(monkeypatch):
    native = search_analytics.get_search_stats
    monkeypatch.setattr(search_analytics, "get_search_stats", None)
    with pytest.raises(pickle.PicklingError, match="not the same object"):
        pickle.dumps(native)


@pytest.mark.skipif(sys.version_info < (3, 12), reason="functions have no type parameters")
@SOME_FUNCTIONS
def test_type_parameters_are_those_of_a_def(pair):
    native, plain = pair
    assert native.__type_params__ == plain.__type_params__ == ()
    for wrong in (None, [], 1):
        refusal = outcome(setattr, native, "__type_params__", wrong)
        assert refusal == outcome(setattr, plain, "__type_params__", wrong)
        assert refusal[0] is TypeError
    assert outcome(delattr, native, "__type_params__") == outcome(delattr, plain, "__type_params__")
    native.__type_params__ = (int,)
    assert native.__type_params__ == (int,)
    native.__type_params__ = ()


@pytest.mark.skipif(sys.version_info >= (3, 14), reason="functions have it")
def test_nothing_says_how_annotations_are_worked_out():
    assert not hasattr(search_analytics.get_search_stats, "__annotate__")


@pytest.mark.skipif(sys.version_info < (3, 14), reason="functions have their annotations only")
@EVERY_FUNCTION
def test_annotations_are_worked_out_as_those_of_a_def(pair):
    native, plain = pair
    if plain.__annotate__ is None:
        assert native.__annotate__ is None
    else:
        assert native.__annotate__ is native.__annotate__
        assert native.__annotate__(1) == plain.__annotate__(1) == native.__annotations__
        assert native.__annotate__.__qualname__ == plain.__annotate__.__qualname__
        assert native.__annotate__.__globals__ is vars(search_analytics)
        for format_ in (2, 3, 4, 5):
            assert outcome(native.__annotate__, format_) == outcome(plain.__annotate__, format_)


@pytest.mark.skipif(sys.version_info < (3, 14), reason="functions have their annotations only")
@SOME_FUNCTIONS
def test_how_annotations_are_worked_out_can_be_assigned_as_on_a_def(pair):
    for one in pair:
        one.__annotate__ = lambda format_: {"x": format_}
        assert one.__annotations__ == {"x": 1}
        one.__annotations__ = {"y": 2}
        assert one.__annotate__ is None
        one.__annotate__ = lambda format_: format_
    native, plain = pair
    assert outcome(getattr, native, "__annotations__") == outcome(getattr, plain, "__annotations__")
    for wrong in (1, "x"):
        refusal = outcome(setattr, native, "__annotate__", wrong)
        assert refusal == outcome(setattr, plain, "__annotate__", wrong)
        assert refusal[0] is TypeError
    assert outcome(delattr, native, "__annotate__") == outcome(delattr, plain, "__annotate__")
    for one in pair:
        one.__annotate__ = None
        del one.__annotations__
        assert one.__annotations__ == {}


@EVERY_FUNCTION
def test_functions_take_weak_references(name):
    native = function(search_analytics, name)
    assert weakref.ref(native)() is native
    assert weakref.WeakKeyDictionary({native: 1})[native] == 1


@EVERY_FUNCTION
def test_functions_are_hashable_and_equal_only_to_themselves(name):
    native = function(search_analytics, name)
    assert {native: 1}[native] == 1
    assert native == function(search_analytics, name)
    assert native != ordinary(search_analytics, name)


@EVERY_FUNCTION
def test_functions_are_tracked_by_the_collector(name):
    assert gc.is_tracked(function(search_analytics, name))


@EVERY_FUNCTION
def test_functions_take_attributes(name, pair):
    native, _ = pair
    assert native.__dict__ == {}
    native.note = "mine"
    assert native.__dict__ == {"note": "mine"}
    assert vars(native) is native.__dict__
    del native.note
    with pytest.raises(AttributeError, match="'function' object has no attribute 'note'"):
        native.note  # noqa: B018


@SOME_FUNCTIONS
@pytest.mark.parametrize(
    ("attribute", "value"),
    [
        ("__name__", "other"),
        ("__qualname__", "Some.other"),
        ("__module__", "elsewhere"),
        ("__doc__", "Text."),
        ("__doc__", None),
        ("__annotations__", {"era_id": "str"}),
        ("__kwdefaults__", {"x": 1}),
        ("__defaults__", (1, 2)),
        ("__defaults__", None),
        ("__dict__", {"note": 1}),
    ],
    ids=lambda value: repr(value)[:30],
)
def test_attributes_can_be_assigned(pair, attribute, value):
    native, _ = pair
    setattr(native, attribute, value)
    assert getattr(native, attribute) == value


@SOME_FUNCTIONS
@pytest.mark.parametrize(
    ("attribute", "value"),
    [
        ("__name__", 1),
        ("__name__", None),
        ("__qualname__", b"x"),
        ("__annotations__", 1),
        ("__kwdefaults__", []),
        ("__defaults__", [1]),
        ("__dict__", 1),
        ("__globals__", {}),
        ("__closure__", ()),
        ("__code__", 1),
    ],
    ids=lambda value: repr(value)[:30],
)
def test_wrong_assignments_fail_as_those_to_a_def(pair, attribute, value):
    native, plain = pair
    assert outcome(setattr, native, attribute, value) == outcome(setattr, plain, attribute, value)
    assert isinstance(outcome(setattr, native, attribute, value), tuple)


@SOME_FUNCTIONS
@pytest.mark.parametrize(
    "attribute",
    [*("__name__", "__qualname__", "__doc__", "__defaults__", "__kwdefaults__"), "__annotations__"],
)
def test_deleting_attributes_behaves_as_on_a_def(pair, attribute):
    native, plain = pair
    assert outcome(delattr, native, attribute) == outcome(delattr, plain, attribute)
    assert getattr(native, attribute, "gone") == getattr(plain, attribute, "gone")


@SOME_FUNCTIONS
def test_a_renamed_function_prints_and_complains_under_its_new_name(pair):
    native, plain = pair
    native.__qualname__ = plain.__qualname__ = "Renamed.it"
    assert repr(native).startswith("<function Renamed.it at ")
    assert outcome(native, *range(30)) == outcome(plain, *range(30))


def test_the_code_of_a_renamed_function_keeps_its_first_name():
    """In a child, where nobody has asked for the code before."""
    run_child("""
        import kestrune.search_analytics as search_analytics

        def plain():
            pass

        for function in (plain, search_analytics._usage_value):
            first = function.__qualname__
            function.__qualname__ = "Renamed.it"
            assert getattr(function.__code__, "co_qualname", first) == first
    """)


def test_dir_lists_what_a_function_has():
    missing = set(dir(ordinary(search_analytics, "_usage_value"))) - set(
        dir(search_analytics._usage_value)
    )
    assert missing == set()
