"""Fetching the evaluation history: what the tracker is asked, what is filtered here."""

from __future__ import annotations

from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import EvalPool
from support.environment import failing
from support.parts import USAGE_FILTERS, engine_over, evaluation, function_item, using

ASKED = (
    *("era_id", "eval_type", "passed_only", "limit", "named_universe", "metaparameters"),
    *("strategy_pool_id", "signal_pool_id", "strategy_signal_pool"),
)


def asked_by(**filters):
    engine = engine_over([])
    engine._fetch_evaluations(**filters)
    return engine._tracker.calls[0]


def feature_item(name, family=None, subfamily=None):
    return {"feature_name": name, "feature_family": family, "feature_subfamily": subfamily}


def test_the_tracker_is_asked_once_by_keyword_in_order():
    engine = engine_over([])
    engine._fetch_evaluations()
    (call,) = engine._tracker.calls
    assert list(call) == list(ASKED)
    defaults = {**dict.fromkeys(ASKED), "passed_only": False, "limit": 10000}
    assert call == defaults


def test_filters_reach_the_tracker_as_they_are():
    filters = {
        name: object()
        for name in ("era_id", "named_universe", "metaparameters", "strategy_pool_id")
    }
    call = asked_by(**filters)
    assert all(call[name] is value for name, value in filters.items())


def test_positional_filters_follow_the_signature():
    engine = engine_over([])
    engine._fetch_evaluations(
        "era", "signal", "universe", "meta", EvalPool.PASSED, None, None, None, None, "s", "p", "q"
    )
    assert engine._tracker.calls[0] == {
        "era_id": "era",
        "eval_type": "signal",
        "passed_only": True,
        "limit": 10000,
        "named_universe": "universe",
        "metaparameters": "meta",
        "strategy_pool_id": "s",
        "signal_pool_id": "p",
        "strategy_signal_pool": "q",
    }


@pytest.mark.parametrize(
    ("eval_type", "signal_pool", "strategy_pool", "expected"),
    [
        ("strategy", "p1", None, (None, "p1")),
        ("signal", "p1", None, ("p1", "p1")),
        (None, "p1", None, ("p1", "p1")),
        ("strategy", "p1", "p2", ("p1", "p2")),
        ("signal", "p1", "p2", ("p1", "p2")),
        ("strategy", None, "p2", (None, "p2")),
        ("strategy", None, None, (None, None)),
        ("strategy", "", None, (None, "")),
        ("strategy", "p1", "", ("p1", "")),
        ("Strategy", "p1", None, ("p1", "p1")),
    ],
    ids=repr,
)
def test_a_signal_pool_given_alone_means_strategies_on_that_pool_too(
    eval_type, signal_pool, strategy_pool, expected
):
    call = asked_by(
        eval_type=eval_type, signal_pool_id=signal_pool, strategy_signal_pool=strategy_pool
    )
    assert (call["signal_pool_id"], call["strategy_signal_pool"]) == expected


def test_every_pool_keeps_every_evaluation_and_the_trackers_own_list():
    evals = [evaluation(submitted=False), evaluation(passed_thresholds=False)]
    engine = engine_over(evals)
    assert engine._fetch_evaluations() is evals
    assert engine._tracker.calls[0]["passed_only"] is False


def test_the_passed_pool_is_left_to_the_tracker():
    evals = [evaluation(passed_thresholds=False)]
    engine = engine_over(evals)
    assert engine._fetch_evaluations(eval_pool=EvalPool.PASSED) is evals
    assert engine._tracker.calls[0]["passed_only"] is True


def test_the_submitted_pool_is_filtered_here_in_order():
    evals = [evaluation(submitted=mark) for mark in (True, 0, "yes", None, 1)]
    engine = engine_over(evals)
    kept = engine._fetch_evaluations(eval_pool=EvalPool.SUBMITTED)
    assert kept == [evals[0], evals[2], evals[4]]
    assert type(kept) is list
    assert engine._tracker.calls[0]["passed_only"] is False


def test_the_submitted_pool_gives_a_new_list_even_when_all_are_kept():
    evals = [evaluation(submitted=True)]
    kept = engine_over(evals)._fetch_evaluations(eval_pool=EvalPool.SUBMITTED)
    assert kept == evals
    assert kept is not evals


