"""Where the module admits to differ from one written in Python: these differences, and no more."""

from __future__ import annotations

import cProfile
import importlib
import inspect
import pstats
import signal
import sys
import types
import warnings
from enum import Enum
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from model import search_analytics_model as model
from support.interpreter import VERSIONS_DICTIONARIES
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation, pool


def refused(*_: object, **__: object) -> None:
    """Stand in for what must not be called."""
    raise AssertionError("called")


@pytest.mark.parametrize("name", WALKS)
def test_built_in_functions_set_in_the_namespace_are_not_called(name, monkeypatch):
    expected = walk(engine_over([evaluation()]), name)
    for function in ("len", "sorted", "list", "set", "isinstance", "getattr", "sum", "max"):
        monkeypatch.setattr(search_analytics, function, refused, raising=False)
    assert walk(engine_over([evaluation()]), name) == expected


def test_a_reload_keeps_replacements_and_the_shared_engine(monkeypatch):
    monkeypatch.setattr(search_analytics, "_DEFAULT_ANALYTICS_HISTORY_LIMIT", 7)
    monkeypatch.setattr(search_analytics, "_singleton", "an engine")
    assert importlib.reload(search_analytics) is search_analytics
    assert search_analytics._DEFAULT_ANALYTICS_HISTORY_LIMIT == 7
    assert search_analytics._singleton == "an engine"


def history_seen_by(look):
    """Return what `look` finds while a tracker that calls it is asked for its history."""
    seen = []
    tracker = SimpleNamespace(get_evaluation_history=lambda **_: seen.append(look()) or [])
    pools = [SimpleNamespace(name="core", is_correlation_threshold=0.5)]
    search_analytics.SearchAnalytics(tracker, pools).get_search_patterns()
    return seen[0]


def test_functions_have_no_frames():
    frames = history_seen_by(lambda: [frame.function for frame in inspect.stack(0)])
    assert frames[:3] == ["<lambda>", "<lambda>", "history_seen_by"]


def entries_of(call):
    """The entries of the traceback of what `call` raises: name, line, and the frame behind it."""
    with pytest.raises(Exception) as caught:  # noqa: PT011
        call()
    frames = [entry.frame.raw for entry in caught.traceback]
    return [(frame.f_code.co_name, frame.f_lineno, frame) for frame in frames]


def test_entries_of_tracebacks_stand_on_one_line_and_show_no_variables():
    first = entries_of(lambda: engine_over([evaluation(sharpe="x")]).get_search_stats())
    second = entries_of(lambda: engine_over([]).get_search_stats(time_windows=[]))
    third = entries_of(lambda: engine_over([]).get_search_stats(min_sample_size="x"))
    lines = {line for name, line, _ in first + second + third if name == "get_search_stats"}
    assert len(lines) == 1
    for name, _, frame in first:
        if name == "get_search_stats":
            assert dict(frame.f_locals) == {}
            assert sys.version_info < (3, 11) or frame.f_back is None


class BreakingOff(list):
    """A list that cannot be walked to its end."""

    def __iter__(self):
        yield from list.__iter__(self)
        raise LookupError


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
def test_comprehensions_have_no_entry_and_expressions_none_for_their_iterator(module):
    config = {"signal_pools": [{}]}
    names = [name for name, *_ in entries_of(lambda: module._resolve_pool_configs(config))]
    has_comprehension = module is model and sys.version_info < (3, 12)
    assert ("<listcomp>" in names) is has_comprehension
    record = evaluation(function_metadata=BreakingOff([{"function_name": "a"}]))
    engine = module.SearchAnalytics(SimpleNamespace(), [pool()])
    by_name = module.AggregateBy.NONE
    names = [n for n, *_ in entries_of(lambda: engine._build_group_key(record, by_name))]
    assert ("<genexpr>" in names) is (module is model)


def test_functions_are_not_traced():
    called = []

    def profile(frame, event, _):
        if event == "call":
            called.append(frame.f_code.co_name)

    engine = engine_over([])
    before = sys.getprofile()
    sys.setprofile(profile)
    try:
        engine.get_search_patterns()
    finally:
        sys.setprofile(before)
    assert called
    assert "get_search_patterns" not in called
    assert "_fetch_evaluations" not in called


def test_helpers_that_are_carried_out_without_a_call_are_not_profiled():
    called = []

    def profile(_, event, argument):
        if event == "c_call":
            called.append(getattr(argument, "__name__", None))

    engine = engine_over([evaluation()])
    before = sys.getprofile()
    sys.setprofile(profile)
    try:
        engine.get_search_patterns()
        search_analytics._function_items(evaluation())
    finally:
        sys.setprofile(before)
    assert "get_search_patterns" in called
    assert called.count("_function_items") == 1


