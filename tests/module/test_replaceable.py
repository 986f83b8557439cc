"""Whatever Python code could replace in a module, a caller may replace: the analytics."""

from __future__ import annotations

import builtins
import math
import time
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow
from support.parts import NOW, engine_over, evaluation, function_item

OPERATIONS = {
    "get_search_stats": {"min_sample_size": 0},
    "get_search_patterns": {},
    "get_search_velocity": {},
    "get_yield_analysis": {},
    "get_correlation_patterns": {},
}
EVERY_OPERATION = pytest.mark.parametrize(("name", "arguments"), OPERATIONS.items(), ids=OPERATIONS)


class ReplacedError(Exception):
    """Raised by a replacement, to show that it was called."""


def overriding(*args, **kwargs):
    raise ReplacedError


@EVERY_OPERATION
@pytest.mark.parametrize("hook", ["_validate_eval_type", "_fetch_evaluations"])
@pytest.mark.parametrize("place", ["instance", "subclass", "class"])
def test_operations_reach_their_steps_through_the_instance(
    monkeypatch, now, name, arguments, hook, place
):
    engine = engine_over([evaluation()])
    if place == "instance":
        setattr(engine, hook, overriding)
    elif place == "subclass":
        engine.__class__ = type("Mine", (search_analytics.SearchAnalytics,), {hook: overriding})
    else:
        monkeypatch.setattr(search_analytics.SearchAnalytics, hook, overriding)
    with pytest.raises(ReplacedError):
        getattr(engine, name)(**arguments)


@pytest.mark.parametrize("name", ["_function_items", "_feature_items", "_usage_value"])
def test_group_keys_use_the_replaced_helper(monkeypatch, name):
    monkeypatch.setattr(search_analytics, name, overriding)
    with pytest.raises(ReplacedError):
        engine_over([])._build_group_key(evaluation(), AggregateBy.FUNCTION_FEATURE)


@pytest.mark.parametrize("name", ["_function_items", "_feature_items", "_usage_value"])
def test_statistics_use_the_replaced_helper(monkeypatch, now, name):
    monkeypatch.setattr(search_analytics, name, overriding)
    with pytest.raises(ReplacedError):
        engine_over([evaluation()]).get_search_stats()


@pytest.mark.parametrize(
    ("name", "filters"),
    [
        ("_function_items", {"function_family": "x"}),
        ("_feature_items", {"feature_subfamily": "x"}),
        ("_usage_value", {"function_subfamily": "x"}),
    ],
    ids=["_function_items", "_feature_items", "_usage_value"],
)
def test_usage_filters_use_the_replaced_helper(monkeypatch, name, filters):
    monkeypatch.setattr(search_analytics, name, overriding)
    with pytest.raises(ReplacedError):
        engine_over([evaluation()])._fetch_evaluations(**filters)


@pytest.mark.parametrize("operation", ["get_search_patterns", "get_correlation_patterns"])
@pytest.mark.parametrize("name", ["_function_items", "_usage_value"])
def test_patterns_use_the_replaced_helper(monkeypatch, operation, name):
    monkeypatch.setattr(search_analytics, name, overriding)
    with pytest.raises(ReplacedError):
        getattr(engine_over([evaluation()]), operation)()


@pytest.mark.parametrize("side", ["_function_items", "_feature_items"])
def test_item_helpers_use_the_replaced_usage_items(monkeypatch, side):
    asked = []
    monkeypatch.setattr(search_analytics, "_usage_items", lambda *args: asked.append(args) or "x")
    record = evaluation()
    assert getattr(search_analytics, side)(record) == "x"
    kind = side.split("_")[1]
    assert asked == [(record, f"{kind}_metadata", f"{kind}s", f"{kind}_name")]


def test_a_replaced_usage_value_names_the_groups(monkeypatch, now):
    monkeypatch.setattr(search_analytics, "_usage_value", lambda item, key, name_key: key)
    result = engine_over([evaluation()]).get_search_stats(min_sample_size=0)
    assert result.rows[0].group_key == (
        frozenset({"function_subfamily"}),
        frozenset({"feature_subfamily"}),
    )


