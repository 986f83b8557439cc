"""Strict arguments: names for enumerations, and an error for whatever is typed wrong."""

from __future__ import annotations

from datetime import timedelta
from typing import Any

import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow

from kestrune_search_report import ArgumentError, FilterError, Questions, Snapshot
from kestrune_search_report.arguments import aggregation, minutes, time_windows, windows
from kestrune_search_report.asking import FILTERS, PARAMETERS
from support.searches import simple


@pytest.mark.parametrize(
    ("question", "words", "members"),
    [
        (
            "get_search_stats",
            {
                "time_windows": ["lifetime", "LAST_24H"],
                "eval_pool": "passed",
                "aggregate_by": "function_feature",
                "min_sample_size": 1,
            },
            {
                "time_windows": [TimeWindow.LIFETIME, TimeWindow.LAST_24H],
                "eval_pool": EvalPool.PASSED,
                "aggregate_by": AggregateBy.FUNCTION_FEATURE,
                "min_sample_size": 1,
            },
        ),
        ("get_search_velocity", {"windows": ["1h", "2d"]}, {"windows": [60, 2880]}),
        ("get_search_velocity", {"windows": "90m"}, {"windows": [90]}),
        (
            "get_yield_analysis",
            {"recent_window_minutes": timedelta(days=3)},
            {"recent_window_minutes": 4320},
        ),
        (
            "get_suggestions",
            {"aggregate_by": ("function", "feature_family"), "min_sample_size": 0, "top_n": 2},
            {"aggregate_by": AggregateBy.FUNCTION_FEATURE_FAMILY, "min_sample_size": 0, "top_n": 2},
        ),
        ("get_search_patterns", {"eval_pool": "submitted"}, {"eval_pool": EvalPool.SUBMITTED}),
        ("get_correlation_patterns", {"function_family": "trend"}, {"function_family": "trend"}),
    ],
    ids=["stats", "velocity", "one window", "yield", "suggestions", "patterns", "pairs"],
)
def test_words_mean_what_the_module_means(
    questions: Questions, question: str, words: dict[str, Any], members: dict[str, Any]
) -> None:
    expected = getattr(questions.snapshot.engine, question)(**members)
    assert questions.ask(question, **words).result == expected


@pytest.mark.parametrize(
    ("question", "arguments", "text"),
    [
        ("get_search_stats", {"era_id": "201"}, r"2011, 2012\. Did you mean '201\d'"),
        ("get_search_stats", {"eval_type": "Signal"}, "Did you mean 'signal'"),
        ("get_search_stats", {"function_family": "trends"}, "Did you mean 'trend'"),
        ("get_search_stats", {"feature_subfamily": "closed"}, "Did you mean 'close'"),
        ("get_search_stats", {"pnl_column": "net_return"}, "Did you mean 'net_returns'"),
        ("get_search_stats", {"pnl_column": "net_returns_sharpe"}, "'net_returns'"),
        ("get_search_stats", {"named_universe": "most"}, "there are: all, few"),
        ("get_search_stats", {"metaparameters": {"hold": 2}}, "hold"),
        ("get_search_stats", {"signal_pool_id": "alfa"}, "Did you mean 'alpha'"),
        ("get_search_stats", {"aggregate_by": "function_familly_feature_family"}, "Did you mean"),
        ("get_search_stats", {"aggregate_by": ("function", "features")}, "aggregate_by"),
        ("get_search_stats", {"aggregate_by": None}, "aggregate_by"),
        ("get_search_stats", {"eval_pool": "pased"}, "Did you mean 'passed'"),
        ("get_search_stats", {"time_windows": ["life"]}, "time_windows"),
        ("get_search_stats", {"time_windows": []}, "empty"),
        ("get_search_stats", {"time_windows": ["era", "ERA"]}, "twice"),
        ("get_search_stats", {"min_sample_size": "3"}, "whole number"),
        ("get_search_stats", {"min_sample_size": -1}, "from 0 on"),
        ("get_search_stats", {"sort_ascending": 1}, "True nor False"),
        ("get_search_velocity", {"windows": ["1 fortnight"]}, "90m"),
        ("get_search_velocity", {"windows": [0]}, "above 0"),
        ("get_search_velocity", {"windows": 3j}, "no list"),
        ("get_yield_analysis", {"recent_window_minutes": True}, "no length of time"),
        ("get_correlation_patterns", {"top_n": 0}, "from 1 on"),
        ("get_correlation_patterns", {"topn": 3}, "Did you mean 'top_n'"),
        ("get_correlation_pattern", {}, "Did you mean 'get_correlation_patterns'"),
        ("get_available_eras", {"era_id": "2011"}, "there is none"),
    ],
    ids=str,
)
def test_what_is_typed_wrong_is_named_with_the_nearest(
    questions: Questions, question: str, arguments: dict[str, Any], text: str
) -> None:
    with pytest.raises(ArgumentError, match=text):
        questions.ask(question, **arguments)


def test_a_filter_that_cannot_be_honoured_is_an_error() -> None:
    questions = Questions(Snapshot.from_records(simple()))
    for name in ("named_universe", "eval_type", "metaparameters", "signal_pool_id"):
        with pytest.raises(FilterError, match=f"no record has {name}"):
            questions.get_search_patterns(**{name: "signal"})  # type: ignore[misc]
    with pytest.raises(ArgumentError, match="submitted"):
        questions.get_search_stats(eval_pool="submitted")
    with pytest.raises(ArgumentError, match=r"pnl_column: .* there is none"):
        questions.get_search_stats(pnl_column="gross_returns")


def test_questions_are_found_without_their_first_word(questions: Questions) -> None:
    assert questions.ask("search-patterns").question == "get_search_patterns"


def test_every_parameter_of_the_module_is_taken(snapshot: Snapshot) -> None:
    for question, parameters in PARAMETERS.items():
        code = getattr(type(snapshot.engine), question).__code__
        theirs = set(code.co_varnames[1 : code.co_argcount])
        assert theirs == set(parameters), question
    assert len(FILTERS) == 11


@pytest.mark.parametrize(
    ("given", "length"),
    [(5, 5), (0.5, 0.5), ("30s", 0.5), ("7", 7), ("1.5 hours", 90), ("1W", 10080)],
    ids=str,
)
def test_lengths_of_time_are_minutes(given: Any, length: float) -> None:
    assert minutes("window", given) == length


def test_members_stay_members() -> None:
    assert aggregation(AggregateBy.NONE) is aggregation("none") is AggregateBy.NONE
    assert time_windows(TimeWindow.ERA) == time_windows("era") == [TimeWindow.ERA]
    assert windows(None) is None
    assert time_windows(None) is None
