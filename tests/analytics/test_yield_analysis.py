"""Lifetime and recent yield, the trend, and when the search is running dry."""

from __future__ import annotations

from fractions import Fraction

import pytest
from kestrune.search_analytics import YieldAnalysisResult
from support.environment import failing
from support.parts import FILTERS, FIRST_FILTERS, NOW, POOL_FILTERS, engine_over, evaluation

pytestmark = pytest.mark.usefixtures("now")


def analysis(evals, minutes=360, **arguments):
    return engine_over(evals).get_yield_analysis(recent_window_minutes=minutes, **arguments)


def recent(passed, failed=0):
    return [evaluation(passed_thresholds=True) for _ in range(passed)] + [
        evaluation(passed_thresholds=False) for _ in range(failed)
    ]


def old(passed, failed=0):
    evals = recent(passed, failed)
    for record in evals:
        record.timestamp = 0
    return evals


@pytest.mark.parametrize("evals", [[], (), {}, ""], ids=repr)
def test_no_evaluations_give_an_empty_result(evals):
    result = analysis(evals, 45)
    assert result == YieldAnalysisResult(trend="insufficient_data", recent_window_minutes=45)
    assert result.diminishing_returns is False
    assert result.usefulness_rationale is not result.tamper_candidates


def test_the_window_is_reported_as_received():
    window = Fraction(1, 2)
    assert analysis([], window).recent_window_minutes is window
    assert analysis(recent(1), window).recent_window_minutes is window


def test_lifetime_and_recent_rates():
    result = analysis(recent(3, 1) + old(1, 3))
    assert (result.total_evaluations, result.total_passed) == (8, 4)
    assert (result.lifetime_yield_rate, result.recent_yield_rate) == (0.5, 0.75)


def test_an_evaluation_exactly_on_the_cut_off_is_recent():
    evals = [evaluation(timestamp=NOW - 3600), evaluation(timestamp=NOW - 3600.001)]
    evals[1].passed_thresholds = False
    assert analysis(evals, 60).recent_yield_rate == 1.0


def test_the_default_window_is_six_hours():
    evals = [
        evaluation(timestamp=NOW - 360 * 60),
        evaluation(timestamp=NOW - 360 * 60 - 1, passed_thresholds=False),
    ]
    result = engine_over(evals).get_yield_analysis()
    assert (result.recent_window_minutes, result.recent_yield_rate) == (360, 1.0)


def test_passes_are_truthy_marks():
    evals = [evaluation(passed_thresholds=mark) for mark in ("yes", 0, None, 1)]
    assert analysis(evals).total_passed == 2


@pytest.mark.parametrize(
    ("minutes", "text"),
    [(0, "0"), (-5, "-5"), (-0.5, "-0.5"), (False, "False"), (float("-inf"), "-inf")],
    ids=repr,
)
def test_a_window_must_be_positive(minutes, text):
    engine = engine_over([])
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - the whole text is compared
        engine.get_yield_analysis(recent_window_minutes=minutes)
    assert str(caught.value) == f"recent_window_minutes must be positive, got {text}."
    assert engine._tracker.calls == []


def test_the_evaluation_type_is_checked_first():
    with pytest.raises(ValueError, match="eval_type must be"):
        analysis([], 0, eval_type="x")


def test_a_window_that_cannot_be_compared_is_a_type_error():
    with pytest.raises(TypeError, match="'<=' not supported between instances of 'NoneType'"):
        analysis([], None)


def test_a_window_that_is_no_number_holds_nothing():
    result = analysis(recent(20), float("nan"))
    assert (result.recent_yield_rate, result.trend) == (0.0, "insufficient_data")
    assert result.diminishing_returns is True


def test_a_window_beyond_every_float_is_an_overflow_error():
    with pytest.raises(OverflowError):
        analysis(recent(1), 10**400)


@pytest.mark.parametrize(
    ("evals", "expected"),
    [
        (recent(9), "insufficient_data"),
        (recent(9) + old(0, 100), "insufficient_data"),
        (recent(10), "stable"),
        (recent(0, 10), "stable"),
        (recent(10) + old(0, 10), "improving"),
        (recent(0, 10) + old(10), "declining"),
        (recent(5, 5) + old(5, 5), "stable"),
    ],
    ids=["nine", "nine of many", "ten", "none pass", "better", "worse", "same"],
)
def test_the_trend_needs_ten_recent_evaluations(evals, expected):
    assert analysis(evals).trend == expected


