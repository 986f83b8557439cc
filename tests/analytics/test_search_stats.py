"""Grouped statistics: which evaluations count where, and what is made of them."""

from __future__ import annotations

from types import SimpleNamespace

import pytest
from kestrune.search_analytics import (
    AggregateBy,
    EvalPool,
    SearchStatsResult,
    StatsRow,
    TimeWindow,
    WindowStats,
)
from support.environment import failing
from support.parts import NOW, engine_over, evaluation, pool, using

WEEK, DAY = 604800, 86400
LIFETIME = [TimeWindow.LIFETIME]
# A per-column table.
TABLE = {
    "gross_returns_sharpe": 10.0,
    "gross_returns_returns": 20.0,
    "gross_returns_drawdown": 30.0,
    "net_sharpe": 11.0,
    "gross_returns_turnover": 99.0,
    "gross_returns_correlation": 99.0,
}
# Groups by name, with the sharpe and the number of their evaluations.
GROUPS = [
    ("low", 1.0, 2),
    ("high", 3.0, 1),
    ("many", 2.0, 4),
    ("few", 2.0, 3),
    ("few2", 2.0, 3),
]


def stats(evals, *pools, **arguments):
    return engine_over(evals, *pools).get_search_stats(**{"min_sample_size": 0, **arguments})


def only_window(evals, *pools, **arguments):
    """The one window of the one group."""
    (row,) = stats(evals, *pools, **{"time_windows": LIFETIME, **arguments}).rows
    (window,) = row.windows
    return window


@pytest.mark.usefixtures("now")
class TestCounting:
    def test_rows_hold_one_window_per_requested_window_in_that_order(self):
        (row,) = stats([evaluation()]).rows
        assert type(row) is StatsRow
        assert [window.window for window in row.windows] == list(TimeWindow)
        assert [type(window) for window in row.windows] == [WindowStats] * 4
        reverse = list(reversed(TimeWindow))
        (row,) = stats([evaluation()], time_windows=reverse).rows
        assert [window.window for window in row.windows] == reverse

    def test_the_window_is_the_member_itself(self):
        window = only_window([evaluation()])
        assert window.window is TimeWindow.LIFETIME
        assert window.window != "lifetime"

    def test_means_are_true_divisions(self):
        evals = [
            evaluation(sharpe=s, returns=r, turnover=t, drawdown=d, correlation=c)
            for s, r, t, d, c in [
                (1, 2.0, 3.0, 4.0, 0.5),
                (2, 1.0, 0.5, 0.25, 0.125),
                (0, 0, 1, 0, 0),
            ]
        ]
        window = only_window(evals)
        assert window.sharpe == 1.0
        assert window.returns == 1.0
        assert window.turnover == (3.0 + 0.5 + 1) / 3
        assert window.drawdown == (4.0 + 0.25 + 0) / 3
        assert window.correlation == (0.5 + 0.125 + 0) / 3
        assert [type(value) for value in vars(window).values()][1:6] == [float] * 5

    def test_sums_start_at_zero_and_run_in_arrival_order(self):
        values = [1e16, 1.0, -1e16, 0.1]
        expected = 0.0
        for value in values:
            expected += value
        assert only_window([evaluation(sharpe=v) for v in values]).sharpe == expected / 4
        assert only_window([evaluation(sharpe=v) for v in sorted(values)]).sharpe != expected / 4

    def test_the_pass_rate_counts_truthy_marks(self):
        marks = [True, 0, "yes", None, 1, []]
        assert only_window([evaluation(passed_thresholds=m) for m in marks]).yield_rate == 0.5

    def test_counts_are_ints(self):
        result = stats([evaluation()])
        (row,) = result.rows
        for count in (
            row.evaluation_count,
            row.windows[0].evaluation_count,
            result.total_evaluations,
            result.total_groups,
            result.groups_shown,
        ):
            assert type(count) is int
            assert count == 1

    def test_time_windows_are_inclusive_at_their_cut_off(self):
        evals = [evaluation(timestamp=NOW - age) for age in (WEEK, WEEK + 1, DAY, DAY + 1, 0, -5)]
        (row,) = stats(evals).rows
        assert [window.evaluation_count for window in row.windows] == [6, 6, 5, 3]
        assert row.evaluation_count == 6

    def test_the_era_window_counts_the_requested_era(self):
        evals = [evaluation(era_id=era) for era in ("a", "b", "a", None)]
        (row,) = stats(evals, era_id="a").rows
        assert [window.evaluation_count for window in row.windows] == [4, 2, 4, 4]

    def test_without_era_the_era_window_is_the_lifetime(self):
        (row,) = stats([evaluation(era_id=era) for era in ("a", None)]).rows
        assert row.windows[1].evaluation_count == row.windows[0].evaluation_count == 2

    def test_one_evaluation_counts_into_every_window_that_holds_it(self):
        (row,) = stats([evaluation(sharpe=2.0)]).rows
        assert [window.sharpe for window in row.windows] == [2.0] * 4

    def test_windows_that_are_not_requested_are_not_tested(self):
        """A time stamp of None is an error only where it is compared."""
        record = evaluation(timestamp=None)
        assert only_window([record]).evaluation_count == 1
        with pytest.raises(TypeError, match="'>=' not supported between instances of 'NoneType'"):
            stats([record], time_windows=[TimeWindow.LAST_WEEK])
        with pytest.raises(TypeError, match="'>=' not supported between instances of 'NoneType'"):
            stats([record], time_windows=[TimeWindow.LAST_24H])

    def test_a_window_that_equals_no_member_counts_nothing(self):
        (row,) = stats([evaluation()], time_windows=["mine", TimeWindow.ERA]).rows
        assert [(w.window, w.evaluation_count) for w in row.windows] == [
            ("mine", 0),
            (TimeWindow.ERA, 1),
        ]

    def test_a_window_that_equals_several_members_counts_as_the_first(self):
        class Any:
            def __eq__(self, other):
                return isinstance(other, TimeWindow) and other is not TimeWindow.LIFETIME

            __hash__ = object.__hash__

        (row,) = stats([evaluation(era_id="b", timestamp=0)], era_id="b", time_windows=[Any()]).rows
        assert row.windows[0].evaluation_count == 1  # the era, not the last week


