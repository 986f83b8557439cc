"""Focus and avoid: the best and the worst groups by lifetime score."""

from __future__ import annotations

from types import SimpleNamespace

import pytest
from kestrune.search_analytics import (
    AggregateBy,
    EvalPool,
    StatsRow,
    SuggestionsResult,
    TimeWindow,
    WindowStats,
)
from support.environment import failing
from support.parts import FILTERS, engine_over, using

FORMULA = "sharpe * (1 - correlation) * (1 / max(turnover, 0.01))"


def row(name, score, count=1):
    return SimpleNamespace(
        name=name, windows=[SimpleNamespace(composite_score=score)], evaluation_count=count
    )


def suggestions(rows, **arguments):
    """Suggestions over given rows; the statistics are replaced on the instance."""
    engine = engine_over([])
    engine.get_search_stats = lambda **kwargs: SimpleNamespace(rows=rows)
    return engine.get_suggestions(**arguments)


def names(rows):
    return [row.name for row in rows]


def refusal(**arguments):
    engine = engine_over([])
    engine.get_search_stats = failing(AssertionError("asked"))
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - callers compare the whole text
        engine.get_suggestions(**arguments)
    return str(caught.value)


def own_rows(scores, counts=None):
    """Rows of the module's own classes, as the statistics make them."""
    counts = counts or [1] * len(scores)
    return [
        StatsRow(windows=[WindowStats(composite_score=score)], evaluation_count=count)
        for score, count in zip(scores, counts, strict=True)
    ]


def scores_of(rows):
    return [row.windows[0].composite_score for row in rows]


def test_own_rows_are_ordered_by_score_and_count():
    rows = own_rows([0.5, -1.0, 2.0, -1.0], [1, 2, 3, 9])
    made = suggestions(rows, top_n=3)
    assert scores_of(made.focus) == [0.5, -1.0, 2.0]
    assert [(*scores_of([row]), row.evaluation_count) for row in made.avoid] == [
        (-1.0, 9),
        (-1.0, 2),
        (0.5, 1),
    ]


def test_rows_that_somebody_keeps_are_left_as_they_are():
    rows = own_rows([float(number) for number in range(500)])
    before = list(rows)
    suggestions(rows, top_n=2)
    assert rows == before


class Loud(StatsRow):
    """A row that notes who asks for its windows."""

    asked = 0

    def __getattribute__(self, name):
        if name == "windows":
            type(self).asked += 1
        return super().__getattribute__(name)


def test_rows_of_a_subclass_are_asked_once_each():
    Loud.asked = 0
    rows = [*own_rows([1.0]), Loud(windows=own_rows([0.0])[0].windows, evaluation_count=1)]
    assert scores_of(suggestions(rows, top_n=1).avoid) == [0.0]
    # Once to be sorted, and once by this test.
    assert Loud.asked == 2


@pytest.mark.parametrize("windows", [[], (WindowStats(),), None], ids=["none", "tuple", "no list"])
def test_own_rows_with_odd_windows_are_sorted_as_by_python(windows):
    rows = own_rows([1.0, 2.0])
    rows[1].windows = windows
    if windows:
        assert scores_of(suggestions(rows, top_n=1).avoid) == [0.0]
    else:
        with pytest.raises((IndexError, TypeError)):
            suggestions(rows)


def test_statistics_are_asked_for_by_keyword():
    asked = []
    engine = engine_over([])
    engine.get_search_stats = lambda *args, **kwargs: (
        asked.append((args, kwargs)) or SimpleNamespace(rows=[])
    )
    values = {name: object() for name in FILTERS}
    engine.get_suggestions(**values, aggregate_by="by", pnl_column="net", min_sample_size=7)
    ((args, kwargs),) = asked
    assert args == ()
    assert list(kwargs.items()) == [
        *values.items(),
        ("aggregate_by", "by"),
        ("eval_pool", EvalPool.ALL),
        ("time_windows", [TimeWindow.LIFETIME]),
        ("pnl_column", "net"),
        ("min_sample_size", 7),
        ("sort_ascending", False),
    ]
    assert type(kwargs["time_windows"]) is list


def test_focus_is_the_head_of_the_rows_as_they_come():
    rows = [row("a", 1), row("b", 3), row("c", 2)]
    result = suggestions(rows, top_n=2)
    assert result.focus == rows[:2]
    assert result.focus[0] is rows[0]
    assert type(result.focus) is list


def test_avoid_is_sorted_from_the_worst_score():
    rows = [row("a", 3), row("b", 2), row("c", 1), row("d", 0)]
    assert names(suggestions(rows, top_n=2).avoid) == ["d", "c"]


