"""The nine module-level functions: each forwards everything, by keyword, to the engine."""

from __future__ import annotations

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow
from support.environment import FakeAuthError, failing
from support.parts import (
    FILTERS,
    FIRST_FILTERS,
    POOL_FILTERS,
    RecordingTracker,
    engine_over,
    evaluation,
)

DIMENSION = AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY
NO_FILTER = dict.fromkeys(FILTERS)
DEFAULTS = {
    "get_search_stats": {
        **NO_FILTER,
        "aggregate_by": DIMENSION,
        "eval_pool": EvalPool.ALL,
        "time_windows": None,
        "pnl_column": None,
        "min_sample_size": 100,
        "sort_ascending": False,
    },
    "get_suggestions": {
        **NO_FILTER,
        "aggregate_by": DIMENSION,
        "pnl_column": None,
        "min_sample_size": 100,
        "top_n": 10,
    },
    "get_available_eras": {},
    "get_available_named_universes": {},
    "get_available_aggregations": {},
    "get_search_patterns": {**NO_FILTER, "eval_pool": EvalPool.ALL},
    "get_search_velocity": {**NO_FILTER, "windows": None},
    "get_yield_analysis": {
        **dict.fromkeys(FIRST_FILTERS),
        "recent_window_minutes": 360,
        **dict.fromkeys(POOL_FILTERS),
    },
    "get_correlation_patterns": {**NO_FILTER, "top_n": 20},
}
EVERY_FUNCTION = pytest.mark.parametrize("name", DEFAULTS)


class Switchboard:
    """An engine that answers every call with a new object and keeps what it was asked."""

    def __init__(self):
        self.calls = []
        self.answer = object()

    def __getattr__(self, name):
        def answer(*args, **kwargs):
            self.calls.append((name, args, kwargs))
            return self.answer

        return answer


@pytest.fixture
def engine(monkeypatch):
    switchboard = Switchboard()
    monkeypatch.setattr(search_analytics, "_get_or_init", lambda: switchboard)
    return switchboard


def only_call(engine):
    ((name, args, kwargs),) = engine.calls
    return name, args, list(kwargs.items())


@EVERY_FUNCTION
def test_defaults_are_forwarded_by_keyword_in_order(engine, name):
    assert getattr(search_analytics, name)() is engine.answer
    assert only_call(engine) == (name, (), list(DEFAULTS[name].items()))


@EVERY_FUNCTION
def test_keywords_are_forwarded_as_given(engine, name):
    given = {key: object() for key in reversed(DEFAULTS[name])}
    getattr(search_analytics, name)(**given)
    assert only_call(engine) == (name, (), [(key, given[key]) for key in DEFAULTS[name]])


@EVERY_FUNCTION
def test_positional_arguments_follow_the_signature(engine, name):
    given = [object() for _ in DEFAULTS[name]]
    getattr(search_analytics, name)(*given)
    assert only_call(engine) == (name, (), list(zip(DEFAULTS[name], given, strict=True)))


@EVERY_FUNCTION
def test_an_explicit_none_reaches_the_engine(engine, name):
    getattr(search_analytics, name)(*[None for _ in DEFAULTS[name]])
    assert only_call(engine) == (name, (), [(key, None) for key in DEFAULTS[name]])


@EVERY_FUNCTION
def test_errors_of_the_engine_pass_unchanged(monkeypatch, name):
    error = ArithmeticError("mine")

    class Broken:
        def __getattr__(self, attribute):
            return failing(error)

    monkeypatch.setattr(search_analytics, "_get_or_init", Broken)
    with pytest.raises(ArithmeticError) as caught:
        getattr(search_analytics, name)()
    assert caught.value is error


@EVERY_FUNCTION
def test_errors_of_the_resolution_pass_unchanged(monkeypatch, name):
    error = OSError("mine")
    monkeypatch.setattr(search_analytics, "_get_or_init", failing(error))
    with pytest.raises(OSError, match="mine") as caught:
        getattr(search_analytics, name)()
    assert caught.value is error