@pytest.mark.usefixtures("now")
class TestEmptyWindows:
    def test_a_group_without_recent_evaluations_is_kept(self):
        evals = [evaluation(timestamp=NOW - DAY - 1)] * 3
        (row,) = stats(
            evals, pool("a"), pool("b"), time_windows=[TimeWindow.LAST_24H], min_sample_size=3
        ).rows
        assert row.evaluation_count == 3
        assert row.windows == [
            WindowStats(window=TimeWindow.LAST_24H, submittable_yield={"a": 0.0, "b": 0.0})
        ]
        assert type(row.windows[0].sharpe) is float

    def test_an_empty_window_keeps_the_pool_order(self):
        evals = [evaluation(timestamp=0)]
        window = only_window(evals, pool("z"), pool("a"), time_windows=[TimeWindow.LAST_24H])
        assert list(window.submittable_yield) == ["z", "a"]


@pytest.mark.usefixtures("now")
class TestPerColumnStatistics:
    def test_the_table_comes_first_for_three_statistics(self):
        window = only_window([evaluation(per_column_stats=TABLE)])
        assert (window.sharpe, window.returns, window.drawdown) == (10.0, 20.0, 30.0)
        assert (window.turnover, window.correlation) == (0.5, 0.25)

    def test_missing_keys_fall_back_one_by_one(self):
        window = only_window([evaluation(per_column_stats=TABLE)], pnl_column="net")
        assert (window.sharpe, window.returns, window.drawdown) == (11.0, 0.25, 0.125)

    @pytest.mark.parametrize("table", [None, {}, 0], ids=repr)
    def test_an_empty_table_gives_the_records_own_values(self, table):
        assert only_window([evaluation(per_column_stats=table)]).sharpe == 1.5

    def test_the_table_is_read_once(self):
        reads = []

        class Record(SimpleNamespace):
            @property
            def per_column_stats(self):
                reads.append(1)

        record = Record(**{k: v for k, v in vars(evaluation()).items() if k != "per_column_stats"})
        only_window([record])
        assert len(reads) == 1

    def test_a_column_that_is_no_text_is_a_type_error_after_the_fetch(self):
        engine = engine_over([evaluation()])
        with pytest.raises(TypeError, match="unsupported operand"):
            engine.get_search_stats(pnl_column=5)
        assert len(engine._tracker.calls) == 1
        assert engine_over([]).get_search_stats(pnl_column=5).rows == []

    def test_a_table_value_of_none_is_a_type_error(self):
        with pytest.raises(TypeError, match="unsupported operand type"):
            stats([evaluation(per_column_stats={"gross_returns_sharpe": None})])


