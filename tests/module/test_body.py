"""The module body: the order of its names, and how it runs outside an ordinary import."""

from __future__ import annotations

import importlib
import importlib.util
import sys
from types import FunctionType, ModuleType

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.parts import RecordingTracker, evaluation, pool

NAMES = [
    "_os",
    "_sys",
    "time",
    "math",
    "dataclass",
    "field",
    "Enum",
    "SimpleNamespace",
    "List",
    "Optional",
    "Tuple",
    "FrozenSet",
    "_alias_source_file",
    "_DEFAULT_ANALYTICS_HISTORY_LIMIT",
    "_tracker_table_exists",
    "_submission_status_table_and_signal_column",
    "_pnl_mi_tamper_delta",
    "AggregateBy",
    "EvalPool",
    "TimeWindow",
    "WindowStats",
    "StatsRow",
    "SearchStatsResult",
    "SuggestionsResult",
    "DepthBucket",
    "FamilyYield",
    "SearchPatternsResult",
    "VelocityWindow",
    "SearchVelocityResult",
    "YieldAnalysisResult",
    "FunctionPairPattern",
    "CorrelationPatternsResult",
    "_FUNC_KEY_MAP",
    "_FEAT_KEY_MAP",
    "_AUTH_REQUIRED_MESSAGE",
    "_get_attr_or_item",
    "_unwrap_era_config",
    "_candidate_era_configs",
    "_runtime_from_onboarding",
    "_extract_raw_pools",
    "_normalize_pool_config",
    "_iter_pool_configs",
    "_usage_items",
    "_function_items",
    "_feature_items",
    "_usage_value",
    "_resolve_pool_configs",
    "_auth_from_onboarding_or_search",
    "_require_registered_or_logged_in",
    "_active_search_handle",
    "_tracker_from_config",
    "_resolve_tracker_and_pools",
    "SearchAnalytics",
    "_singleton",
    "_get_or_init",
    "get_search_stats",
    "get_suggestions",
    "get_available_eras",
    "get_available_named_universes",
    "get_available_aggregations",
    "get_search_patterns",
    "get_search_velocity",
    "get_yield_analysis",
    "get_correlation_patterns",
]

METHODS = [
    "__init__",
    "_validate_eval_type",
    "_fetch_evaluations",
    "_build_group_key",
    "_get_stat",
    "_filter_by_time_window",
    "get_search_stats",
    "get_suggestions",
    "get_available_eras",
    "get_available_named_universes",
    "get_available_aggregations",
    "get_search_patterns",
    "get_search_velocity",
    "get_yield_analysis",
    "get_correlation_patterns",
]


def own_names(module: ModuleType) -> list[str]:
    return [name for name in vars(module) if not (name.startswith("__") and name.endswith("__"))]


def execute(name: str = "kestrune.search_analytics") -> ModuleType:
    """Run the module body again, in a module object that does not stand in `sys.modules`."""
    spec = importlib.util.spec_from_file_location(name, search_analytics.__spec__.origin)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_names_stand_in_the_order_of_the_body():
    assert own_names(execute()) == NAMES


def test_the_imported_module_holds_the_same_names():
    assert sorted(own_names(search_analytics)) == sorted(NAMES)


def test_methods_stand_in_the_order_of_the_class_body():
    methods = [
        name
        for name, value in vars(search_analytics.SearchAnalytics).items()
        if isinstance(value, FunctionType)
    ]
    assert methods == METHODS


def test_the_class_holds_nothing_beside_its_methods():
    incidental = {
        *("__module__", "__doc__", "__dict__", "__weakref__", "__qualname__"),
        *("__firstlineno__", "__static_attributes__"),
    }
    # A fresh class: copying engines leaves notes of the copy module on the imported one.
    assert set(vars(execute().SearchAnalytics)) - incidental == set(METHODS)


def test_a_body_run_outside_sys_modules_works(now):
    before = sys.modules["kestrune.search_analytics"]
    module = execute()
    assert sys.modules["kestrune.search_analytics"] is before
    assert module is not search_analytics
    engine = module.SearchAnalytics(RecordingTracker([evaluation()]), [pool()])
    assert engine.get_search_patterns().total_passed == 1


