"""Evaluations and passes per hour over trailing windows, and the trend."""

from __future__ import annotations

from fractions import Fraction
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import SearchVelocityResult, VelocityWindow
from support.environment import failing
from support.parts import FILTERS, NOW, engine_over, evaluation

NO_WINDOWS = "windows must be None or a non-empty list of positive integers."


def velocity(evals, windows=None, **arguments):
    return engine_over(evals).get_search_velocity(windows=windows, **arguments)


def aged(*minutes, passed=True):
    return [evaluation(timestamp=NOW - 60 * age, passed_thresholds=passed) for age in minutes]


def refusal(windows, **arguments):
    engine = engine_over([])
    engine._tracker.get_evaluation_history = failing(AssertionError("asked"))
    with pytest.raises(ValueError) as caught:  # noqa: PT011 - callers compare the whole text
        engine.get_search_velocity(windows=windows, **arguments)
    return str(caught.value)


pytestmark = pytest.mark.usefixtures("now")


def test_the_default_windows_are_an_hour_six_hours_and_a_day():
    result = velocity(aged(30, 90, 700, 2000))
    assert [window.window_minutes for window in result.windows] == [60, 360, 1440]
    assert [window.total_evaluations for window in result.windows] == [1, 2, 3]
    assert type(result) is SearchVelocityResult


def test_rates_are_per_hour():
    result = velocity([*aged(1, 2), *aged(3, passed=False)], [30, 120])
    assert result.windows == [
        VelocityWindow(30, 6.0, 4.0, 3, 2),
        VelocityWindow(120, 1.5, 1.0, 3, 2),
    ]
    assert [type(value) for value in vars(result.windows[0]).values()] == [
        *(int, float, float, int, int)
    ]


def test_windows_keep_the_requested_order_and_repetition():
    windows = velocity(aged(1), [60, 1, 60]).windows
    assert [window.window_minutes for window in windows] == [60, 1, 60]
    assert windows[0] == windows[2]
    assert windows[0] is not windows[2]


def test_an_evaluation_exactly_on_the_cut_off_belongs_to_the_window():
    evals = [evaluation(timestamp=NOW - 3600), evaluation(timestamp=NOW - 3600.001)]
    assert velocity(evals, [60]).windows[0].total_evaluations == 1


def test_a_window_longer_than_the_history_holds_all_of_it_at_a_lower_rate():
    evals = aged(1, 2, 3)
    short, long = velocity(evals, [60, 6000]).windows
    assert short.total_evaluations == long.total_evaluations == 3
    assert long.evaluations_per_hour == 3 / 100.0 < short.evaluations_per_hour


def test_passes_are_truthy_marks():
    evals = [evaluation(passed_thresholds=mark) for mark in ("yes", 0, None, 1, [])]
    assert velocity(evals, [60]).windows[0].total_passed == 2


@pytest.mark.parametrize("evals", [[], ()], ids=repr)
def test_no_evaluations_still_report_each_window(evals):
    result = velocity(evals)
    assert result.trend == "insufficient_data"
    assert result.windows == [VelocityWindow(minutes) for minutes in (60, 360, 1440)]
    assert type(result.windows[0].passes_per_hour) is float


@pytest.mark.parametrize("empty", [[], (), {}, ""], ids=repr)
def test_no_windows_are_refused(empty):
    assert refusal(empty) == NO_WINDOWS


@pytest.mark.parametrize(
    ("windows", "text"),
    [
        ([60, 0], "0"),
        ([-5], "-5"),
        ([60, -1.5, 0], "-1.5"),
        ([False], "False"),
        ([float("-inf")], "-inf"),
        ([Fraction(-1, 2)], "-1/2"),
    ],
    ids=repr,
)
def test_the_first_window_that_is_not_positive_is_reported(windows, text):
    assert refusal(windows) == f"window size must be positive, got {text}."


def test_checks_stand_in_their_order():
    assert refusal([], eval_type="x").startswith("eval_type must be")
    assert refusal([0], eval_type="x").startswith("eval_type must be")


@pytest.mark.parametrize(
    ("windows", "text"),
    [
        (5, "object of type 'int' has no len()"),
        (["60"], "'<=' not supported between instances of 'str' and 'int'"),
        ([None], "'<=' not supported between instances of 'NoneType' and 'int'"),
        ("60", "'<=' not supported between instances of 'str' and 'int'"),
    ],
    ids=repr,
)
def test_wrong_types_fail_before_the_tracker_is_asked(windows, text):
    engine = engine_over([])
    with pytest.raises(TypeError) as caught:
        engine.get_search_velocity(windows=windows)
    assert str(caught.value) == text
    assert engine._tracker.calls == []