def with_rates(recent_passed, recent_total, total_passed, total):
    """Evaluations of exactly those recent and lifetime counts."""
    recent_failed = recent_total - recent_passed
    old_passed = total_passed - recent_passed
    return recent(recent_passed, recent_failed) + old(old_passed, total - recent_total - old_passed)


@pytest.mark.parametrize(
    ("counts", "expected"),
    [
        ((6, 10, 10, 20), "stable"),  # 0.6 against 0.5: exactly 1.2 times
        ((7, 10, 10, 20), "improving"),
        ((4, 10, 10, 20), "stable"),  # 0.4 against 0.5: exactly 0.8 times
        ((3, 10, 10, 20), "declining"),
        ((12, 20, 25, 50), "stable"),
        ((13, 20, 25, 50), "improving"),
    ],
    ids=repr,
)
def test_comparisons_of_the_trend_are_strict(counts, expected):
    recent_passed, recent_total, total_passed, total = counts
    result = analysis(with_rates(*counts))
    assert result.recent_yield_rate == recent_passed / recent_total
    assert result.lifetime_yield_rate == total_passed / total
    assert result.trend == expected


@pytest.mark.parametrize(
    ("evals", "expected"),
    [
        (with_rates(2, 8, 8, 16), False),  # exactly half
        (with_rates(1, 8, 8, 16), True),
        (recent(0, 3), False),
        (old(1), True),
        (old(0, 1), False),
        (recent(0, 1) + old(1), True),
    ],
    ids=["half", "less", "nothing passes", "nothing recent", "nothing at all", "few"],
)
def test_diminishing_returns_are_judged_whatever_the_trend(evals, expected):
    assert analysis(evals).diminishing_returns is expected


def test_a_time_stamp_of_none_is_a_type_error():
    with pytest.raises(TypeError, match="'>=' not supported between instances of 'NoneType'"):
        analysis([evaluation(timestamp=None)])


def test_every_filter_reaches_the_fetch_by_keyword():
    fetched = []
    engine = engine_over([])
    engine._fetch_evaluations = lambda *args, **kwargs: fetched.append((args, kwargs)) or []
    values = {name: object() for name in FILTERS} | {"eval_type": "signal"}
    engine.get_yield_analysis(**values)
    assert fetched == [((), values)]


def test_positional_arguments_follow_the_signature():
    engine = engine_over([])
    result = engine.get_yield_analysis(*[None] * len(FIRST_FILTERS), 60, "s", "p", "q")
    assert result.recent_window_minutes == 60
    (call,) = engine._tracker.calls
    assert [call[name] for name in POOL_FILTERS] == ["s", "p", "q"]


def test_errors_of_a_record_pass_unchanged():
    error = LookupError("mine")
    record = type("Record", (), {"passed_thresholds": property(failing(error))})()
    with pytest.raises(LookupError) as caught:
        analysis([record])
    assert caught.value is error


def test_attributes_of_a_record_are_read_in_order():
    reads = []

    class Record:
        def __getattribute__(self, name):
            reads.append(name)
            return getattr(evaluation(), name)

    analysis([Record()])
    assert reads == [
        *("passed_thresholds", "timestamp", "passed_thresholds", "eval_type"),
        *("agent_is_pnl_mi", "is_pnl_mi", "failure_reason", "failure_detail", "rejection_reason"),
        *("eval_id", "strategy_pool_id", "signal_pool_id", "is_correlation"),
    ]


def test_no_history_at_all_is_a_type_error():
    with pytest.raises(TypeError):
        analysis(None)


class Lying(list):
    """A history that says that it is longer than it is."""

    def __len__(self):
        return 2**53 + 1


def test_a_rate_of_more_evaluations_than_doubles_count_is_rounded_once():
    result = engine_over(Lying([evaluation()])).get_yield_analysis()
    assert result.lifetime_yield_rate == 1 / (2**53 + 1) != 1 / 2.0**53
