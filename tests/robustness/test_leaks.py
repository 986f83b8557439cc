"""Nothing is left behind: each public call and each error path, repeated until blocks settle."""

from __future__ import annotations

import importlib.util
import sqlite3
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, SearchAnalytics, TimeWindow
from support.environment import failing, raw_pool, session
from support.growth import leaks_blocks, reference_growth
from support.operations import WALKS, walk
from support.parts import NOW, RecordingTracker, engine_over, evaluation, function_item, pool, using

pytestmark = [pytest.mark.leaks, pytest.mark.usefixtures("now")]

ITEMS = [function_item("f", "F", "S"), function_item("g", None, ""), "bare"]
RECORDS = [
    evaluation(function_metadata=ITEMS),
    evaluation(per_column_stats={"gross_returns_sharpe": 2.5}, timestamp=0, submitted=True),
    using("a", "b", "c", passed_thresholds=False, failure_reason="Tampering", tree_depth=1),
    evaluation(sharpe=10**30, returns=True, eval_type="strategy", agent_is_pnl_mi=1, is_pnl_mi=2),
]
ENGINE = engine_over(RECORDS, pool("a", 0.2), pool("b", 0.9), eras=["e"], universes=["u"])
ENGINE._tracker.get_evaluation_history = lambda **filters: RECORDS
FILTERED = dict.fromkeys(("function_family", "feature_family"), "F")

ANSWERS = {
    **{name: (lambda name=name: walk(ENGINE, name)) for name in WALKS},
    "stats by names": lambda: walk(ENGINE, "get_search_stats", aggregate_by=AggregateBy.NONE),
    "stats of one window": lambda: walk(ENGINE, "get_search_stats", time_windows=[TimeWindow.ERA]),
    "stats with filters": lambda: walk(ENGINE, "get_search_stats", era_id="x", **FILTERED),
    "stats dropped": lambda: ENGINE.get_search_stats(),
    "stats by position": lambda: ENGINE.get_search_stats(*[None] * 11),
    "velocity windows": lambda: ENGINE.get_search_velocity(windows=[1, 0.5, 10**6]),
    "eras": lambda: ENGINE.get_available_eras(),
    "universes": lambda: ENGINE.get_available_named_universes(),
    "aggregations": lambda: ENGINE.get_available_aggregations(),
    "submitted": lambda: ENGINE._fetch_evaluations(eval_pool=EvalPool.SUBMITTED),
    "family": lambda: ENGINE._fetch_evaluations(**FILTERED),
    "group key": lambda: ENGINE._build_group_key(RECORDS[0], AggregateBy.FUNCTION_FEATURE),
    "statistic": lambda: ENGINE._get_stat(RECORDS[1], None, "sharpe"),
    "week": lambda: ENGINE._filter_by_time_window(RECORDS, TimeWindow.LAST_WEEK, None, NOW),
    "evaluation type": lambda: ENGINE._validate_eval_type("signal"),
    "engine": lambda: SearchAnalytics(ENGINE._tracker, [pool()]),
    "tamper": lambda: search_analytics._pnl_mi_tamper_delta("1.5", 10**20),
    "status table": lambda: search_analytics._submission_status_table_and_signal_column("signal"),
    "item": lambda: search_analytics._get_attr_or_item({"a": 1}, "b", ()),
    "attribute": lambda: search_analytics._get_attr_or_item(object(), "b", ()),
    "bare names": lambda: search_analytics._function_items(RECORDS[2]),
    "features": lambda: search_analytics._feature_items(object()),
    "usage value": lambda: search_analytics._usage_value(5, "a", "a"),
    "pools": lambda: search_analytics._resolve_pool_configs(
        {"era": {"signal_pools": [raw_pool()]}}
    ),
    "source alias": lambda: search_analytics._alias_source_file(),
    "default row": lambda: search_analytics.StatsRow(),
    "bound method": lambda: ENGINE.get_search_stats,
    "function attributes": lambda: [
        getattr(search_analytics.get_search_stats, name)
        for name in ("__code__", "__defaults__", "__annotations__", "__dict__", "__doc__")
    ],
    "function assignment": lambda: setattr(
        search_analytics._usage_value, "__defaults__", search_analytics._usage_value.__defaults__
    ),
}

RAISING_RECORD = type("Record", (), {"__getattr__": failing(KeyError)})()


def over(record, name="get_search_stats", **arguments):
    return walk(engine_over([RECORDS[0], record]), name, **arguments)


