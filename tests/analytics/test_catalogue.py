"""Eras and universes as the tracker tells them, and the dimensions in declaration order."""

from __future__ import annotations

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy
from support.environment import FakeAuthError, failing
from support.parts import RecordingTracker, engine_over

TRACKED = {"get_available_eras": "eras", "get_available_named_universes": "universes"}
EVERY_TRACKED = pytest.mark.parametrize(("name", "held"), TRACKED.items(), ids=TRACKED)


@EVERY_TRACKED
@pytest.mark.parametrize("answer", [["b", "a", "a"], [], None, [None, "a"], "text"], ids=repr)
def test_the_answer_of_the_tracker_is_handed_on_as_it_is(name, held, answer):
    assert getattr(engine_over([], **{held: answer}), name)() is answer


@EVERY_TRACKED
def test_the_tracker_is_asked_without_arguments_each_time(name, held):
    asked = []
    engine = engine_over([])
    setattr(engine._tracker, name, lambda *args, **kwargs: asked.append((args, kwargs)))
    getattr(engine, name)()
    getattr(engine, name)()
    assert asked == [((), {})] * 2
    assert engine._tracker.calls == []


@EVERY_TRACKED
def test_a_tracker_without_the_operation_is_an_attribute_error(name, held):
    engine = engine_over([])
    engine._tracker = object()
    with pytest.raises(AttributeError, match=f"'object' object has no attribute '{name}'"):
        getattr(engine, name)()


@EVERY_TRACKED
@pytest.mark.parametrize("error", [KeyError("mine"), KeyboardInterrupt()], ids=repr)
def test_errors_of_the_tracker_pass_unchanged(name, held, error):
    engine = engine_over([])
    setattr(engine._tracker, name, failing(error))
    with pytest.raises(type(error)) as caught:
        getattr(engine, name)()
    assert caught.value is error


def test_dimensions_are_listed_in_declaration_order():
    dimensions = engine_over([]).get_available_aggregations()
    assert dimensions == list(AggregateBy)
    assert type(dimensions) is list
    assert len(dimensions) == 10
    assert dimensions[0] is AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY
    assert dimensions[-1] is AggregateBy.NONE


def test_each_list_of_dimensions_is_new():
    engine = engine_over([])
    engine.get_available_aggregations().clear()
    assert len(engine.get_available_aggregations()) == 10


def test_dimensions_depend_on_nothing_of_the_engine():
    empty = search_analytics.SearchAnalytics.__new__(search_analytics.SearchAnalytics)
    assert empty.get_available_aggregations() == list(AggregateBy)
    assert search_analytics.SearchAnalytics.get_available_aggregations(None) == list(AggregateBy)


@EVERY_TRACKED
def test_module_functions_hand_on_the_trackers_own_object(client, name, held):
    answer = ["b", "a"]
    client.run_search(RecordingTracker([], **{held: answer}))
    assert getattr(search_analytics, name)() is answer


def test_module_level_dimensions_need_a_login_and_a_tracker(client):
    with pytest.raises(OSError, match="needs a configured data directory"):
        search_analytics.get_available_aggregations()
    client.run_search("tracker")
    assert search_analytics.get_available_aggregations() == list(AggregateBy)
    client.log_out()
    with pytest.raises(FakeAuthError):
        search_analytics.get_available_aggregations()