@pytest.mark.usefixtures("now")
class TestSubmittableYield:
    def test_a_passed_evaluation_is_submittable_below_a_threshold(self):
        window = only_window([evaluation(correlation=0.6)], pool("a", 0.5), pool("b", 0.7))
        assert window.submittable_yield == {"a": 0.0, "b": 1.0}
        assert list(window.submittable_yield) == ["a", "b"]

    def test_a_failed_evaluation_is_never_submittable(self):
        window = only_window(
            [evaluation(correlation=-1.0, passed_thresholds=False)], pool("a", 0.5), pool("b", 0.7)
        )
        assert window.submittable_yield == {"a": 0.0, "b": 0.0}

    def test_the_comparison_is_strict_and_signed(self):
        window = only_window(
            [evaluation(correlation=c) for c in (0.5, 0.4999, -0.9)], pool("a", 0.5)
        )
        assert window.submittable_yield == {"a": 2 / 3}

    def test_yields_are_per_window(self):
        evals = [evaluation(correlation=0.9, timestamp=0), evaluation(correlation=0.1)]
        (row,) = stats(evals, pool("a", 0.5)).rows
        assert [w.submittable_yield["a"] for w in row.windows] == [0.5, 0.5, 1.0, 1.0]

    def test_two_pools_of_one_name_leave_the_later(self):
        window = only_window([evaluation(correlation=0.6)], pool("a", 0.7), pool("a", 0.5))
        assert window.submittable_yield == {"a": 0.0}

    def test_the_correlation_of_a_failed_evaluation_is_not_compared(self):
        class Incomparable(float):
            __lt__ = failing(AssertionError("compared"))

        record = evaluation(correlation=Incomparable(0.5), passed_thresholds=False)
        assert only_window([record]).submittable_yield == {"main": 0.0}

    def test_a_passed_evaluation_without_correlation_is_a_type_error(self):
        with pytest.raises(TypeError, match="'<' not supported between instances of 'NoneType'"):
            stats([evaluation(correlation=None)])

    def test_a_failed_evaluation_without_correlation_fails_in_the_sum(self):
        with pytest.raises(TypeError, match=r"unsupported operand type\(s\) for \+="):
            stats([evaluation(correlation=None, passed_thresholds=False)])


@pytest.mark.usefixtures("now")
class TestScore:
    def test_a_small_turnover_is_floored(self):
        window = only_window([evaluation(sharpe=2.0, correlation=0.5, turnover=0.0)])
        assert window.composite_score == 100.0

    @pytest.mark.parametrize(
        ("turnover", "floored"), [(0.01, 0.01), (0.02, 0.02), (-5.0, 0.01), (0.0099, 0.01)]
    )
    def test_the_floor_is_a_hundredth(self, turnover, floored):
        window = only_window([evaluation(sharpe=3.0, correlation=0.1, turnover=turnover)])
        assert window.composite_score == 3.0 * (1.0 - 0.1) * (1.0 / floored)

    def test_the_reciprocal_is_taken_before_multiplying(self):
        sharpe, correlation, turnover = 1.1, 0.3, 0.7
        window = only_window(
            [evaluation(sharpe=sharpe, correlation=correlation, turnover=turnover)]
        )
        assert window.composite_score == sharpe * (1.0 - correlation) * (1.0 / turnover)

    def test_a_turnover_that_is_no_number_is_not_floored(self):
        window = only_window([evaluation(turnover=float("nan"))])
        assert window.composite_score != window.composite_score


