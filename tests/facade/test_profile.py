"""Profilers hear of the functions as they hear of built-in ones."""

from __future__ import annotations

import cProfile
import pstats
import sys
import threading
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.parts import engine_over, evaluation, pool


def events_of(call, profile=None):
    """What a profiler hears of our functions while `call` runs: event and qualified name."""
    heard = []

    def note(frame, event, argument):
        if event.startswith("c_") and type(argument) is OURS:
            heard.append((event, argument.__qualname__))
            callers.append(frame.f_code.co_name)
        if profile is not None:
            profile(frame, event, argument)

    callers = []
    before = sys.getprofile()
    sys.setprofile(note)
    try:
        call()
    except Exception as error:
        heard.append(type(error).__name__)
    finally:
        sys.setprofile(before)
    assert set(callers) <= {"events_of", "<lambda>", "ask"}
    return heard


OURS = type(search_analytics.get_search_stats)


def test_calls_and_returns_are_told_with_the_function_itself():
    engine = engine_over([])
    assert events_of(lambda: engine.get_search_patterns()) == [
        ("c_call", "SearchAnalytics.get_search_patterns"),
        ("c_call", "SearchAnalytics._validate_eval_type"),
        ("c_return", "SearchAnalytics._validate_eval_type"),
        ("c_call", "SearchAnalytics._fetch_evaluations"),
        ("c_return", "SearchAnalytics._fetch_evaluations"),
        ("c_return", "SearchAnalytics.get_search_patterns"),
    ]


def test_an_error_is_told_and_passes():
    assert events_of(lambda: search_analytics._extract_raw_pools()) == [
        ("c_call", "_extract_raw_pools"),
        ("c_exception", "_extract_raw_pools"),
        "TypeError",
    ]


def test_a_module_function_and_its_method_are_told_apart(monkeypatch):
    engine = engine_over([], eras=["a"])
    monkeypatch.setattr(search_analytics, "_singleton", engine)
    monkeypatch.setattr(search_analytics, "_get_or_init", lambda: engine)
    heard = events_of(search_analytics.get_available_eras)
    assert [name for event, name in heard if event == "c_call"] == [
        "get_available_eras",
        "SearchAnalytics.get_available_eras",
    ]


@pytest.mark.parametrize("event", ["c_call", "c_return", "c_exception"])
def test_an_error_of_the_profiler_goes_before_the_answer(event):
    def fail(_, heard, argument):
        if heard == event and type(argument) is OURS:
            raise LookupError

    arguments = () if event == "c_exception" else (None,)
    heard = events_of(lambda: search_analytics._extract_raw_pools(*arguments), fail)
    assert heard[-1] == "LookupError"
    assert len(heard) < 5


def test_a_profiler_may_call_the_functions_unheard():
    def ask(*_):
        search_analytics._extract_raw_pools(None)

    heard = events_of(lambda: search_analytics._unwrap_era_config(None), ask)
    assert heard == [("c_call", "_unwrap_era_config"), ("c_return", "_unwrap_era_config")]


def test_a_profiler_may_end_itself_in_the_middle():
    def leave(_, __, argument):
        if type(argument) is OURS:
            sys.setprofile(None)

    heard = events_of(lambda: search_analytics._unwrap_era_config(None), leave)
    assert heard == [("c_call", "_unwrap_era_config")]


def test_a_call_may_begin_or_end_profiling():
    heard = []
    tracker = SimpleNamespace(
        get_available_eras=lambda: sys.setprofile(lambda _, event, arg: heard.append((event, arg)))
    )
    engine = search_analytics.SearchAnalytics(tracker, [pool()])
    try:
        engine.get_available_eras()
        tracker.get_available_eras = lambda: sys.setprofile(None)
        engine.get_available_eras()
    finally:
        sys.setprofile(None)
    ours = [event for event, argument in heard if type(argument) is OURS]
    assert ours == ["c_call"]


def test_threads_are_profiled_each_for_itself():
    heard = []

    def run():
        search_analytics._unwrap_era_config(None)

    threading.setprofile(
        lambda _, event, argument: heard.append(event) if type(argument) is OURS else None
    )
    try:
        thread = threading.Thread(target=run)
        thread.start()
        thread.join()
    finally:
        threading.setprofile(None)
    run()
    assert heard == ["c_call", "c_return"]


def test_answers_are_the_same_while_profiled():
    engine = engine_over([evaluation(), evaluation(sharpe=2)])
    expected = engine.get_search_stats(min_sample_size=0)
    found = []
    events_of(lambda: found.append(engine.get_search_stats(min_sample_size=0)))
    assert found == [expected]


@pytest.mark.skipif(sys.version_info >= (3, 12), reason="hears of built-in functions only")
def test_the_profiler_of_the_library_names_the_functions():
    engine = engine_over([evaluation()])
    profiler = cProfile.Profile()
    profiler.enable()
    for _ in range(3):
        engine.get_search_patterns()
    profiler.disable()
    counts = {name: calls for (_, _, name), (calls, *_) in pstats.Stats(profiler).stats.items()}
    assert counts[profiled("SearchAnalytics.get_search_patterns")] == 3
    assert counts[profiled("SearchAnalytics._fetch_evaluations")] == 3


def profiled(name):
    """How the library's profiler calls a built-in function."""
    return f"<built-in method kestrune.search_analytics.{name}>"
