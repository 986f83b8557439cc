"""Building an engine, what it holds, and which evaluation types it knows."""

from __future__ import annotations

import copy
import pickle
from decimal import Decimal
from fractions import Fraction
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import SearchAnalytics
from support.environment import failing
from support.parts import RecordingTracker, engine_over, evaluation, pool

NOT_POSITIVE = "correlation threshold must be positive."


def error_of(call, *args):
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - callers compare the whole text
        call(*args)
    assert type(caught.value) is ValueError
    return str(caught.value)


def test_an_engine_holds_tracker_and_pools_as_given():
    tracker, pools = object(), (pool(),)
    engine = SearchAnalytics(tracker, pools)
    assert vars(engine) == {"_tracker": tracker, "_pool_configs": pools}
    assert list(vars(engine)) == ["_tracker", "_pool_configs"]
    assert engine._pool_configs is pools


def test_arguments_may_be_keywords():
    tracker, pools = object(), [pool()]
    engine = SearchAnalytics(pool_configs=pools, search_tracker=tracker)
    assert (engine._tracker, engine._pool_configs) == (tracker, pools)


def test_a_tracker_is_required_and_checked_first():
    assert error_of(SearchAnalytics, None, []) == "search_tracker must not be None."


def test_a_falsy_tracker_is_a_tracker():
    assert SearchAnalytics(0, [pool()])._tracker == 0


@pytest.mark.parametrize("empty", [[], None, (), {}, 0, ""], ids=repr)
def test_pools_are_required(empty):
    assert error_of(SearchAnalytics, object(), empty) == "pool_configs must be non-empty."


class Nothing:
    """A pool without a threshold."""


@pytest.mark.parametrize(
    "threshold",
    [True, False, 0, 0.0, -0.5, -1, "0.3", None, Decimal("0.3"), Fraction(1, 3), 1j, float("-inf")],
    ids=repr,
)
def test_a_threshold_must_be_a_positive_number(threshold):
    assert error_of(SearchAnalytics, object(), [pool("a", threshold)]) == NOT_POSITIVE


def test_a_missing_threshold_is_not_positive():
    assert error_of(SearchAnalytics, object(), [Nothing()]) == NOT_POSITIVE


def test_thresholds_of_a_mapping_are_not_seen():
    assert error_of(SearchAnalytics, object(), [{"is_correlation_threshold": 0.5}]) == NOT_POSITIVE


@pytest.mark.parametrize(
    "threshold",
    [0.3, 1, 10**400, 5e-324, float("inf"), float("nan"), 2.5],
    ids=lambda x: str(x)[:9],
)
def test_positive_numbers_are_accepted(threshold):
    """NaN is not `<= 0.0` either."""
    pools = [pool("a", threshold)]
    assert SearchAnalytics(object(), pools)._pool_configs is pools


def test_the_check_stops_at_the_first_bad_pool():
    class Untouchable:
        is_correlation_threshold = property(failing(AssertionError("read")))

    assert (
        error_of(SearchAnalytics, object(), [pool(), pool("b", 0), Untouchable()]) == NOT_POSITIVE
    )


def test_errors_of_a_pool_pass_unchanged():
    error = KeyError("mine")

    class Broken:
        is_correlation_threshold = property(failing(error))

    with pytest.raises(KeyError) as caught:
        SearchAnalytics(object(), [Broken()])
    assert caught.value is error


def test_pools_that_cannot_be_iterated_are_a_type_error():
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        SearchAnalytics(object(), 5)


def test_an_iterator_of_pools_is_consumed_by_the_check():
    pools = iter([pool()])
    engine = SearchAnalytics(object(), pools)
    assert engine._pool_configs is pools
    assert list(pools) == []


def test_nothing_is_stored_when_the_check_fails():
    engine = SearchAnalytics.__new__(SearchAnalytics)
    assert error_of(engine.__init__, object(), []) == "pool_configs must be non-empty."
    assert vars(engine) == {}


def test_initialising_again_replaces_both_fields():
    engine = engine_over([])
    tracker, pools = object(), [pool()]
    assert engine.__init__(tracker, pools) is None
    assert vars(engine) == {"_tracker": tracker, "_pool_configs": pools}


@pytest.mark.parametrize("known", [None, "signal", "strategy"])
def test_known_evaluation_types(known):
    assert engine_over([])._validate_eval_type(known) is None


@pytest.mark.parametrize(
    ("unknown", "text"),
    [
        ("x", "x"),
        ("Signal", "Signal"),
        (" signal", " signal"),
        ("", ""),
        (3, "3"),
        (True, "True"),
        (b"signal", "b'signal'"),
        (1.5, "1.5"),
        (search_analytics.EvalPool.ALL, "EvalPool.ALL"),
    ],
    ids=repr,
)
def test_unknown_evaluation_types(unknown, text):
    assert error_of(engine_over([])._validate_eval_type, unknown) == (
        f"eval_type must be 'signal', 'strategy', or None, got '{text}'."
    )