def test_any_positive_number_is_a_window():
    evals = aged(0.25, 1)
    windows = velocity(evals, [0.5, True, Fraction(1, 2), 10**6]).windows
    assert [window.total_evaluations for window in windows] == [1, 2, 1, 2]
    assert [window.window_minutes for window in windows] == [0.5, True, Fraction(1, 2), 10**6]
    assert windows[1].window_minutes is True
    assert windows[0].evaluations_per_hour == 1 / (0.5 / 60.0)


def test_a_window_that_is_no_number_holds_nothing():
    (window,) = velocity(aged(1), [float("nan")]).windows
    assert (window.total_evaluations, window.evaluations_per_hour) == (0, 0.0)


def test_an_endless_window_holds_everything_at_no_rate():
    (window,) = velocity(aged(1), [float("inf")]).windows
    assert (window.total_evaluations, window.evaluations_per_hour) == (1, 0.0)


def test_a_window_of_no_length_in_hours_has_no_rate():
    """The smallest number is positive, but a sixtieth of it is not."""
    (window,) = velocity([evaluation(timestamp=NOW)], [5e-324]).windows
    assert (window.total_evaluations, window.evaluations_per_hour) == (1, 0.0)


def test_a_window_beyond_every_float_is_an_overflow_error():
    with pytest.raises(OverflowError):
        velocity(aged(1), [10**400])


def trend(short_passes, long_passes, short=60, long=120):
    """The trend of two windows with so many passes each (of at least ten evaluations)."""
    evals = aged(*[1] * short_passes)
    evals += aged(*[short + 1] * (long_passes - short_passes))
    evals += aged(*[1] * 10, passed=False)
    return velocity(evals, [short, long]).trend


@pytest.mark.parametrize(
    ("short", "long", "expected"),
    [
        (10, 20, "stable"),
        (12, 20, "stable"),
        (13, 20, "rising"),
        (8, 20, "stable"),
        (7, 20, "declining"),
        (0, 0, "stable"),
        (1, 1, "rising"),
        (0, 1, "declining"),
    ],
)
def test_the_trend_compares_passes_of_the_shortest_and_the_longest(short, long, expected):
    assert trend(short, long) == expected


def test_comparisons_of_the_trend_are_strict_products():
    # 12 per hour against 10 * 1.2: equal, thus stable; 8 against 10 * 0.8 likewise.
    assert 10.0 * 1.2 == 12.0
    assert 10.0 * 0.8 == 8.0
    assert trend(12, 20) == trend(8, 20) == "stable"


def test_nine_evaluations_in_any_window_are_too_few():
    assert velocity(aged(*[1] * 9), [60]).trend == "insufficient_data"
    assert velocity(aged(*[1] * 10), [60]).trend == "stable"
    many = aged(*[1] * 9, *[90] * 50)
    assert velocity(many, [60, 120]).trend == "insufficient_data"
    assert velocity(many, [120, 60]).trend == "insufficient_data"


def test_one_window_is_both_shortest_and_longest():
    assert velocity(aged(*[1] * 10), [60]).trend == "stable"
    assert velocity(aged(*[1] * 10), [60, 60]).trend == "stable"


def test_the_order_of_the_windows_does_not_change_the_trend():
    evals = aged(*[1] * 20, *[90] * 5)
    for windows in ([60, 120, 90], [120, 60, 90], [90, 120, 60]):
        assert velocity(evals, windows).trend == "rising"


def test_among_equal_lengths_the_first_is_taken():
    # A record whose mark changes with each reading tells the two equal windows apart.
    class Record:
        timestamp = NOW

        def __init__(self):
            self.reads = 0

        @property
        def passed_thresholds(self):
            self.reads += 1
            return self.reads == 1

    windows = velocity([Record() for _ in range(10)], [60, 60]).windows
    assert [window.total_passed for window in windows] == [10, 0]
    assert velocity([Record() for _ in range(10)], [60, 60]).trend == "stable"


def test_records_are_filtered_once_per_window():
    reads = []

    class Record:
        passed_thresholds = True

        @property
        def timestamp(self):
            reads.append("stamp")
            return NOW

    velocity([Record(), Record()], [1, 2, 3])
    assert len(reads) == 6


def test_a_time_stamp_of_none_is_a_type_error():
    with pytest.raises(TypeError, match="'>=' not supported between instances of 'NoneType'"):
        velocity([evaluation(timestamp=None)])


def test_passes_are_read_only_inside_the_window():
    class Record:
        timestamp = 0
        passed_thresholds = property(failing(AssertionError("read")))

    assert velocity([Record()], [60]).windows[0].total_evaluations == 0


