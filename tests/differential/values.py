"""Single values of generated cases: numbers, truths, names, times."""

from __future__ import annotations

import math
from datetime import datetime, timezone
from decimal import Decimal
from fractions import Fraction
from typing import Any

from differential.hooks import (
    HookedEquality,
    HookedLength,
    HookedNumber,
    HookedOrder,
    HookedText,
    HookedTruth,
    HookedWords,
    hooked,
)
from differential.world import NANS, NOW, World


class PlainInt(int):
    """An integer of its own kind."""


class PlainFloat(float):
    """A float of its own kind."""


class GreedyFloat(float):
    """A float of its own kind that keeps its kind when something is added to it."""

    def __radd__(self, other: Any) -> Any:
        return GreedyFloat(float(other) + float(self))

    def __add__(self, other: Any) -> Any:
        return GreedyFloat(float(self) + float(other))


class PlainText(str):
    """A string of its own kind."""

    __slots__ = ()


def world_nan(w: World) -> float:
    """This world's one not-a-number among the statistics (arithmetic can make another)."""
    w.mixes_nans = True
    return w.nan


CLEAN_NUMBERS = (0.5, 0.25, 0.0, 1.0, 2.0, -0.75, 0.1, 0.2, 0.7, 1e-3, 3.3, -1.1, 0.01, 12.5)

ODD_NUMBERS = (
    1,
    0,
    -3,
    True,
    False,
    -0.0,
    math.inf,
    -math.inf,
    2**53 + 1,
    -(2**70),
    5e-324,
    1.7e308,
    -1.7e308,
    1e16,
    PlainInt(2),
    PlainFloat(0.25),
    GreedyFloat(0.3),
    Fraction(1, 3),
    Fraction(-7, 2),
)

BROKEN_NUMBERS = (None, "1.5", Decimal("0.1"), 1 + 2j, 10**400, [], "", object)


def number(w: World) -> Any:
    """A statistic."""
    if w.broken():
        return w.pick(BROKEN_NUMBERS)
    if w.odd():
        if w.chance(10):
            return HookedNumber(w.note, "number", w.pick((0.5, 2, 0.0)))
        if w.chance(10):
            return world_nan(w)
        return w.pick(ODD_NUMBERS)
    if w.chance(30):
        return w.below(4001) / 997.0 - 1.5
    return w.pick(CLEAN_NUMBERS)


def correlation(w: World) -> Any:
    """A correlation, often exactly on a threshold."""
    if w.chance(40):
        return w.pick((0.5, 0.7, 0.3, -0.9))
    if w.odd(6):
        return HookedOrderedFloat(w)
    return number(w)


def HookedOrderedFloat(w: World) -> Any:  # noqa: N802
    """A float of its own kind whose comparisons are logged."""
    value = _LoggingFloat(w.pick((0.5, 0.1, 0.9)))
    value.world = w
    return value


class _LoggingFloat(float):
    world: World

    def __lt__(self, other: Any) -> Any:
        self.world.note("float", "lt")
        return float.__lt__(self, other)

    def __gt__(self, other: Any) -> Any:
        self.world.note("float", "gt")
        return float.__gt__(self, other)

    def __le__(self, other: Any) -> Any:
        self.world.note("float", "le")
        return float.__le__(self, other)


ERRORS = (
    ValueError("hostile"),
    KeyError("hostile"),
    AttributeError("hostile"),
    StopIteration("hostile"),
    KeyboardInterrupt(),
    GeneratorExit(),
    RecursionError("hostile"),
)


def fresh_error(w: World) -> BaseException:
    """An exception of its own for this world."""
    chosen = w.pick(ERRORS)
    return type(chosen)(*chosen.args)


def truth(w: World) -> Any:
    """A flag such as `passed_thresholds`."""
    if w.broken(2):
        return HookedTruth(w.note, "truth", w.pick((fresh_error(w), 1, "yes", None)))
    if w.odd(15):
        return w.pick((1, 0, "", "x", None, [], [0], 0.0, NANS[0], -1, (), {}))
    if w.odd(5):
        return HookedTruth(w.note, "truth", w.pick((True, False)))
    if w.odd(3):
        return HookedLength(w.note, "length", w.pick((0, 3)))
    return w.pick((True, False))


CLEAN_AGES = (0, 60, 30, 3599, 3600, 3601, 21600, 86400, 86401, 604800, 604801, 2_000_000)


def timestamp(w: World) -> Any:
    """A time stamp, often exactly on a cut-off."""
    if w.broken():
        return w.pick((None, "yesterday", datetime(2024, 1, 1, tzinfo=timezone.utc), 1j, []))
    if w.odd(15):
        odd = (
            int(NOW) - 86400,
            int(NOW) - 604801,
            True,
            math.nan,
            math.inf,
            -math.inf,
            10**400,
            2**53 + 1,
            Fraction(int(NOW) - 86400),
            Decimal(int(NOW) - 604800),
            PlainFloat(NOW),
        )
        return w.pick(odd)
    if w.odd(4):
        return HookedOrder(w.note, "time", w.pick((NOW, 0.0, NOW - 86400)))
    if w.broken(2):
        return HookedOrder(w.note, "time", fresh_error(w))
    return NOW - w.pick(CLEAN_AGES)


def era(w: World) -> Any:
    """An era's id."""
    if w.odd(10):
        return w.pick((None, 7, 7.0, "", NANS[0], PlainText("era-1"), ("era-1",)))
    if w.odd(4):
        return HookedEquality(w.note, "era", w.pick(("era-1", 7)))
    if w.broken(3):
        return HookedEquality(w.note, "era", fresh_error(w))
    return w.pick(("era-1", "era-2", "era-3"))


CLEAN_NAMES = ("sma", "ema", "rank", "decay", "zscore", "a", "b", "c", "ts_mean", "délai", "次")
CLEAN_FAMILIES = ("trend", "reversion", "volatility", "rank", "smoothing")


def name(w: World, names: tuple[str, ...] = CLEAN_NAMES) -> Any:
    """The name of a function, a feature, or one of their families."""
    if w.broken(2):
        return w.pick(([], {}, _bad_name(w), 3, None))
    if w.odd(4):
        return w.pick((7, 7.0, True, 0, ("a", "b"), b"sma", NANS[0], frozenset({"a"})))
    if w.odd(8):
        return w.pick(("", "\ud800", "a\0b", "x" * 300, PlainText("sma"), PlainText("")))
    if w.odd(4):
        return hooked(HookedText, w.note, "name", w.pick(names))
    if w.odd(2):
        return HookedWords(w.note, "words", w.pick(names))
    return w.pick(names)


def _bad_name(w: World) -> Any:
    if w.chance(50):
        return HookedEquality(w.note, "bad name", fresh_error(w))
    return HookedWords(w.note, "bad words", w.pick((fresh_error(w), 5)))


def depth(w: World) -> Any:
    """A tree depth."""
    if w.broken():
        return w.pick((None, "3", [], {}, 1j, HookedEquality(w.note, "depth", fresh_error(w))))
    if w.odd(10):
        return w.pick((True, 1.0, -0.0, 0, 2.5, NANS[0], PlainInt(3), Fraction(5, 2), math.nan))
    return 1 + w.below(5)
