"""Arguments of the grouped statistics: checks in their order, filters, empty answers."""

from __future__ import annotations

import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, SearchStatsResult, TimeWindow
from support.environment import failing
from support.parts import FILTERS, RecordingTracker, engine_over, evaluation

NO_WINDOWS = "time_windows must be None or a non-empty list."
DUPLICATES = "time_windows must not contain duplicates."
# The order in which the filters in force are reported.
REPORTED = (
    *("era_id", "eval_type", "named_universe", "metaparameters"),
    *("strategy_pool_id", "signal_pool_id", "strategy_signal_pool"),
    *("function_family", "function_subfamily", "feature_family", "feature_subfamily"),
)


def refusal(**arguments):
    """The text of the ValueError of a call that never reaches its tracker."""
    engine = engine_over([])
    engine._tracker.get_evaluation_history = failing(AssertionError("asked"))
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - callers compare the whole text
        engine.get_search_stats(**arguments)
    assert type(caught.value) is ValueError
    return str(caught.value)


@pytest.mark.parametrize(
    ("size", "text"), [(-1, "-1"), (-0.5, "-0.5"), (-(10**30), str(-(10**30)))], ids=repr
)
def test_a_negative_sample_size(size, text):
    assert refusal(min_sample_size=size) == f"min_sample_size must be >= 0, got {text}."


def test_the_sample_size_is_printed_with_str():
    class Size(int):
        def __str__(self):
            return "text"

        __repr__ = __format__ = failing(AssertionError("not str"))

    assert refusal(min_sample_size=Size(-1)) == "min_sample_size must be >= 0, got text."


@pytest.mark.parametrize("empty", [[], (), {}, "", set()], ids=repr)
def test_no_windows_are_refused(empty):
    assert refusal(time_windows=empty) == NO_WINDOWS


@pytest.mark.parametrize(
    "windows", [[TimeWindow.ERA, TimeWindow.ERA], "aa", [1, 1.0], (TimeWindow.ERA,) * 3], ids=repr
)
def test_duplicate_windows_are_refused(windows):
    assert refusal(time_windows=windows) == DUPLICATES


def test_checks_stand_in_their_order():
    assert refusal(eval_type="x", min_sample_size=-1, time_windows=[]).startswith("eval_type must")
    assert refusal(min_sample_size=-1, time_windows=[]).startswith("min_sample_size")
    assert refusal(time_windows=[]) == NO_WINDOWS


@pytest.mark.parametrize(
    ("arguments", "text"),
    [
        ({"min_sample_size": None}, "'<' not supported between instances of 'NoneType' and 'int'"),
        ({"min_sample_size": "1"}, "'<' not supported between instances of 'str' and 'int'"),
        ({"time_windows": 5}, "object of type 'int' has no len()"),
        ({"time_windows": iter([TimeWindow.ERA])}, "object of type 'list_iterator' has no len()"),
        ({"time_windows": [[]]}, "unhashable type: 'list'"),
    ],
    ids=["no size", "text", "number", "iterator", "list of a list"],
)
def test_wrong_types_fail_before_the_tracker_is_asked(arguments, text):
    engine = engine_over([])
    with pytest.raises(TypeError) as caught:
        engine.get_search_stats(**arguments)
    assert text in str(caught.value)
    assert engine._tracker.calls == []


@pytest.mark.parametrize("size", [0, False, 0.0, float("nan")], ids=repr)
def test_a_sample_size_that_is_not_negative_is_accepted(size):
    assert engine_over([]).get_search_stats(min_sample_size=size).rows == []


def test_windows_may_be_any_sized_collection(now):
    for windows in ((TimeWindow.ERA,), {TimeWindow.ERA: 1}, {TimeWindow.ERA}):
        (row,) = (
            engine_over([evaluation()])
            .get_search_stats(time_windows=windows, min_sample_size=0)
            .rows
        )
        assert [window.window for window in row.windows] == [TimeWindow.ERA]


def test_the_given_list_of_windows_is_not_changed(now):
    windows = [TimeWindow.LAST_24H, TimeWindow.ERA]
    engine_over([evaluation()]).get_search_stats(time_windows=windows, min_sample_size=0)
    assert windows == [TimeWindow.LAST_24H, TimeWindow.ERA]


@pytest.mark.parametrize("evals", [[], (), None, {}, 0], ids=repr)
def test_no_evaluations_give_an_empty_answer_with_its_filters(evals):
    engine = engine_over(evals)
    result = engine.get_search_stats(
        era_id="a", aggregate_by="anything", eval_pool=EvalPool.PASSED, time_windows=[5]
    )
    assert result == SearchStatsResult(
        rows=[],
        aggregate_by="anything",
        eval_pool=EvalPool.PASSED,
        filters_applied={"era_id": "a"},
    )
    assert type(result.rows) is list