@pytest.mark.parametrize("other", ["submitted", None, 5], ids=repr)
def test_anything_else_as_pool_keeps_every_evaluation(other):
    evals = [evaluation(submitted=False)]
    engine = engine_over(evals)
    assert engine._fetch_evaluations(eval_pool=other) is evals
    assert engine._tracker.calls[0]["passed_only"] is False


def test_passed_only_is_the_result_of_the_comparison():
    class Pool:
        def __eq__(self, other):
            return "perhaps" if other is EvalPool.PASSED else False

        __hash__ = None

    assert asked_by(eval_pool=Pool())["passed_only"] == "perhaps"


ITEMS = {
    "function_family": ("function_metadata", function_item("f", "wanted", "x")),
    "function_subfamily": ("function_metadata", function_item("f", "x", "wanted")),
    "feature_family": ("feature_metadata", feature_item("g", "wanted", "x")),
    "feature_subfamily": ("feature_metadata", feature_item("g", "x", "wanted")),
}


@pytest.mark.parametrize("name", USAGE_FILTERS)
def test_a_usage_filter_keeps_records_with_some_matching_item(name):
    attribute, item = ITEMS[name]
    other = dict.fromkeys(item, "other")
    first, last, none = (
        evaluation(**{attribute: items}) for items in ([item, other], [other, item], [other])
    )
    kept = engine_over([none, last, none, first])._fetch_evaluations(**{name: "wanted"})
    assert kept == [last, first]
    assert kept[0] is last


@pytest.mark.parametrize("name", USAGE_FILTERS)
def test_a_record_without_items_fails_every_filter_of_that_side(name):
    record = evaluation(function_metadata=None, feature_metadata=[])
    assert engine_over([record])._fetch_evaluations(**{name: ""}) == []


@pytest.mark.parametrize("name", USAGE_FILTERS)
def test_an_empty_family_matches_items_that_carry_an_empty_one(name):
    attribute, item = ITEMS[name]
    record = evaluation(**{attribute: [{**item, name: ""}]})
    assert engine_over([record])._fetch_evaluations(**{name: ""}) == [record]


def test_an_item_without_family_answers_with_its_name():
    record = evaluation(function_metadata=[function_item("f", None, None)])
    engine = engine_over([record])
    assert engine._fetch_evaluations(function_family="f") == [record]
    assert engine._fetch_evaluations(function_subfamily="f") == [record]
    assert engine._fetch_evaluations(function_family="") == []


def test_bare_names_answer_with_their_own_name():
    record = using("f1", "f2")
    engine = engine_over([record])
    assert engine._fetch_evaluations(function_family="f2") == [record]
    assert engine._fetch_evaluations(function_family="") == []


def test_bare_text_left_unwrapped_has_an_empty_family():
    record = using("f1", {"function_name": "f2"})
    engine = engine_over([record])
    assert engine._fetch_evaluations(function_family="") == [record]
    assert engine._fetch_evaluations(function_family="f1") == []
    assert engine._fetch_evaluations(function_family="f2") == [record]


def test_filters_are_joined_by_and():
    both = evaluation(
        function_metadata=[function_item("f", "A", "x"), function_item("g", "y", "B")],
        feature_metadata=[feature_item("h", "C", "D")],
    )
    engine = engine_over([both])
    wanted = dict(zip(USAGE_FILTERS, "ABCD", strict=True))
    assert engine._fetch_evaluations(**wanted) == [both]
    for name in USAGE_FILTERS:
        assert engine._fetch_evaluations(**{**wanted, name: "none"}) == []


def test_filters_are_tested_in_order_and_stop_at_the_first_failure(monkeypatch):
    asked = []

    def usage_value(item, key, name_key):
        asked.append(key)
        return "no" if key == "feature_family" else "yes"

    monkeypatch.setattr(search_analytics, "_usage_value", usage_value)
    engine_over([evaluation()])._fetch_evaluations(**dict.fromkeys(USAGE_FILTERS, "yes"))
    assert asked == ["function_family", "function_subfamily", "feature_family"]


def test_the_search_of_a_list_stops_at_the_first_match():
    class Untouchable(dict):
        get = failing(AssertionError("read"))

    record = evaluation(function_metadata=[function_item("f", "A"), Untouchable()])
    assert engine_over([record])._fetch_evaluations(function_family="A") == [record]


def test_items_are_fetched_anew_for_each_filter():
    reads = []

    class Record:
        @property
        def function_metadata(self):
            reads.append(1)
            return [function_item("f", "A", "B")]

    record = Record()
    engine = engine_over([record])
    assert engine._fetch_evaluations(function_family="A", function_subfamily="B") == [record]
    assert len(reads) == 2