@pytest.mark.parametrize("place", ["instance", "subclass", "class"])
def test_a_replaced_group_key_decides_the_groups(monkeypatch, now, place):
    engine = engine_over([evaluation(tree_depth=depth) for depth in (1, 2, 1)])
    asked = []

    def by_depth(*args):
        asked.append(args[-1])
        return args[-2].tree_depth

    if place == "instance":
        engine._build_group_key = by_depth
    elif place == "subclass":
        engine.__class__ = type(
            "Mine", (search_analytics.SearchAnalytics,), {"_build_group_key": by_depth}
        )
    else:
        monkeypatch.setattr(search_analytics.SearchAnalytics, "_build_group_key", by_depth)
    rows = engine.get_search_stats(min_sample_size=0, aggregate_by="anything").rows
    assert [(row.group_key, row.evaluation_count) for row in rows] == [(1, 2), (2, 1)]
    assert asked == ["anything"] * 3


@pytest.mark.parametrize("place", ["instance", "subclass", "class"])
def test_suggestions_call_the_replaced_statistics(monkeypatch, place):
    engine = engine_over([])
    asked = []

    def statistics(*args, **kwargs):
        asked.append(kwargs)
        return SimpleNamespace(rows=[])

    if place == "instance":
        engine.get_search_stats = statistics
    elif place == "subclass":
        engine.__class__ = type(
            "Mine", (search_analytics.SearchAnalytics,), {"get_search_stats": statistics}
        )
    else:
        monkeypatch.setattr(search_analytics.SearchAnalytics, "get_search_stats", statistics)
    engine.get_suggestions()
    assert asked[0]["time_windows"] == [TimeWindow.LIFETIME]


@pytest.mark.parametrize(
    ("name", "level"),
    [("_FUNC_KEY_MAP", "function_family"), ("_FEAT_KEY_MAP", "feature_family")],
    ids=["_FUNC_KEY_MAP", "_FEAT_KEY_MAP"],
)
def test_key_maps_are_read_when_an_operation_starts(monkeypatch, now, name, level):
    side = name == "_FEAT_KEY_MAP"
    by = AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY
    record = evaluation(
        function_metadata=[{"mine": "M", "function_name": "f", "function_family": "F"}],
        feature_metadata=[{"mine": "M", "feature_name": "g", "feature_family": "G"}],
    )
    engine = engine_over([record])
    monkeypatch.setitem(getattr(search_analytics, name), level, "mine")
    assert engine._build_group_key(record, by)[side] == frozenset({"M"})
    monkeypatch.setattr(search_analytics, name, {})
    with pytest.raises(KeyError) as caught:
        engine.get_search_stats(aggregate_by=by)
    assert caught.value.args == (level,)


def test_the_history_limit_is_read_at_each_call(monkeypatch):
    engine = engine_over([])
    for limit in (7, None):
        monkeypatch.setattr(search_analytics, "_DEFAULT_ANALYTICS_HISTORY_LIMIT", limit)
        engine.get_search_patterns()
        assert engine._tracker.calls[-1]["limit"] is limit


def test_a_deleted_constant_is_a_missing_name(monkeypatch):
    monkeypatch.delattr(search_analytics, "_DEFAULT_ANALYTICS_HISTORY_LIMIT")
    with pytest.raises(NameError) as caught:
        engine_over([]).get_search_patterns()
    assert str(caught.value) == "name '_DEFAULT_ANALYTICS_HISTORY_LIMIT' is not defined"
    assert caught.value.name == "_DEFAULT_ANALYTICS_HISTORY_LIMIT"


CLOCK_READERS = ["get_search_stats", "get_search_velocity", "get_yield_analysis"]