def test_ties_in_avoid_go_to_the_larger_group_then_to_the_first():
    rows = [row("few", 1, 2), row("many", 1, 9), row("few2", 1, 2), row("worst", 0, 1)]
    assert names(suggestions(rows).avoid) == ["worst", "many", "few", "few2"]


def test_both_lists_may_hold_the_same_rows():
    rows = [row("a", 2), row("b", 1)]
    result = suggestions(rows, top_n=10)
    assert names(result.focus) == ["a", "b"]
    assert names(result.avoid) == ["b", "a"]
    assert result.avoid[0] is result.focus[1]


def test_both_lists_are_new():
    rows = [row("a", 2)]
    result = suggestions(rows)
    assert result.focus is not rows
    assert result.avoid is not rows
    assert result.focus is not result.avoid


def test_no_rows_still_give_an_answer():
    assert suggestions([]) == SuggestionsResult(
        focus=[],
        avoid=[],
        aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
        scoring_formula=FORMULA,
    )


def test_the_dimension_is_reported_as_received():
    anything = object()
    assert suggestions([], aggregate_by=anything).aggregate_by is anything


@pytest.mark.parametrize(
    ("arguments", "text"),
    [
        ({"min_sample_size": -1}, "min_sample_size must be >= 0, got -1."),
        ({"min_sample_size": -1, "top_n": 0}, "min_sample_size must be >= 0, got -1."),
        ({"top_n": 0}, "top_n must be >= 1, got 0."),
        ({"top_n": -3}, "top_n must be >= 1, got -3."),
        ({"top_n": 0.5}, "top_n must be >= 1, got 0.5."),
        ({"top_n": False}, "top_n must be >= 1, got False."),
    ],
    ids=repr,
)
def test_sizes_are_checked_in_order_before_anything_is_asked(arguments, text):
    assert refusal(**arguments) == text


@pytest.mark.parametrize(
    "arguments",
    [{"min_sample_size": 0}, {"top_n": 1}, {"top_n": True}, {"min_sample_size": 0.5}],
    ids=repr,
)
def test_sizes_on_the_boundary_are_accepted(arguments):
    assert suggestions([row("a", 1)], **arguments).scoring_formula == FORMULA


def test_the_evaluation_type_is_left_to_the_statistics():
    assert refusal(eval_type="x", top_n=0) == "top_n must be >= 1, got 0."
    with pytest.raises(ValueError, match="eval_type must be"):
        engine_over([]).get_suggestions(eval_type="x")


@pytest.mark.parametrize("top_n", [1.5, float("nan"), float("inf")], ids=repr)
def test_a_size_that_is_no_int_fails_when_the_lists_are_cut(top_n):
    with pytest.raises(TypeError, match="slice indices must be integers"):
        suggestions([row("a", 1)], top_n=top_n)


@pytest.mark.parametrize("name", ["top_n", "min_sample_size"])
def test_a_size_that_cannot_be_compared_is_a_type_error(name):
    with pytest.raises(TypeError, match="'<' not supported between instances of 'NoneType'"):
        suggestions([], **{name: None})


def test_a_row_without_windows_is_a_type_error():
    with pytest.raises(TypeError) as caught:
        suggestions([SimpleNamespace(windows=None, evaluation_count=1)])
    assert str(caught.value) == "'NoneType' object is not subscriptable"


def test_errors_of_the_statistics_pass_unchanged():
    error = KeyError("mine")
    engine = engine_over([])
    engine.get_search_stats = failing(error)
    with pytest.raises(KeyError) as caught:
        engine.get_suggestions()
    assert caught.value is error


def test_scores_that_cannot_be_ordered_are_a_type_error():
    with pytest.raises(TypeError, match="'<' not supported between instances of"):
        suggestions([row("a", 1), row("b", None)])


def test_scores_that_are_no_numbers_sort_as_a_list_sort_does():
    nan = float("nan")
    rows = [row("a", 2.0), row("b", nan), row("c", 1.0), row("d", nan), row("e", 0.0)]
    expected = sorted(rows, key=lambda r: (r.windows[0].composite_score, -r.evaluation_count))
    assert suggestions(rows).avoid == expected


def test_over_real_evaluations(now):
    evals = [
        using(name, sharpe=sharpe)
        for name, sharpe, count in [
            ("good", 3.0, 2),
            ("bad", -1.0, 3),
            ("fair", 1.0, 2),
            ("rare", 9.0, 1),
        ]
        for _ in range(count)
    ]
    result = engine_over(evals).get_suggestions(min_sample_size=2, top_n=2)
    assert [next(iter(row.group_key[0])) for row in result.focus] == ["good", "fair"]
    assert [next(iter(row.group_key[0])) for row in result.avoid] == ["bad", "fair"]
    assert all(len(row.windows) == 1 for row in result.focus + result.avoid)