def test_usage_filters_apply_after_the_submitted_pool():
    submitted = evaluation(submitted=True, function_metadata=[function_item("f", "A")])
    unsubmitted = evaluation(submitted=False, function_metadata=[function_item("f", "A")])
    other = evaluation(submitted=True)
    kept = engine_over([submitted, unsubmitted, other])._fetch_evaluations(
        eval_pool=EvalPool.SUBMITTED, function_family="A"
    )
    assert kept == [submitted]


def test_a_usage_filter_gives_a_new_list_even_when_all_are_kept():
    evals = [evaluation(function_metadata=[function_item("f", "A")])]
    kept = engine_over(evals)._fetch_evaluations(function_family="A")
    assert kept == evals
    assert kept is not evals


def test_without_filter_the_answer_of_the_tracker_is_handed_on_as_it_is():
    for answer in (None, 5, iter([1]), "text", {}):
        assert engine_over(answer)._fetch_evaluations() is answer


def test_filters_take_any_iterable_history():
    evals = [evaluation(submitted=True)]
    for history in (tuple(evals), iter(evals), dict.fromkeys(range(0)), (x for x in evals)):
        kept = engine_over(history)._fetch_evaluations(eval_pool=EvalPool.SUBMITTED)
        assert kept in ([], evals)
        assert type(kept) is list


def test_a_filter_over_no_history_is_a_type_error():
    with pytest.raises(TypeError, match="'NoneType' object is not iterable"):
        engine_over(None)._fetch_evaluations(function_family="x")


def test_the_same_list_is_not_changed():
    evals = [evaluation(submitted=False), evaluation(submitted=True)]
    before = list(evals)
    engine_over(evals)._fetch_evaluations(eval_pool=EvalPool.SUBMITTED, feature_family="price")
    assert evals == before


def test_errors_of_the_tracker_pass_unchanged():
    error = KeyError("mine")
    engine = engine_over([])
    engine._tracker.get_evaluation_history = failing(error)
    with pytest.raises(KeyError) as caught:
        engine._fetch_evaluations()
    assert caught.value is error


def test_a_tracker_without_history_is_an_attribute_error():
    engine = engine_over([])
    engine._tracker = SimpleNamespace()
    with pytest.raises(AttributeError, match="no attribute 'get_evaluation_history'"):
        engine._fetch_evaluations()


def test_a_record_without_submitted_is_an_attribute_error():
    with pytest.raises(AttributeError, match="no attribute 'submitted'"):
        engine_over([SimpleNamespace()])._fetch_evaluations(eval_pool=EvalPool.SUBMITTED)


def test_stop_iteration_inside_a_usage_filter_becomes_a_runtime_error():
    """The search of a record's items is a generator, as `any(... for ...)` makes it."""

    class Item(dict):
        get = failing(StopIteration("mine"))

    record = evaluation(function_metadata=[Item()])
    with pytest.raises(RuntimeError, match="generator raised StopIteration"):
        engine_over([record])._fetch_evaluations(function_family="x")


def test_a_filter_equal_to_nothing_compares_with_each_value():
    class Anything:
        def __eq__(self, other):
            return other == "smoothing"

        __hash__ = None

    assert len(engine_over([evaluation()])._fetch_evaluations(function_family=Anything())) == 1


def record_of(cls, **overrides):
    """An evaluation of a class of its own, whose attributes have the order of `cls.order`."""
    fields = vars(evaluation(**overrides))
    record = cls()
    for name in cls.order(fields):
        setattr(record, name, fields[name])
    return record


def test_filters_that_are_reached_by_turns_know_each_class():
    """The second filter meets one class, then the other, in which items stand elsewhere."""
    forward = type("Forward", (), {"order": staticmethod(list)})
    backward = type("Backward", (), {"order": staticmethod(lambda fields: reversed(list(fields)))})
    other = [function_item("f", "other")]
    evals = [
        *(record_of(backward) for _ in range(3)),
        *(record_of(forward, function_metadata=other) for _ in range(3)),
        *(record_of(forward) for _ in range(3)),
    ]
    engine = engine_over(evals)
    kept = engine._fetch_evaluations(function_family="smoothing", feature_family="price")
    assert kept == [*evals[:3], *evals[6:]]
    assert engine._fetch_evaluations(function_family="smoothing", feature_family="none") == []
