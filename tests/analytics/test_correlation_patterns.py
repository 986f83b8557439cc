"""Which functions go together, and how much better such candidates pass."""

from __future__ import annotations

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import CorrelationPatternsResult, FunctionPairPattern
from support.environment import failing
from support.parts import FILTERS, engine_over, evaluation, function_item, using


def patterns(evals, **arguments):
    return engine_over(evals).get_correlation_patterns(**arguments)


def pairs(evals, **arguments):
    return [(p.function_a, p.function_b) for p in patterns(evals, **arguments).pairs]


@pytest.mark.parametrize("evals", [[], (), {}], ids=repr)
def test_no_evaluations_give_an_empty_result(evals):
    assert patterns(evals) == CorrelationPatternsResult()


def test_pairs_are_ordered_by_name():
    assert pairs([using("b", "a", "c")]) == [("a", "b"), ("a", "c"), ("b", "c")]


def test_a_function_used_twice_makes_no_pair():
    result = patterns([using("a", "a")])
    assert result == CorrelationPatternsResult([], 1, 1)


def test_every_pair_of_a_candidate_counts_once():
    result = patterns([using(*"abcde"), using(*"edcba", *"abc")])
    assert len(result.pairs) == 10
    assert {pair.total_cooccurrences for pair in result.pairs} == {2}


def test_counts_and_lift():
    evals = [
        using("a", "b"),
        using("a", "b", passed_thresholds=False),
        using("a", "c"),
        using("x", passed_thresholds=False),
    ]
    result = patterns(evals)
    assert (result.total_evaluations, result.total_passing_evaluations) == (4, 2)
    assert result.pairs == [
        FunctionPairPattern("a", "b", 2, 1, (1 / 2) / (2 / 4)),
        FunctionPairPattern("a", "c", 1, 1, (1 / 1) / (2 / 4)),
    ]
    assert [type(value) for value in vars(result.pairs[0]).values()] == [str, str, int, int, float]


def test_lift_is_not_rounded():
    evals = [using("a", "b", passed_thresholds=i < 1) for i in range(3)]
    evals += [using("x") for _ in range(4)]
    assert patterns(evals).pairs[0].lift == (1 / 3) / (5 / 7)


def test_when_nothing_passes_lift_is_zero_and_names_decide():
    result = patterns([using("c", "b", "a", passed_thresholds=0)])
    assert [(p.passed_cooccurrences, p.lift) for p in result.pairs] == [(0, 0.0)] * 3
    assert [(p.function_a, p.function_b) for p in result.pairs] == [
        ("a", "b"),
        ("a", "c"),
        ("b", "c"),
    ]


def test_when_everything_passes_every_lift_is_one():
    assert {p.lift for p in patterns([using("a", "b"), using("b", "c", "d")]).pairs} == {1.0}


def test_pairs_are_ranked_by_passes_not_by_lift():
    evals = [using("a", "b", passed_thresholds=i < 2) for i in range(9)] + [using("c", "d")]
    result = patterns(evals)
    assert [(p.function_a, p.passed_cooccurrences) for p in result.pairs] == [("a", 2), ("c", 1)]
    assert result.pairs[0].lift < result.pairs[1].lift


def test_ties_go_by_the_first_then_the_second_name():
    evals = [using("b", "z"), using("b", "c"), using("a", "z")]
    assert pairs(evals) == [("a", "z"), ("b", "c"), ("b", "z")]


def test_the_list_is_cut_at_the_requested_length():
    evals = [using(*"abcdefgh")]
    assert len(pairs(evals)) == 20
    assert len(pairs(evals, top_n=100)) == 28
    assert pairs(evals, top_n=1) == [("a", "b")]


@pytest.mark.parametrize(
    ("top_n", "text"), [(0, "0"), (-3, "-3"), (0.5, "0.5"), (False, "False")], ids=repr
)
def test_a_length_below_one(top_n, text):
    engine = engine_over([])
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - the whole text is compared
        engine.get_correlation_patterns(top_n=top_n)
    assert str(caught.value) == f"top_n must be >= 1, got {text}."
    assert engine._tracker.calls == []


def test_the_evaluation_type_is_checked_first():
    with pytest.raises(ValueError, match="eval_type must be"):
        patterns([], eval_type="x", top_n=0)


@pytest.mark.parametrize("top_n", [1.5, float("nan")], ids=repr)
def test_a_length_that_is_no_int_fails_when_the_list_is_cut(top_n):
    with pytest.raises(TypeError, match="slice indices must be integers"):
        patterns([using("a", "b")], top_n=top_n)
    assert patterns([], top_n=top_n).pairs == []