class Raising(dict):
    """A usage item that raises when it is asked."""

    get = failing(LookupError)


def without(*names):
    """A record that lacks these attributes."""
    return SimpleNamespace(**{k: v for k, v in vars(RECORDS[0]).items() if k not in names})


ERRORS = {
    **{
        f"{name}: {what}": (lambda name=name, record=record: over(record, name))
        for name in WALKS
        for what, record in {
            "bare record": object(),
            "raising record": RAISING_RECORD,
            "no time": without("timestamp"),
            "no mark": without("passed_thresholds"),
            "None time": evaluation(timestamp=None, sharpe=None, tree_depth=None),
            "raising item": evaluation(function_metadata=[Raising()]),
            "unhashable name": evaluation(function_metadata=[function_item([])]),
            "mixed names": using("a", 5),
            "numbers": evaluation(function_metadata=5),
            "no truth": evaluation(
                passed_thresholds=type("T", (), {"__bool__": failing(OSError)})()
            ),
        }.items()
    },
    "history None": lambda: engine_over(None).get_search_patterns(),
    "history number": lambda: engine_over(5)._fetch_evaluations(**FILTERED),
    "evaluation type": lambda: ENGINE.get_search_stats(eval_type="x"),
    "sample size": lambda: ENGINE.get_search_stats(min_sample_size=-1),
    "sample size text": lambda: ENGINE.get_search_stats(min_sample_size="x"),
    "no windows": lambda: ENGINE.get_search_stats(time_windows=[]),
    "twice a window": lambda: ENGINE.get_search_stats(time_windows=[1, 1]),
    "unhashable window": lambda: ENGINE.get_search_stats(time_windows=[[]]),
    "column": lambda: ENGINE.get_search_stats(pnl_column=5),
    "dimension": lambda: ENGINE.get_search_stats(aggregate_by=EvalPool.PASSED),
    "length": lambda: ENGINE.get_correlation_patterns(top_n=0),
    "length no int": lambda: ENGINE.get_correlation_patterns(top_n=1.5),
    "suggestions no int": lambda: walk(ENGINE, "get_suggestions", top_n=1.5),
    "velocity zero": lambda: ENGINE.get_search_velocity(windows=[1, 0]),
    "velocity huge": lambda: ENGINE.get_search_velocity(windows=[10**400]),
    "yield zero": lambda: ENGINE.get_yield_analysis(recent_window_minutes=0),
    "engine None": lambda: SearchAnalytics(None, []),
    "engine pools": lambda: SearchAnalytics(1, [pool("a", -1)]),
    "tamper overflow": lambda: search_analytics._pnl_mi_tamper_delta(10**400, 1),
    "tamper text": lambda: search_analytics._pnl_mi_tamper_delta("x", 1),
    "no pools": lambda: search_analytics._resolve_pool_configs(None),
    "empty pools": lambda: search_analytics._resolve_pool_configs({"signal_pools": []}),
    "pool name": lambda: search_analytics._normalize_pool_config(raw_pool(None), 3),
    "pool number": lambda: search_analytics._normalize_pool_config(raw_pool("a", True), 3),
    "keyword": lambda: ENGINE.get_search_stats(nothing=1),
    "twice": lambda: ENGINE.get_search_stats(None, era_id=1),
    "too many": lambda: search_analytics.get_available_eras(1, 2, 3),
    "missing": lambda: search_analytics._usage_items(1),
    "keyword number": lambda: search_analytics._usage_value(**{1: 2}),
    "assignment": lambda: setattr(search_analytics._usage_value, "__name__", 5),
    "deletion": lambda: delattr(search_analytics._usage_value, "__globals__"),
}

ENVIRONMENT = {
    "engine built": lambda client: client.run_search("tracker"),
    "no tracker": lambda client: None,
    "no login": lambda client: client.log_out(),
    "failing token": lambda client: setattr(
        client.onboarding, "_auth_manager", SimpleNamespace(get_token=failing(OSError))
    ),
    "empty token": lambda client: setattr(client.onboarding, "_auth_manager", session("")),
    "no onboarding": lambda client: client.block("agent_onboarding"),
    "no auth": lambda client: client.block("auth"),
    "no runtime": lambda client: client.block("_runtime"),
    "failing runtime": lambda client: setattr(
        client.runtime_module, "get_runtime", failing(OSError)
    ),
    "failing bootstrap": lambda client: setattr(
        client.onboarding, "ensure_runtime_bootstrapped", failing(OSError)
    ),
    "no directory": lambda client: client.onboarding._config.update(data_dir="/no/such"),
    "directory": lambda client: client.onboarding._config.update(data_dir="/"),
    "no tracking": lambda client: (
        client.onboarding._config.update(data_dir="/"),
        client.block("search_tracking"),
    ),
    "handles None": lambda client: setattr(client.templates, "_active_handles", None),
    "empty pools": lambda client: (
        client.run_search(1),
        setattr(client.onboarding, "_config", {"signal_pools": []}),
    ),
}


