"""The size of the disagreement between the agent's number and the server's."""

from __future__ import annotations

import math
from decimal import Decimal
from fractions import Fraction
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import _pnl_mi_tamper_delta as delta
from support.environment import failing

INF, NAN = float("inf"), float("nan")
TOLERANCE = 1e-9


@pytest.mark.parametrize(
    ("agent", "server"),
    [
        *((None, 1.0), (1.0, None), (None, None), (None, "abc"), ("abc", None)),
        *(("abc", 1), (1, "abc"), ([], 1), (1, {}), (1j, 1), ("", 1)),
        *((0, 5), (0.0, INF), (-0.0, 5), ("0", 5), (False, 5), (0, 0)),
        *((1, INF), (1, -INF), (1, NAN), (1, "inf"), (NAN, NAN), (INF, INF), (INF, "nan")),
        *((0.5, 0.5), (0.5, 0.5 + 1e-10), (1, True), ("0.25", 0.25), (1e308, 1e308)),
        (1e-9, 0.0),
    ],
    ids=repr,
)
def test_no_usable_disagreement(agent, server):
    assert delta(agent, server) is None


@pytest.mark.parametrize(
    ("agent", "server", "expected"),
    [
        (0.5, 0.6, abs(0.5 - 0.6)),
        (0.6, 0.5, abs(0.6 - 0.5)),
        (-0.5, 0.5, 1.0),
        (1, 0, 1.0),
        ("1.5", "1", 0.5),
        (" 2 ", b"1", 1.0),
        (True, 3, 2.0),
        (Decimal("0.5"), Fraction(1, 4), 0.25),
        (1e308, -1e308, INF),
        (math.nextafter(1e-9, 1.0), 0.0, math.nextafter(1e-9, 1.0)),
        (NAN, 1, INF),
        ("nan", 1, INF),
        (INF, 1, INF),
        (-INF, 1, INF),
    ],
    ids=repr,
)
def test_the_size_of_the_disagreement(agent, server, expected):
    found = delta(agent, server)
    assert type(found) is float
    assert found == expected


def test_the_tolerance_is_absolute_and_strict():
    assert delta(TOLERANCE, 0.0) is None
    assert delta(math.nextafter(TOLERANCE, 1.0), 0.0) is not None
    assert delta(1e20, 1e20 + 1e5) == 1e20 + 1e5 - 1e20


def test_numbers_are_converted_in_order():
    converted = []

    class Number:
        def __init__(self, value):
            self.value = value

        def __float__(self):
            converted.append(self.value)
            return self.value

    assert delta(Number(2.0), Number(3.0)) == 1.0
    assert converted == [2.0, 3.0]


def test_a_value_is_not_converted_when_the_other_is_none():
    class Untouchable:
        __float__ = failing(AssertionError("converted"))

    assert delta(Untouchable(), None) is None
    assert delta(None, Untouchable()) is None


@pytest.mark.parametrize("error", [TypeError("x"), ValueError("x"), UnicodeError("x")], ids=repr)
def test_conversion_errors_mean_no_disagreement(error):
    class Broken:
        __float__ = failing(error)

    assert delta(Broken(), 1) is None
    assert delta(1, Broken()) is None


@pytest.mark.parametrize(
    "error", [OverflowError("x"), KeyError("x"), KeyboardInterrupt(), SystemExit(3)], ids=repr
)
def test_other_conversion_errors_pass(error):
    class Broken:
        __float__ = failing(error)

    for arguments in ((Broken(), 1), (1, Broken())):
        with pytest.raises(type(error)) as caught:
            delta(*arguments)
        assert caught.value is error


def test_an_int_beyond_every_float_is_an_overflow_error():
    with pytest.raises(OverflowError, match="int too large to convert to float"):
        delta(10**400, 1)
    with pytest.raises(OverflowError, match="int too large to convert to float"):
        delta(1, 10**400)


def test_a_float_subclass_is_taken_by_its_value():
    class Mine(float):
        def __sub__(self, other):
            raise AssertionError("the plain value is subtracted")

    assert delta(Mine(2.0), 1.0) == 1.0


@pytest.mark.parametrize(
    ("agent", "server", "asked"),
    [
        (0.0, INF, []),
        (0, 1.0, []),
        (1.0, INF, [INF]),
        (1.0, 2.0, [2.0, 1.0]),
        (INF, 2.0, [2.0, INF]),
    ],
    ids=["zero", "int zero", "infinite server", "finite", "infinite agent"],
)
def test_isfinite_is_asked_no_more_than_it_takes(monkeypatch, agent, server, asked):
    seen = []
    isfinite = lambda value: seen.append(value) or math.isfinite(value)  # noqa: E731
    monkeypatch.setattr(search_analytics, "math", SimpleNamespace(isfinite=isfinite))
    delta(agent, server)
    assert seen == asked


def test_another_isfinite_decides():
    with pytest.MonkeyPatch.context() as patch:
        patch.setattr(search_analytics, "math", SimpleNamespace(isfinite=lambda value: False))
        assert delta(1.0, 2.0) is None
    assert delta(1.0, 2.0) == 1.0
