"""Cutting a list of records down to one time window."""

from __future__ import annotations

from fractions import Fraction
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import TimeWindow
from support.environment import failing
from support.parts import NOW, engine_over, evaluation

SECONDS = {TimeWindow.LAST_WEEK: 604800, TimeWindow.LAST_24H: 86400}
RELATIVE = pytest.mark.parametrize("window", SECONDS, ids=lambda window: window.name)


def cut(evals, window, era_id=None, now=NOW):
    return engine_over([])._filter_by_time_window(evals, window, era_id, now)


def stamped(*stamps):
    return [SimpleNamespace(timestamp=stamp) for stamp in stamps]


def of_eras(*eras):
    return [SimpleNamespace(era_id=era) for era in eras]


@pytest.mark.parametrize("era_id", [None, "a"])
def test_lifetime_returns_the_list_itself(era_id):
    evals = [object()]
    assert cut(evals, TimeWindow.LIFETIME, era_id) is evals


def test_the_era_window_without_era_is_the_lifetime():
    evals = of_eras("a", "b")
    assert cut(evals, TimeWindow.ERA) is evals


def test_the_era_window_keeps_records_of_that_era_in_order():
    evals = of_eras("a", "b", "a", None)
    kept = cut(evals, TimeWindow.ERA, "a")
    assert kept == [evals[0], evals[2]]
    assert kept[0] is evals[0]
    assert cut(evals, TimeWindow.ERA, "c") == []


def test_the_era_window_gives_a_new_list_even_when_all_are_kept():
    evals = of_eras("a")
    assert cut(evals, TimeWindow.ERA, "a") == evals
    assert cut(evals, TimeWindow.ERA, "a") is not evals


def test_eras_are_compared_by_equality():
    assert len(cut(of_eras(1, 1.0, True, "1"), TimeWindow.ERA, 1)) == 3
    assert cut(of_eras(float("nan")), TimeWindow.ERA, float("nan")) == []
    assert cut(of_eras(""), TimeWindow.ERA, "") != []


@RELATIVE
def test_a_record_exactly_on_the_cut_off_is_kept(window):
    edge = NOW - SECONDS[window]
    on, before, after = stamped(edge, edge - 1, edge + 1)
    assert cut([before, on, after], window) == [on, after]


@RELATIVE
def test_time_stamps_of_any_number_type_are_compared(window):
    now = 2**53 + SECONDS[window] + 1
    evals = stamped(2**53 + 1, 2**53, float(2**53), Fraction(2**53 + 1), 10**400, True)
    assert cut(evals, window, None, now) == [evals[0], evals[3], evals[4]]


@RELATIVE
def test_the_future_is_kept_and_nan_is_not(window):
    evals = stamped(NOW + 1e9, float("nan"), float("inf"), float("-inf"))
    assert cut(evals, window) == [evals[0], evals[2]]


@RELATIVE
def test_a_time_stamp_of_none_is_a_type_error(window):
    with pytest.raises(TypeError) as caught:
        cut(stamped(None), window)
    assert str(caught.value) == ("'>=' not supported between instances of 'NoneType' and 'float'")


@RELATIVE
def test_a_record_without_time_stamp_is_an_attribute_error(window):
    with pytest.raises(AttributeError, match="no attribute 'timestamp'"):
        cut([SimpleNamespace()], window)


@RELATIVE
def test_the_cut_off_is_relative_to_the_clock_not_to_the_newest_record(window):
    assert cut(stamped(0, 1, 2), window, None, SECONDS[window] + 1) == stamped(1, 2)


@RELATIVE
def test_a_clock_that_is_no_number_is_a_type_error(window):
    with pytest.raises(TypeError, match="unsupported operand"):
        cut([], window, None, "now")


@pytest.mark.parametrize("other", ["lifetime", "last_week", None, 5], ids=repr)
def test_any_other_window_returns_the_list_itself(other):
    evals = [object()]
    assert cut(evals, other, "a", "no number") is evals


def test_windows_are_compared_by_equality_in_their_order():
    compared = []

    class Window:
        def __eq__(self, other):
            compared.append(other)
            return False

        __hash__ = None

    evals = []
    assert cut(evals, Window()) is evals
    assert compared == list(TimeWindow)


def test_records_may_come_from_any_iterable():
    assert len(cut(iter(of_eras("a", "b")), TimeWindow.ERA, "a")) == 1
    with pytest.raises(TypeError, match="'NoneType' object is not iterable"):
        cut(None, TimeWindow.LAST_WEEK)


def test_errors_of_a_comparison_pass_unchanged():
    error = LookupError("mine")

    class Stamp:
        __ge__ = failing(error)

    with pytest.raises(LookupError) as caught:
        cut(stamped(Stamp()), TimeWindow.LAST_24H)
    assert caught.value is error


def test_the_given_list_is_not_changed():
    evals = stamped(0, NOW)
    before = list(evals)
    cut(evals, TimeWindow.LAST_24H)
    assert evals == before


class Clearing:
    """An era that equals any other; a comparison, after some others, empties the history."""

    def __init__(self, evals, others):
        self.evals, self.others = evals, others

    def __eq__(self, other):
        if self.others == 0:
            self.evals.clear()
        self.others -= 1
        return True

    __hash__ = None


@pytest.mark.parametrize("side", ["wanted", "found"])
def test_a_record_that_a_comparison_drops_is_kept(side):
    evals = [evaluation(sharpe=float(number)) for number in range(9)]
    if side == "found":
        wanted = "era-1"
        evals[4].era_id = Clearing(evals, 0)
    else:
        wanted = Clearing(evals, 4)
    kept = cut(evals, TimeWindow.ERA, wanted)
    assert [record.sharpe for record in kept] == [0.0, 1.0, 2.0, 3.0, 4.0]
    assert evals == []