def passed():
    """Objects that the calls are given, read, or go through: none may gain or lose a reference."""
    return [
        *RECORDS,
        *ITEMS,
        *(RECORDS, ITEMS, ENGINE, ENGINE._tracker, ENGINE._pool_configs),
        *ENGINE._pool_configs,
        *(AggregateBy.NONE, EvalPool.ALL, TimeWindow.ERA, TimeWindow.LIFETIME),
        *(search_analytics.StatsRow, search_analytics.SearchAnalytics, search_analytics),
        *(search_analytics.get_search_stats, search_analytics._usage_value),
        RAISING_RECORD,
    ]


@pytest.mark.parametrize("call", ANSWERS.values(), ids=ANSWERS)
def test_an_answer_leaves_nothing_behind(call):
    call()  # an answer, not an error
    assert not leaks_blocks(call)
    assert not any(reference_growth(call, passed()))


@pytest.mark.parametrize("call", ERRORS.values(), ids=ERRORS)
def test_an_error_leaves_nothing_behind(call):
    assert not leaks_blocks(call)
    assert not any(reference_growth(call, passed()))


@pytest.mark.parametrize("prepare", ENVIRONMENT.values(), ids=ENVIRONMENT)
def test_a_resolution_leaves_nothing_behind(client, prepare):
    def call():
        search_analytics._singleton = None
        search_analytics.get_available_aggregations()

    prepare(client)
    assert not leaks_blocks(call)


GENERATORS = {
    "walked": lambda candidates: list(candidates),
    "started": lambda candidates: next(candidates),
    "fresh": lambda candidates: None,
    "closed": lambda candidates: (next(candidates), candidates.close()),
    "thrown into": lambda candidates: candidates.throw(KeyError("x")),
    "sent to": lambda candidates: candidates.send(5),
}


@pytest.mark.parametrize("use", GENERATORS.values(), ids=GENERATORS)
def test_a_generator_leaves_nothing_behind(use):
    config = {"era_config": {"era_config": {}}, "era": SimpleNamespace(to_dict=dict)}

    def call():
        use(search_analytics._candidate_era_configs(config, ENGINE, ENGINE))

    assert not leaks_blocks(call)
    assert reference_growth(call, [config, ENGINE]) == [0, 0]


def test_a_status_query_leaves_nothing_behind():
    with sqlite3.connect(":memory:") as connection:
        connection.execute(
            "CREATE TABLE signal_submission_status "
            "(status_id, eval_id, status, useful_flag, rejection_reason, signal_pool_id)"
        )
        connection.execute(
            "INSERT INTO signal_submission_status VALUES (1, 'e1', 'x', 1, 'r', 'p')"
        )
        engine = engine_over(RECORDS, conn=connection)
        engine._tracker = RecordingTracker(RECORDS, connection)

        def call():
            engine._tracker.calls.clear()
            engine.get_yield_analysis()

        assert not leaks_blocks(call)
    connection.close()
    assert not leaks_blocks(call)  # now it fails


def test_wide_groups_leave_nothing_behind():
    evals = [using(f"name {number}", "shared") for number in range(300)]
    engine = engine_over(evals)
    for name in ("get_search_stats", "get_search_patterns", "get_correlation_patterns"):

        def call(name=name):
            engine._tracker.calls.clear()
            walk(engine, name)

        assert not leaks_blocks(call)


def test_loading_a_copy_of_the_module_leaves_nothing_behind():
    def load():
        spec = importlib.util.spec_from_file_location(
            "kestrune.search_analytics", search_analytics.__spec__.origin
        )
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)

    # A whole module is some thousand blocks; a block or two of the interpreter's own may stay.
    assert not leaks_blocks(load, repetitions=6, allowed=20)


def test_the_counters_notice_what_is_left_behind():
    kept, passed = [], object()
    assert leaks_blocks(lambda: kept.append(object()))
    assert reference_growth(lambda: kept.append(passed), [passed]) != [0]
    assert not leaks_blocks(lambda: [object()])