def test_a_body_run_where_no_module_of_that_name_is_loaded(monkeypatch):
    monkeypatch.delitem(sys.modules, "kestrune.search_analytics")
    assert own_names(execute()) == NAMES
    assert "kestrune.search_analytics" not in sys.modules


def test_a_body_run_under_another_name_carries_that_name():
    module = execute("copies.search_analytics")
    assert module.__name__ == "copies.search_analytics"
    for made in ("get_search_stats", "_usage_value", "SearchAnalytics", "AggregateBy", "StatsRow"):
        assert getattr(module, made).__module__ == "copies.search_analytics"


def test_two_copies_share_nothing(monkeypatch, client):
    one, other = execute(), execute()
    for name in NAMES[NAMES.index("_alias_source_file") :]:
        mine, theirs = getattr(one, name), getattr(other, name)
        if not isinstance(mine, (int, str, type(None))):
            assert mine is not theirs, name
    assert one.EvalPool.ALL != other.EvalPool.ALL
    client.run_search(RecordingTracker())
    engine = one._get_or_init()
    assert one._singleton is engine
    assert other._singleton is None
    monkeypatch.setattr(one, "_FUNC_KEY_MAP", {})
    assert len(other._FUNC_KEY_MAP) == 3


def test_each_copy_uses_its_own_vocabulary():
    copy = execute()
    tracker = RecordingTracker([evaluation(submitted=False)])
    engine = copy.SearchAnalytics(tracker, [pool()])
    assert engine._fetch_evaluations(eval_pool=search_analytics.EvalPool.SUBMITTED) != []
    assert engine._fetch_evaluations(eval_pool=copy.EvalPool.SUBMITTED) == []


def test_functions_of_a_copy_read_the_names_of_their_copy():
    one, other = execute(), execute()
    one._usage_value = lambda *args: "patched"
    record = evaluation()
    patched = one.SearchAnalytics(object(), [pool()])
    untouched = other.SearchAnalytics(object(), [pool()])
    assert patched._build_group_key(record, one.AggregateBy.NONE)[0] == frozenset({"patched"})
    assert untouched._build_group_key(record, other.AggregateBy.NONE)[0] == frozenset(
        {"sma", "rank"}
    )


def test_reloading_gives_the_same_working_module():
    """In a child: whether or not the body runs again, this process keeps its classes."""
    run_child("""
        import importlib
        import kestrune.search_analytics as search_analytics
        from support.parts import RecordingTracker, engine_over, evaluation
        names = list(vars(search_analytics))
        assert importlib.reload(search_analytics) is search_analytics
        assert list(vars(search_analytics)) == names
        assert search_analytics._singleton is None
        result = engine_over([evaluation()]).get_search_stats(min_sample_size=0)
        assert type(result) is search_analytics.SearchStatsResult
        assert [row.evaluation_count for row in result.rows] == [1]
    """)


def test_deleting_from_sys_modules_and_importing_again_gives_a_new_copy(monkeypatch, now):
    import kestrune

    monkeypatch.setattr(kestrune, "search_analytics", search_analytics)
    monkeypatch.setitem(sys.modules, "kestrune.search_analytics", search_analytics)
    del sys.modules["kestrune.search_analytics"]
    again = importlib.import_module("kestrune.search_analytics")
    assert again is not search_analytics
    assert own_names(again) == NAMES
    for module in (again, search_analytics):
        engine = module.SearchAnalytics(RecordingTracker([evaluation()]), [pool()])
        assert type(engine.get_search_velocity()) is module.SearchVelocityResult


@pytest.mark.parametrize("name", ["__name__", "__doc__", "__package__", "__loader__", "__spec__"])
def test_the_usual_module_attributes_are_there(name):
    assert hasattr(search_analytics, name)


def test_the_module_is_an_ordinary_module_object():
    assert type(search_analytics) is ModuleType
    search_analytics.note = 1
    del search_analytics.note
    with pytest.raises(AttributeError, match="has no attribute 'no_such_name'"):
        search_analytics.no_such_name  # noqa: B018