@pytest.mark.skipif(sys.version_info < (3, 12), reason="it hears of every function")
def test_the_profiler_of_the_library_does_not_name_the_functions():
    profiler = cProfile.Profile()
    engine = engine_over([])
    profiler.enable()
    engine.get_search_patterns()
    profiler.disable()
    names = [name for _, _, name in pstats.Stats(profiler).stats]
    assert "get_evaluation_history" in names
    assert not [name for name in names if "get_search_patterns" in name]


def test_levels_of_a_warning_count_past_the_functions():
    with pytest.warns(UserWarning, match="here") as caught:
        history_seen_by(lambda: warnings.warn("here", stacklevel=3))
    assert [entry.filename for entry in caught] == [__file__]


def test_code_cannot_be_replaced_and_there_is_no_source():
    function = search_analytics.get_search_stats
    with pytest.raises((AttributeError, TypeError)):
        function.__code__ = refused.__code__
    with pytest.raises(OSError, match="source"):
        inspect.getsource(function)


def test_the_type_of_a_function_is_not_what_its_class_says():
    function = search_analytics.get_search_stats
    assert function.__class__ is types.FunctionType
    assert type(function) is not types.FunctionType


def test_the_candidates_are_no_generator_of_the_interpreter():
    candidates = search_analytics._candidate_era_configs({}, None, None)
    assert not inspect.isgenerator(candidates)
    assert not isinstance(candidates, types.GeneratorType)
    assert not hasattr(candidates, "gi_frame")
    with pytest.raises(AttributeError):
        candidates.__name__ = "other"


def test_classes_note_no_first_line():
    """Ordinary classes do from 3.13 on."""
    assert not hasattr(search_analytics.SearchAnalytics, "__firstlineno__")


@pytest.mark.skipif(sys.version_info < (3, 14), reason="classes have their annotations only")
def test_classes_do_not_say_how_annotations_are_worked_out():
    assert callable(model.WindowStats.__annotate__)
    assert search_analytics.WindowStats.__annotate__ is None
    assert search_analytics.WindowStats.__annotations__ == model.WindowStats.__annotations__


class LoggingName(str):
    """A name that notes each comparison."""

    def __new__(cls, text, log):
        made = super().__new__(cls, text)
        made.log = log
        return made

    __hash__ = str.__hash__

    def __eq__(self, other):
        self.log.append(other)
        return str.__eq__(self, other)


def test_a_name_of_the_namespace_that_logs_is_compared_less_often():
    records = 50
    evals = [evaluation() for _ in range(records)]
    namespace = vars(search_analytics)
    compared = []
    original = namespace.pop("_usage_value")
    namespace[LoggingName("_usage_value", compared)] = original
    try:
        walk(engine_over(evals), "get_search_patterns")
    finally:
        del namespace["_usage_value"]
        namespace["_usage_value"] = original
    # In plain Python once for every item of every record, at least; there is one on each side.
    assert 0 < len(compared) < (records if VERSIONS_DICTIONARIES else 3 * records)


def test_a_getter_changed_inside_the_enumeration_machinery_is_not_noticed():
    getter = vars(Enum)["value"]
    usual = getter.fget

    class Changing:
        def __getattr__(self, name):
            if name == "sharpe":
                getter.fget = lambda member: ("function", "feature")
            return getattr(evaluation(), name)

    evals = [evaluation(), Changing(), evaluation()]
    try:
        result = engine_over(evals).get_search_stats(min_sample_size=0)
    finally:
        getter.fget = usual
    assert result.total_groups == 1
    by_name = search_analytics.AggregateBy.FUNCTION_FEATURE
    renamed = engine_over(evals[:1]).get_search_stats(min_sample_size=0, aggregate_by=by_name)
    assert renamed.rows[0].group_key != result.rows[0].group_key


def test_windows_that_are_counted_together_see_a_change_together():
    first = evaluation(timestamp=4e9, passed_thresholds=False)
    engine = engine_over([first, *[evaluation(timestamp=4e9)] * 2_000_000])
    runs = []

    def handler(number, frame):
        first.passed_thresholds = True
        runs.append(number)

    before = signal.signal(signal.SIGALRM, handler)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.002)
        windows = engine.get_search_velocity().windows
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert runs
    # In plain Python the later windows would have counted one more than the first.
    totals = [window.total_passed for window in windows]
    assert totals == totals[:1] * 3