@EVERY_FUNCTION
def test_an_engine_without_the_method_is_an_attribute_error(monkeypatch, name):
    class Empty:
        pass

    monkeypatch.setattr(search_analytics, "_get_or_init", Empty)
    with pytest.raises(AttributeError, match=f"'Empty' object has no attribute '{name}'"):
        getattr(search_analytics, name)()


@EVERY_FUNCTION
def test_nothing_works_without_a_login(client, name):
    client.log_out()
    with pytest.raises(FakeAuthError) as caught:
        getattr(search_analytics, name)()
    assert str(caught.value) == "No wallet initialized. Call register() or login() first."
    assert search_analytics._singleton is None


@EVERY_FUNCTION
def test_the_first_call_needs_a_tracker(client, name):
    with pytest.raises(OSError, match="Search analytics needs a configured data directory"):
        getattr(search_analytics, name)()
    assert search_analytics._singleton is None


@EVERY_FUNCTION
def test_a_logged_in_caller_gets_the_engines_answer(client, now, name):
    tracker = RecordingTracker([evaluation()], eras=["era-1"], universes=["all"])
    client.run_search(tracker)
    through_the_module = getattr(search_analytics, name)()
    engine = search_analytics._singleton
    assert engine._tracker is tracker
    assert through_the_module == getattr(engine, name)()


@EVERY_FUNCTION
def test_engine_methods_have_the_same_parameters(name):
    method = getattr(search_analytics.SearchAnalytics, name)
    function = getattr(search_analytics, name)
    assert method.__defaults__ == function.__defaults__
    parameters = method.__code__.co_varnames[: method.__code__.co_argcount]
    assert parameters == ("self", *DEFAULTS[name])


@EVERY_FUNCTION
def test_subclass_and_instance_overrides_are_reached(monkeypatch, name):
    class Mine(search_analytics.SearchAnalytics):
        pass

    setattr(Mine, name, lambda self, **kwargs: ("subclass", list(kwargs)))
    engine = engine_over([])
    engine.__class__ = Mine
    monkeypatch.setattr(search_analytics, "_get_or_init", lambda: engine)
    assert getattr(search_analytics, name)() == ("subclass", list(DEFAULTS[name]))
    setattr(engine, name, lambda **kwargs: ("instance", list(kwargs)))
    assert getattr(search_analytics, name)() == ("instance", list(DEFAULTS[name]))


def test_yield_analysis_takes_its_window_as_ninth_positional(engine):
    search_analytics.get_yield_analysis(None, None, None, None, None, None, None, None, 60)
    assert engine.calls[0][2]["recent_window_minutes"] == 60
    assert engine.calls[0][2]["strategy_pool_id"] is None


def test_aggregations_need_no_data_yet_a_login_and_a_tracker(client):
    client.run_search(object())
    assert search_analytics.get_available_aggregations() == list(AggregateBy)
    client.log_out()
    with pytest.raises(FakeAuthError):
        search_analytics.get_available_aggregations()


def test_default_enumeration_members_are_bound_when_the_module_body_runs(monkeypatch, engine):
    monkeypatch.setattr(search_analytics, "EvalPool", None)
    monkeypatch.setattr(search_analytics, "AggregateBy", None)
    search_analytics.get_search_stats()
    assert engine.calls[0][2]["eval_pool"] is EvalPool.ALL
    assert engine.calls[0][2]["aggregate_by"] is DIMENSION


def test_search_stats_end_to_end(client, now):
    tracker = RecordingTracker([evaluation(), evaluation(passed_thresholds=False)])
    client.run_search(tracker)
    result = search_analytics.get_search_stats(era_id="era-1", min_sample_size=2)
    assert [row.evaluation_count for row in result.rows] == [2]
    assert [window.window for window in result.rows[0].windows] == list(TimeWindow)
    assert result.rows[0].windows[0].submittable_yield == {"main": 0.5}
    assert result.filters_applied == {"era_id": "era-1"}
