"""The comparison itself: it tells apart whatever a caller could tell apart."""

from __future__ import annotations

import math
import struct
from collections import OrderedDict
from dataclasses import dataclass
from decimal import Decimal
from enum import Enum
from fractions import Fraction
from types import SimpleNamespace
from typing import Any

import pytest
from model import search_analytics_model as model
from support.outcome import Outcome, capture, describe, describe_error, first_difference


class OwnInt(int):
    pass


class OwnText(str):
    __slots__ = ()


@dataclass
class NewRecord:
    """A record of a class that only one of two implementations may have."""

    total: int


class Colour(Enum):
    RED = 1
    BLUE = 2


def nan(bits: int) -> float:
    value: float = struct.unpack("<d", struct.pack("<Q", bits))[0]
    return value


def shared_pair(together: bool) -> list[list[int]]:
    one = [1]
    return [one, one] if together else [one, [1]]


@pytest.mark.parametrize(
    ("one", "other"),
    [
        pytest.param(1, True, id="int and bool"),
        pytest.param(1, 1.0, id="int and float"),
        pytest.param(0.0, -0.0, id="signs of zero"),
        pytest.param(0.1 + 0.2, 0.3, id="last bit"),
        pytest.param(math.nan, nan(0xFFF8000000000000), id="sign of nan"),
        pytest.param(math.nan, nan(0x7FF8000000000001), id="payload of nan"),
        pytest.param(1, OwnInt(1), id="int subclass"),
        pytest.param("a", OwnText("a"), id="str subclass"),
        pytest.param("a", b"a", id="str and bytes"),
        pytest.param(Fraction(1), 1, id="fraction and int"),
        pytest.param(Decimal("1.0"), Decimal("1.00"), id="digits of a decimal"),
        pytest.param([1, 2], (1, 2), id="list and tuple"),
        pytest.param([1, 2], [2, 1], id="order of a list"),
        pytest.param([1], [1, 2], id="length of a list"),
        pytest.param({"a": 1, "b": 2}, {"b": 2, "a": 1}, id="order of a dict"),
        pytest.param({1: "x"}, {True: "x"}, id="type of a key"),
        pytest.param({}, OrderedDict(), id="dict subclass"),
        pytest.param(frozenset({1}), {1}, id="frozenset and set"),
        pytest.param(frozenset(), frozenset({""}), id="content of a frozenset"),
        pytest.param(Colour.RED, Colour.BLUE, id="members"),
        pytest.param(Colour.RED, 1, id="member and value"),
        pytest.param(model.DepthBucket(1), model.DepthBucket(2), id="fields of a record"),
        pytest.param(NewRecord(1), NewRecord(2), id="fields of a new record"),
        pytest.param(model.DepthBucket(), model.FamilyYield(), id="classes of records"),
        pytest.param(model.DepthBucket(), SimpleNamespace(), id="record and namespace"),
        pytest.param(SimpleNamespace(a=1, b=2), SimpleNamespace(b=2, a=1), id="order of fields"),
        pytest.param(shared_pair(True), shared_pair(False), id="one object and two equal ones"),
        pytest.param(None, False, id="none and false"),
        pytest.param(1j, -1j, id="complex"),
    ],
)
def test_descriptions_of_different_values_differ(one: Any, other: Any) -> None:
    assert describe(one) != describe(other)
    assert first_difference(describe(one), describe(other))


def test_description_names_members_whatever_class_object_they_are_of() -> None:
    other = Enum("Colour", {"RED": 1, "BLUE": 2})  # type: ignore[misc]
    assert describe(Colour.RED) == describe(other.RED)  # type: ignore[attr-defined]


def test_labelled_object_differs_from_an_equal_copy() -> None:
    given = [1, 2]
    labels = {id(given): "given"}
    assert describe(given, labels) != describe(list(given), labels)


def test_cycle_has_a_description() -> None:
    loop: list[Any] = [1]
    loop.append(loop)
    other: list[Any] = [1]
    other.append(other)
    assert describe(loop) == describe(other)


def chained(cause: BaseException | None) -> ValueError:
    error = ValueError("text")
    error.__cause__ = cause
    return error


def missing(name: str) -> AttributeError:
    return AttributeError("'R' object has no attribute", name=name)


@pytest.mark.parametrize(
    ("one", "other"),
    [
        pytest.param(ValueError("a"), ValueError("b"), id="text"),
        pytest.param(ValueError("a"), TypeError("a"), id="type"),
        pytest.param(ValueError("1"), ValueError(1), id="type of an argument"),
        pytest.param(OSError("a"), FileNotFoundError("a"), id="subclass"),
        pytest.param(chained(None), chained(KeyError("k")), id="cause"),
        pytest.param(chained(KeyError("k")), chained(KeyError("j")), id="text of the cause"),
        pytest.param(ImportError("a", name="x"), ImportError("a", name="y"), id="module name"),
        pytest.param(missing("x"), missing("y"), id="attribute name"),
    ],
)
def test_description_of_errors_differs(one: BaseException, other: BaseException) -> None:
    assert describe_error(one) != describe_error(other)


def test_capture_tells_a_returned_error_from_a_raised_one() -> None:
    error = ValueError("text")

    def fail() -> None:
        raise ValueError("text")

    assert capture(lambda: error) != capture(fail)


def test_capture_compares_the_trace_in_order() -> None:
    log: list[Any] = []
    other: list[Any] = []
    one = capture(lambda: log.extend([1, 2]), trace=log)
    two = capture(lambda: other.extend([2, 1]), trace=other)
    assert one != two
    assert "trace" in first_difference(one, two)


@pytest.mark.parametrize(
    ("one", "other", "same"),
    [
        pytest.param([math.nan, 1.0], [nan(0xFFF8000000000000), 1.0], True, id="nan"),
        pytest.param([math.nan, 1.0], [1.0, 1.0], False, id="nan and number"),
        pytest.param([math.nan, 1.0], [math.nan, 2.0], False, id="number beside a nan"),
        pytest.param([math.nan], [math.nan, math.nan], False, id="length"),
    ],
)
def test_outcomes_can_be_the_same_but_for_nans(one: Any, other: Any, same: bool) -> None:
    first, second = Outcome("value", describe(one)), Outcome("value", describe(other))
    assert first.same_but_for_nans(second) is same