def test_a_length_that_cannot_be_compared_is_a_type_error():
    with pytest.raises(TypeError, match="'<' not supported between instances of 'NoneType'"):
        patterns([], top_n=None)


def test_empty_names_make_no_pair():
    record = evaluation(function_metadata=[function_item(name) for name in ("a", "", None, 0, "b")])
    assert pairs([record]) == [("a", "b")]


def test_bare_items_are_their_own_name():
    assert pairs([using("b", {"function_name": "a"})]) == [("a", "b")]
    assert pairs([evaluation(function_metadata=["b", "a"])]) == [("a", "b")]


def test_candidates_without_functions_count_in_the_base_rate():
    result = patterns([using("a", "b"), using(), evaluation(function_metadata=None)])
    assert result.total_evaluations == 3
    assert result.pairs[0].lift == 1.0


def test_names_that_cannot_be_ordered_are_a_type_error():
    with pytest.raises(TypeError, match="'<' not supported between instances of"):
        patterns([using("a", 5)])
    assert patterns([using(5)]).pairs == []


def test_names_of_any_ordered_type_make_pairs():
    assert pairs([using(2, 1, 1.5)]) == [(1, 1.5), (1, 2), (1.5, 2)]


def test_an_unhashable_name_is_a_type_error():
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        patterns([using(["a"], "b")])


def test_passes_are_read_once_for_the_total_and_once_for_the_pairs():
    reads = []

    class Record:
        function_metadata = (function_item("a"), function_item("b"), function_item("c"))

        @property
        def passed_thresholds(self):
            reads.append(1)
            return len(reads) == 1

    result = patterns([Record()])
    assert len(reads) == 2
    assert result.total_passing_evaluations == 1
    assert {pair.passed_cooccurrences for pair in result.pairs} == {0}


def test_passes_are_not_read_again_without_a_pair():
    reads = []

    class Record:
        function_metadata = (function_item("a"),)

        @property
        def passed_thresholds(self):
            reads.append(1)

    patterns([Record()])
    assert len(reads) == 1


def test_every_filter_reaches_the_fetch_by_keyword():
    fetched = []
    engine = engine_over([])
    engine._fetch_evaluations = lambda *args, **kwargs: fetched.append((args, kwargs)) or []
    values = {name: object() for name in FILTERS} | {"eval_type": None}
    engine.get_correlation_patterns(**values)
    assert fetched == [((), values)]


def test_errors_of_a_record_pass_unchanged():
    error = LookupError("mine")
    record = type("Record", (), {"passed_thresholds": property(failing(error))})()
    with pytest.raises(LookupError) as caught:
        patterns([record])
    assert caught.value is error


def test_no_history_at_all_is_a_type_error():
    with pytest.raises(TypeError, match=r"object of type 'NoneType' has no len\(\)"):
        patterns(None)


def own(text):
    """Text that equals `text` and is an object of its own."""
    return "".join(list(text))


class OwnText(str):
    """Text of a kind of its own."""


@pytest.mark.parametrize("before", [(), (OwnText("zero"), OwnText("zulu"))], ids=["plain", "own"])
def test_a_pair_keeps_the_names_of_its_first_evaluation(before):
    first, second = [own("alpha"), own("gamma")], [own("beta"), own("gamma")]
    third = [own("beta"), own("alpha")]
    evals = [using(*before), using(*first), using(*second), using(*third), using(*map(own, third))]
    kept = {
        (pair.function_a, pair.function_b): (pair.function_a, pair.function_b)
        for pair in patterns(evals).pairs
    }
    for names in (first, second, sorted(third)):
        found = kept[tuple(names)]
        assert found[0] is names[0]
        assert found[1] is names[1]


def test_a_name_met_alone_is_not_the_name_of_a_later_pair():
    alone, together = own("alpha"), own("alpha")
    (pair,) = patterns([using(alone), using(together, "beta")]).pairs
    assert pair.function_a is together


def test_pairs_are_ranked_by_passes_then_first_then_second_name(monkeypatch):
    read = []

    class Pattern:
        def __init__(self, **fields):
            vars(self).update({f"_{name}": value for name, value in fields.items()})

        def __getattr__(self, name):
            read.append(name)
            return vars(self)[f"_{name}"]

    monkeypatch.setattr(search_analytics, "FunctionPairPattern", Pattern)
    patterns([using("a", "b", "c")])
    assert read == ["passed_cooccurrences", "function_a", "function_b"] * 3


def test_the_pattern_class_is_not_needed_without_pairs(monkeypatch):
    monkeypatch.delattr(search_analytics, "FunctionPairPattern")
    assert patterns([using("alone"), using()]).pairs == []
    with pytest.raises(NameError, match="'FunctionPairPattern'"):
        patterns([using("a", "b")])