def test_every_filter_reaches_the_fetch_by_keyword():
    fetched = []
    engine = engine_over([])
    engine._fetch_evaluations = lambda *args, **kwargs: fetched.append((args, kwargs)) or []
    values = {name: object() for name in FILTERS} | {"eval_type": "strategy"}
    engine.get_search_velocity(**values)
    assert fetched == [((), values)]


def test_no_history_at_all_is_a_type_error():
    with pytest.raises(TypeError, match="'NoneType' object is not iterable"):
        velocity(None)


def test_the_given_list_of_windows_is_not_changed():
    windows = [60, 30]
    velocity(aged(1), windows)
    assert windows == [60, 30]


class Plain:
    """A record that can be read by looking at it."""

    def __init__(self, age, passed=True):
        self.timestamp = NOW - 60 * age
        self.passed_thresholds = passed


@pytest.mark.parametrize("passed", [True, False, 1, 0, "yes", None])
def test_plain_records_count_like_any_others(passed):
    evals = [Plain(age, passed) for age in (0, 59, 60, 61, 359, 361, 1441)]
    windows = velocity(evals).windows
    assert [window.total_evaluations for window in windows] == [3, 5, 6]
    assert [window.total_passed for window in windows] == [3, 5, 6] if passed else [0, 0, 0]


@pytest.mark.parametrize(
    "stamp", [0, NOW, Fraction(NOW), True], ids=["zero", "float", "fraction", "bool"]
)
def test_a_time_stamp_of_another_number_type_among_floats(stamp):
    evals = [Plain(0) for _ in range(5)]
    evals[3].timestamp = stamp
    expected = 5 if stamp == NOW else 4
    assert velocity(evals, [60]).windows[0].total_evaluations == expected


@pytest.mark.parametrize("place", [0, 3, 5])
def test_a_record_that_changes_the_others_does_so_in_its_turn(place):
    """It is asked once for each window; each time, another record leaves the window."""

    class Sending:
        passed_thresholds = True

        @property
        def timestamp(self):
            evals[-1 - len(asked)].timestamp = 0.0
            asked.append(1)
            return NOW

    asked = []
    evals = [Plain(0) for _ in range(12)]
    evals.insert(place, Sending())
    windows = velocity(evals, [1, 2, 3]).windows
    assert [window.total_evaluations for window in windows] == [12, 11, 10]
    assert len(asked) == 3


def test_a_window_too_long_to_reckon_with_fails_after_the_shorter_ones():
    class ReadError(Exception):
        pass

    class Failing(Plain):
        @property
        def timestamp(self):
            raise ReadError

        @timestamp.setter
        def timestamp(self, value):
            pass

    with pytest.raises(OverflowError):
        velocity([Plain(0)], [60, 10**400])
    with pytest.raises(ReadError):
        velocity([Failing(0)], [60, 10**400])


def test_a_replaced_record_class_is_called_between_the_windows(monkeypatch):
    import kestrune.search_analytics as module

    class Window(VelocityWindow):
        def __init__(self, **fields):
            super().__init__(**fields)
            evals.append(Plain(0))

    monkeypatch.setattr(module, "VelocityWindow", Window)
    evals = [Plain(0)]
    windows = velocity(evals, [1, 2, 3]).windows
    assert [window.total_evaluations for window in windows] == [1, 2, 3]


class Instant(float):
    """A clock's own kind of number: logs what is subtracted from it."""

    log: list

    def __sub__(self, seconds):
        self.log.append(("cut-off", seconds))
        return Instant.logging(float(self) - seconds, self.log)

    @classmethod
    def logging(cls, value, log):
        made = cls(value)
        made.log = log
        return made


@pytest.mark.parametrize("count", [0, 1, 3])
def test_a_window_is_cut_off_and_counted_before_the_next(monkeypatch, count):
    log = []

    class Record:
        timestamp = property(lambda record: log.append("timestamp") or NOW)
        passed_thresholds = property(lambda record: log.append("passed") or True)

    now = Instant.logging(NOW, log)
    monkeypatch.setattr(search_analytics, "time", SimpleNamespace(time=lambda: now))
    velocity([Record() for _ in range(count)], [1, 2.5])
    walk = ["timestamp"] * count + ["passed"] * count
    assert log == [("cut-off", 60), *walk, ("cut-off", 150.0), *walk]


def test_a_cut_off_is_worked_out_once_for_plain_records(monkeypatch):
    log = []
    now = Instant.logging(NOW, log)
    monkeypatch.setattr(search_analytics, "time", SimpleNamespace(time=lambda: now))
    result = velocity(aged(0.5, 1.5), [1, 2])
    assert [window.total_evaluations for window in result.windows] == [1, 2]
    assert log == [("cut-off", 60), ("cut-off", 120)]