@pytest.mark.parametrize("name", CLOCK_READERS)
@pytest.mark.parametrize("place", ["time module of the module", "time.time itself"])
def test_the_clock_is_read_through_the_replaced_name(monkeypatch, name, place):
    engine = engine_over([evaluation()])
    with monkeypatch.context() as patch:
        if place == "time.time itself":
            patch.setattr(time, "time", overriding)
        else:
            patch.setattr(search_analytics, "time", SimpleNamespace(time=overriding))
        with pytest.raises(ReplacedError):
            getattr(engine, name)()


@pytest.mark.parametrize("name", CLOCK_READERS)
def test_the_clock_is_read_once(monkeypatch, name):
    reads = []
    clock = SimpleNamespace(time=lambda: reads.append(1) or NOW)
    monkeypatch.setattr(search_analytics, "time", clock)
    getattr(engine_over([evaluation()] * 3), name)()
    assert len(reads) == 1


@pytest.mark.parametrize("name", CLOCK_READERS)
def test_the_clock_is_not_read_without_evaluations(monkeypatch, name):
    monkeypatch.setattr(search_analytics, "time", None)
    if name == "get_search_velocity":  # which reports its empty windows
        with pytest.raises(AttributeError, match="'NoneType' object has no attribute 'time'"):
            getattr(engine_over([]), name)()
    else:
        getattr(engine_over([]), name)()


@pytest.mark.parametrize("place", ["math module of the module", "math.isfinite itself"])
def test_finiteness_is_asked_of_the_replaced_function(monkeypatch, place):
    if place == "math.isfinite itself":
        monkeypatch.setattr(math, "isfinite", overriding)
    else:
        monkeypatch.setattr(search_analytics, "math", SimpleNamespace(isfinite=overriding))
    with pytest.raises(ReplacedError):
        search_analytics._pnl_mi_tamper_delta(1.0, 2.0)


RECORDS_OF = {
    "WindowStats": "get_search_stats",
    "StatsRow": "get_search_stats",
    "SearchStatsResult": "get_search_stats",
    "SuggestionsResult": "get_suggestions",
    "DepthBucket": "get_search_patterns",
    "FamilyYield": "get_search_patterns",
    "SearchPatternsResult": "get_search_patterns",
    "VelocityWindow": "get_search_velocity",
    "SearchVelocityResult": "get_search_velocity",
    "YieldAnalysisResult": "get_yield_analysis",
    "FunctionPairPattern": "get_correlation_patterns",
    "CorrelationPatternsResult": "get_correlation_patterns",
}


@pytest.mark.parametrize(("record", "operation"), RECORDS_OF.items(), ids=RECORDS_OF)
def test_replaced_record_classes_are_built_with_keywords_in_field_order(
    monkeypatch, now, record, operation
):
    original = getattr(search_analytics, record)
    built = []

    def build(*args, **kwargs):
        built.append((args, list(kwargs)))
        return original(**kwargs)

    monkeypatch.setattr(search_analytics, record, build)
    arguments = (
        {"min_sample_size": 0} if operation in ("get_search_stats", "get_suggestions") else {}
    )
    getattr(engine_over([evaluation()]), operation)(**arguments)
    assert built
    for args, keywords in built:
        assert args == ()
        assert keywords == list(original.__dataclass_fields__)


@pytest.mark.parametrize(("record", "operation"), RECORDS_OF.items(), ids=RECORDS_OF)
def test_a_patched_record_constructor_runs(monkeypatch, now, record, operation):
    monkeypatch.setattr(getattr(search_analytics, record), "__init__", overriding)
    arguments = (
        {"min_sample_size": 0} if operation in ("get_search_stats", "get_suggestions") else {}
    )
    with pytest.raises(ReplacedError):
        getattr(engine_over([evaluation()]), operation)(**arguments)


def test_empty_results_are_built_by_the_replaced_class_too(monkeypatch):
    for record, operation in {
        "SearchStatsResult": "get_search_stats",
        "SearchPatternsResult": "get_search_patterns",
        "YieldAnalysisResult": "get_yield_analysis",
        "CorrelationPatternsResult": "get_correlation_patterns",
    }.items():
        monkeypatch.setattr(search_analytics, record, overriding)
        with pytest.raises(ReplacedError):
            getattr(engine_over([]), operation)()