@pytest.mark.usefixtures("now")
class TestGroups:
    def test_groups_are_formed_by_the_requested_dimension(self):
        evals = [using("a", "b"), using("b", "a", "a"), using("c")]
        result = stats(evals, aggregate_by=AggregateBy.NONE)
        assert {row.group_key[0]: row.evaluation_count for row in result.rows} == {
            frozenset("ab"): 2,
            frozenset("c"): 1,
        }

    def test_small_groups_are_dropped_but_counted(self):
        evals = [using("a")] * 3 + [using("b")] * 2
        result = stats(evals, min_sample_size=3)
        assert [row.evaluation_count for row in result.rows] == [3]
        assert (result.total_evaluations, result.total_groups, result.groups_shown) == (5, 2, 1)

    def test_the_default_sample_size_is_a_hundred(self):
        engine = engine_over([evaluation()] * 99)
        assert engine.get_search_stats().groups_shown == 0
        engine._tracker.evals.append(evaluation())
        assert engine.get_search_stats().groups_shown == 1

    def test_the_sample_size_is_compared_with_the_total_of_the_group(self):
        evals = [evaluation(timestamp=0)] * 3
        result = stats(evals, time_windows=[TimeWindow.LAST_24H], min_sample_size=3)
        assert result.rows[0].windows[0].evaluation_count == 0

    def test_a_fractional_sample_size_is_compared_as_it_is(self):
        assert stats([evaluation()] * 2, min_sample_size=1.5).groups_shown == 1
        assert stats([evaluation()], min_sample_size=1.5).groups_shown == 0
        assert stats([evaluation()], min_sample_size=float("nan")).groups_shown == 1

    def test_accumulators_of_two_groups_are_distinct(self):
        result = stats([using("a", sharpe=1.0), using("b", sharpe=5.0)])
        assert [row.windows[0].sharpe for row in result.rows] == [5.0, 1.0]


@pytest.mark.usefixtures("now")
class TestOrder:
    def rows(self, **arguments):
        evals = [using(name, sharpe=s) for name, s, count in GROUPS for _ in range(count)]
        return ["".join(row.group_key[0]) for row in stats(evals, **arguments).rows]

    def test_the_best_score_comes_first_and_ties_go_to_the_larger_group(self):
        assert self.rows() == ["high", "many", "few", "few2", "low"]

    def test_ascending_order_keeps_the_larger_group_first_among_ties(self):
        assert self.rows(sort_ascending=True) == ["low", "many", "few", "few2", "high"]
        assert self.rows(sort_ascending="yes") == self.rows(sort_ascending=True)

    def test_equal_rows_stay_as_first_met(self):
        evals = [using(name) for name in "zyx"]
        for ascending in (True, False):
            rows = stats(evals, sort_ascending=ascending).rows
            assert ["".join(row.group_key[0]) for row in rows] == ["z", "y", "x"]

    def test_the_score_of_the_first_requested_window_decides(self):
        evals = [using("old", sharpe=9.0, timestamp=0), using("new", sharpe=1.0)]
        for windows, first in (
            ([TimeWindow.LAST_24H, TimeWindow.LIFETIME], "new"),
            ([TimeWindow.LIFETIME, TimeWindow.LAST_24H], "old"),
        ):
            rows = stats(evals, time_windows=windows).rows
            assert rows[0].group_key[0] == {first}

    def test_scores_that_are_no_numbers_sort_as_a_list_sort_does(self):
        sharpes = [float("nan"), 2.0, float("nan"), 1.0, 3.0]
        evals = [using(str(i), sharpe=s) for i, s in enumerate(sharpes)]
        scores = [(-s * 0.75 * 2.0, -1, str(i)) for i, s in enumerate(sharpes)]
        expected = [name for *_, name in sorted(scores, key=lambda row: row[:2])]
        assert ["".join(row.group_key[0]) for row in stats(evals).rows] == expected


@pytest.mark.usefixtures("now")
class TestResult:
    def test_what_was_asked_is_reported(self):
        result = stats(
            [evaluation()], aggregate_by=AggregateBy.FUNCTION_FEATURE, eval_pool=EvalPool.PASSED
        )
        assert type(result) is SearchStatsResult
        assert result.aggregate_by is AggregateBy.FUNCTION_FEATURE
        assert result.eval_pool is EvalPool.PASSED

    def test_the_dimension_and_pool_are_reported_as_received(self):
        anything = SimpleNamespace(value=("function", "feature"))
        result = stats([evaluation()], aggregate_by=anything, eval_pool="mine")
        assert result.aggregate_by is anything
        assert result.eval_pool == "mine"

    def test_rows_may_be_any_sequence_of_records(self):
        result = stats((evaluation(), evaluation()))
        assert result.total_evaluations == 2