def test_the_unknown_type_is_formatted_not_printed():
    class Formatted:
        def __format__(self, form):
            return f"formatted with {form!r}"

        __str__ = failing(AssertionError("printed"))

    assert error_of(engine_over([])._validate_eval_type, Formatted()) == (
        "eval_type must be 'signal', 'strategy', or None, got 'formatted with '''."
    )


def test_a_type_that_cannot_be_formatted_raises_its_own_error():
    class Unformattable:
        __format__ = failing(LookupError("mine"))

    with pytest.raises(LookupError, match="mine"):
        engine_over([])._validate_eval_type(Unformattable())


def test_types_are_compared_by_equality():
    class Signal:
        def __eq__(self, other):
            return other == "signal"

        __hash__ = None

    assert engine_over([])._validate_eval_type(Signal()) is None


def test_the_text_subclass_of_a_known_type_is_known():
    assert engine_over([])._validate_eval_type(type("Text", (str,), {})("strategy")) is None


def test_the_class_says_what_it_is():
    assert SearchAnalytics.__doc__ == "Analytics engine over search tracking data."
    assert SearchAnalytics.__module__ == "kestrune.search_analytics"
    assert SearchAnalytics.__qualname__ == "SearchAnalytics"
    assert SearchAnalytics.__bases__ == (object,)
    assert type(SearchAnalytics) is type


def test_the_class_can_be_subclassed(now):
    class Mine(SearchAnalytics):
        def __init__(self, tracker, pools, note):
            super().__init__(tracker, pools)
            self.note = note

        def _fetch_evaluations(self, **filters):
            return super()._fetch_evaluations(**filters)[:1]

    mine = Mine(RecordingTracker([evaluation()] * 3), [pool()], "mine")
    assert mine.note == "mine"
    assert mine.get_search_patterns().total_evaluations == 1
    assert isinstance(mine, SearchAnalytics)


def test_the_class_mixes_with_others_and_takes_slots():
    class Slotted(SearchAnalytics):
        __slots__ = ("note",)

    class Mixed(dict, SearchAnalytics):
        def __init__(self):
            SearchAnalytics.__init__(self, "tracker", [pool()])

    mixed = Mixed()
    mixed["a"] = 1
    assert (mixed["a"], mixed._tracker) == (1, "tracker")
    assert Slotted("tracker", [pool()])._tracker == "tracker"


def test_instances_take_attributes():
    engine = engine_over([])
    engine.note = "mine"
    assert vars(engine)["note"] == "mine"
    del engine.note
    with pytest.raises(AttributeError, match="'SearchAnalytics' object has no attribute 'note'"):
        engine.note  # noqa: B018


def test_engines_compare_by_identity_and_are_hashable():
    one, other = engine_over([]), engine_over([])
    assert one != other
    assert {one: 1}[one] == 1
    assert repr(one).startswith("<kestrune.search_analytics.SearchAnalytics object at 0x")


def test_engines_copy_and_pickle_with_their_fields():
    engine = SearchAnalytics({"any": "tracker"}, [pool("a", 0.5)])
    for twin in (copy.copy(engine), copy.deepcopy(engine), pickle.loads(pickle.dumps(engine))):
        assert type(twin) is SearchAnalytics
        assert vars(twin) == vars(engine)
    assert copy.copy(engine)._tracker is engine._tracker


def test_an_engine_without_fields_is_an_attribute_error():
    empty = SearchAnalytics.__new__(SearchAnalytics)
    with pytest.raises(
        AttributeError, match="'SearchAnalytics' object has no attribute '_tracker'"
    ):
        empty.get_search_patterns()


def test_methods_serve_any_object_with_the_fields(now):
    """Methods are functions: `self` may be anything that has what they read."""
    other = SimpleNamespace(_tracker=RecordingTracker([evaluation()]), _pool_configs=[pool()])
    for name in ("_validate_eval_type", "_fetch_evaluations"):
        setattr(other, name, getattr(SearchAnalytics, name).__get__(other))
    assert SearchAnalytics.get_search_patterns(other).total_evaluations == 1
    with pytest.raises(AttributeError, match="'int' object has no attribute '_validate_eval_type'"):
        SearchAnalytics.get_search_patterns(5)


def test_fields_may_be_replaced_between_two_calls(now):
    engine = engine_over([])
    engine._tracker = RecordingTracker([evaluation()])
    engine._pool_configs = [pool("other", 0.9)]
    (row,) = engine.get_search_stats(min_sample_size=0).rows
    assert row.windows[0].submittable_yield == {"other": 1.0}


def test_class_attributes_can_be_added_and_methods_replaced(monkeypatch):
    monkeypatch.setattr(SearchAnalytics, "note", "mine", raising=False)
    monkeypatch.setattr(SearchAnalytics, "get_available_eras", lambda self: "patched")
    assert engine_over([]).note == "mine"
    assert engine_over([]).get_available_eras() == "patched"