def test_a_replaced_dimension_enumeration_is_listed(monkeypatch):
    monkeypatch.setattr(search_analytics, "AggregateBy", "abc")
    assert engine_over([]).get_available_aggregations() == ["a", "b", "c"]


def test_a_replaced_pool_enumeration_is_compared_with(monkeypatch):
    monkeypatch.setattr(
        search_analytics, "EvalPool", SimpleNamespace(PASSED="p", SUBMITTED="s", ALL="a")
    )
    engine = engine_over([evaluation(submitted=False)])
    assert engine._fetch_evaluations(eval_pool="s") == []
    engine._fetch_evaluations(eval_pool="p")
    assert engine._tracker.calls[-1]["passed_only"] is True
    assert engine._fetch_evaluations(eval_pool=EvalPool.SUBMITTED) == engine._tracker.evals


def test_a_replaced_window_enumeration_gives_the_default_windows(monkeypatch, now):
    windows = SimpleNamespace(LIFETIME="l", ERA="e", LAST_WEEK="w", LAST_24H="d")
    monkeypatch.setattr(search_analytics, "TimeWindow", windows)
    result = engine_over([evaluation()]).get_search_stats(min_sample_size=0)
    assert [window.window for window in result.rows[0].windows] == ["l", "e", "w", "d"]
    assert [window.evaluation_count for window in result.rows[0].windows] == [1, 1, 1, 1]


def test_yield_analysis_uses_the_replaced_probes(monkeypatch, now):
    asked = []

    class Connection:
        def execute(self, sql, parameters):
            asked.append((sql.split(), parameters))
            return SimpleNamespace(fetchone=lambda: ("useful", None, None, None))

    monkeypatch.setattr(
        search_analytics,
        "_submission_status_table_and_signal_column",
        lambda eval_type: ("my_table", "my_column"),
    )
    monkeypatch.setattr(search_analytics, "_tracker_table_exists", lambda conn, table: table)
    monkeypatch.setattr(search_analytics, "_pnl_mi_tamper_delta", lambda agent, server: "much")
    result = engine_over([evaluation()], conn=Connection()).get_yield_analysis()
    (words, parameters) = asked[0]
    assert "my_column" in words
    assert "my_table" in words
    assert parameters == ("e1",)
    assert result.usefulness_rationale[0]["agent_server_is_pnl_mi_delta"] == "much"
    assert result.tamper_candidates[0]["tamper_reasons"] == ["agent_server_is_pnl_mi_mismatch"]


def test_restoring_an_original_restores_the_answer(monkeypatch, now):
    engine = engine_over([evaluation(function_metadata=[function_item("f", "F", "S")])])
    before = engine.get_search_stats(min_sample_size=0)
    with monkeypatch.context() as patch:
        patch.setattr(search_analytics, "_usage_value", lambda *args: "x")
        assert engine.get_search_stats(min_sample_size=0) != before
    assert engine.get_search_stats(min_sample_size=0) == before


def test_engines_of_other_trackers_are_not_affected_by_an_instance_override(now):
    patched, plain = engine_over([evaluation()]), engine_over([evaluation()])
    patched._fetch_evaluations = lambda **kwargs: []
    assert patched.get_search_patterns().total_evaluations == 0
    assert plain.get_search_patterns().total_evaluations == 1


def test_a_name_that_is_gone_is_looked_for_among_the_builtins(monkeypatch, now):
    monkeypatch.setattr(builtins, "_usage_value", overriding, raising=False)
    monkeypatch.delattr(search_analytics, "_usage_value")
    with pytest.raises(ReplacedError):
        engine_over([evaluation()]).get_search_stats(min_sample_size=0)


def test_functions_keep_the_builtins_that_they_were_made_with(monkeypatch):
    function = search_analytics.get_search_stats
    assert function.__builtins__ is vars(builtins)
    monkeypatch.setitem(vars(search_analytics), "__builtins__", {"len": len})
    assert function.__builtins__ is vars(builtins)