def test_empty_answers_share_nothing():
    engine = engine_over([])
    one, other = engine.get_search_stats(), engine.get_search_stats()
    assert one.rows is not other.rows
    assert one.filters_applied is not other.filters_applied


def test_only_filters_in_force_are_reported_in_their_order():
    values = {name: f"some {name}" for name in FILTERS} | {"eval_type": "signal"}
    reported = engine_over([]).get_search_stats(**values).filters_applied
    assert list(reported) == list(REPORTED)
    assert reported == values
    assert engine_over([]).get_search_stats().filters_applied == {}


@pytest.mark.parametrize("falsy", ["", 0, False, [], {}], ids=repr)
def test_a_falsy_filter_is_in_force(falsy):
    reported = engine_over([]).get_search_stats(era_id=falsy, function_family=falsy)
    assert list(reported.filters_applied) == ["era_id", "function_family"]
    assert reported.filters_applied["era_id"] is falsy


def test_pools_are_reported_as_given_before_they_are_aliased():
    engine = engine_over([])
    result = engine.get_search_stats(eval_type="strategy", signal_pool_id="p1")
    assert result.filters_applied == {"eval_type": "strategy", "signal_pool_id": "p1"}
    (call,) = engine._tracker.calls
    assert (call["signal_pool_id"], call["strategy_signal_pool"]) == (None, "p1")


def test_every_filter_and_the_pool_reach_the_fetch_by_keyword():
    fetched = []
    engine = engine_over([])
    engine._fetch_evaluations = lambda *args, **kwargs: fetched.append((args, kwargs)) or []
    values = {name: object() for name in FILTERS} | {"eval_type": "strategy"}
    engine.get_search_stats(**values, eval_pool="pool")
    ((args, kwargs),) = fetched
    assert args == ()
    assert kwargs == {**values, "eval_pool": "pool"}


def test_metaparameters_are_reported_as_the_same_object():
    metaparameters = {"lookback": 5}
    result = engine_over([]).get_search_stats(metaparameters=metaparameters)
    assert result.filters_applied["metaparameters"] is metaparameters


def test_a_dimension_is_not_checked_without_evaluations(now):
    assert engine_over([]).get_search_stats(aggregate_by=None).aggregate_by is None
    with pytest.raises(AttributeError, match="'NoneType' object has no attribute 'value'"):
        engine_over([evaluation()]).get_search_stats(aggregate_by=None)


def test_positional_arguments_follow_the_signature(now):
    result = engine_over([evaluation()]).get_search_stats(
        *[None] * 11, AggregateBy.NONE, EvalPool.ALL, [TimeWindow.ERA], None, 1, True
    )
    assert result.aggregate_by is AggregateBy.NONE
    assert [w.window for w in result.rows[0].windows] == [TimeWindow.ERA]


@pytest.mark.parametrize(
    "missing",
    ["per_column_stats", "sharpe", "turnover", "correlation", "passed_thresholds", "timestamp"],
)
def test_a_record_without_an_attribute_is_an_attribute_error(now, missing):
    record = evaluation()
    delattr(record, missing)
    with pytest.raises(AttributeError, match=f"no attribute '{missing}'"):
        engine_over([record]).get_search_stats()


@pytest.mark.parametrize("name", ["sharpe", "returns", "turnover", "drawdown"])
def test_a_statistic_of_none_is_a_type_error(now, name):
    with pytest.raises(
        TypeError, match=r"unsupported operand type\(s\) for \+=: 'float' and 'None"
    ):
        engine_over([evaluation(**{name: None})]).get_search_stats()


def test_attributes_of_a_record_are_read_in_order(now):
    reads = []

    class Record:
        def __getattribute__(self, name):
            reads.append(name)
            return getattr(evaluation(), name)

    engine_over([Record()]).get_search_stats()
    assert reads == [
        *("per_column_stats", "sharpe", "returns", "drawdown", "turnover", "correlation"),
        *("passed_thresholds", "function_metadata", "feature_metadata", "timestamp", "era_id"),
    ]


def test_a_failure_leaves_the_engine_usable(now):
    engine = engine_over([evaluation(), evaluation(sharpe=None)])
    with pytest.raises(TypeError):
        engine.get_search_stats()
    engine._tracker = RecordingTracker([evaluation()])
    assert engine.get_search_stats(min_sample_size=0).groups_shown == 1
