"""Arguments, clocks and trackers that misbehave: the same outcome as the model's."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterator
from enum import Enum
from fractions import Fraction
from types import SimpleNamespace
from typing import Any

import pytest
from differential.traps import OPERATIONS, assert_same, call, engine, plain
from differential.world import NOW, World


class Other(Enum):
    """An enumeration of somebody else."""

    NONE = None
    PAIR = ("function", "feature")
    ONE = ("function",)
    THREE = ("function", "feature", "more")
    TEXT = "ab"
    WRONG = ("feature", "function")


LEVELS: dict[str, Any] = {
    "none": None,
    "text": "function",
    **{f"other {member.name.lower()}": member for member in Other},
    "unhashable level": SimpleNamespace(value=([], "feature")),
    "iterator": SimpleNamespace(value=iter(())),
    "no value": object(),
}


@pytest.mark.parametrize("level", list(LEVELS))
def test_groupings_of_any_kind_agree(level: str) -> None:
    for operation in ("get_search_stats", "get_suggestions"):

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            return call(w, [plain(), plain(1)], operation, aggregate_by=LEVELS[level])

        assert_same(build)


class Window:
    """A window that behaves as it is told when it is hashed or compared."""

    def __init__(self, w: World, equal: Any = False, on_hash: Any = None) -> None:
        self.w, self.equal, self.on_hash = w, equal, on_hash

    def __hash__(self) -> int:
        self.w.note("window", "hash")
        if self.on_hash is not None:
            self.on_hash()
        return 1

    def __eq__(self, other: Any) -> Any:
        self.w.note("window", "eq", str(other))
        if isinstance(self.equal, BaseException):
            raise self.equal
        return self.equal

    def __repr__(self) -> str:
        return "<Window>"


class Lengthy:
    """Has a length, and can be walked only so often."""

    def __init__(self, w: World, windows: list[Any], length: int, walks: int) -> None:
        self.w, self.windows, self.length, self.walks = w, windows, length, walks

    def __len__(self) -> int:
        self.w.note("len")
        return self.length

    def __iter__(self) -> Iterator[Any]:
        self.w.note("iter")
        self.walks -= 1
        if self.walks < 0:
            raise ValueError("walked too often")
        return iter(self.windows)


def _growing(w: World) -> list[Any]:
    windows: list[Any] = []
    windows.append(Window(w, on_hash=lambda: windows.append(w.module.TimeWindow.ERA)))
    return windows


def _shrinking(w: World) -> list[Any]:
    windows: list[Any] = [w.module.TimeWindow.ERA, None, w.module.TimeWindow.LIFETIME]
    windows[1] = Window(w, on_hash=windows.clear)
    return windows


WINDOWS: dict[str, Callable[[World], Any]] = {
    "generator": lambda w: (member for member in w.module.TimeWindow),
    "dictionary": lambda w: dict.fromkeys(w.module.TimeWindow),
    "enumeration": lambda w: w.module.TimeWindow,
    "text": lambda w: "era",
    "repeated text": lambda w: "eea",
    "equal to all": lambda w: [Window(w, True), w.module.TimeWindow.ERA],
    "equal to none": lambda w: [Window(w)],
    "comparison fails": lambda w: [Window(w, ValueError("no window"))],
    "comparison undecided": lambda w: [Window(w, Undecided())],
    "not implemented": lambda w: [Window(w, NotImplemented)],
    "unhashable": lambda w: [[w.module.TimeWindow.ERA]],
    "grows": _growing,
    "shrinks": _shrinking,
    "equal only": lambda w: [1, 1.0],
    "long length": lambda w: Lengthy(w, list(w.module.TimeWindow), 9, 9),
    "true length": lambda w: Lengthy(w, list(w.module.TimeWindow), 4, 9),
    "two walks": lambda w: Lengthy(w, list(w.module.TimeWindow), 4, 2),
    "one walk": lambda w: Lengthy(w, list(w.module.TimeWindow), 4, 1),
    "negative length": lambda w: Lengthy(w, [], -1, 9),
    "raw values": lambda w: ["lifetime", "era"],
}


class Undecided:
    """Without a truth."""

    def __bool__(self) -> bool:
        raise ValueError("ambiguous")


@pytest.mark.parametrize("windows", list(WINDOWS))
def test_time_windows_of_any_kind_agree(windows: str) -> None:
    for era in (None, "era-1", "era-2"):

        def build(w: World, era: Any = era) -> Callable[[], Any]:
            history = [plain(), plain(1, timestamp=NOW - 86400)]
            keywords = {"time_windows": WINDOWS[windows](w), "era_id": era}
            return call(w, history, "get_search_stats", **keywords)

        assert_same(build)


class Comparing:
    """Compares as it is told."""

    def __init__(self, w: World, answer: Any) -> None:
        self.w, self.answer = w, answer

    def _compare(self, what: str) -> Any:
        self.w.note("comparing", what)
        if isinstance(self.answer, BaseException):
            raise self.answer
        return self.answer

    def __lt__(self, other: Any) -> Any:
        return self._compare("lt")

    def __le__(self, other: Any) -> Any:
        return self._compare("le")

    def __gt__(self, other: Any) -> Any:
        return self._compare("gt")

    def __str__(self) -> str:
        self.w.note("comparing", "str")
        return "as written"

    def __format__(self, style: str) -> str:
        self.w.note("comparing", "format")
        return "as formatted"

    def __index__(self) -> int:
        self.w.note("comparing", "index")
        return 1

    def __mul__(self, other: Any) -> Any:
        self.w.note("comparing", "mul")
        return 60

    def __truediv__(self, other: Any) -> Any:
        self.w.note("comparing", "truediv")
        return 1.0


NUMBERS: dict[str, Callable[[World], Any]] = {
    "zero": lambda w: 0,
    "negative": lambda w: -1,
    "half": lambda w: 0.5,
    "minus zero": lambda w: -0.0,
    "true": lambda w: True,
    "false": lambda w: False,
    "nan": lambda w: math.nan,
    "inf": lambda w: math.inf,
    "minus inf": lambda w: -math.inf,
    "fraction": lambda w: Fraction(3, 2),
    "huge": lambda w: 10**400,
    "huge and negative": lambda w: -(10**5000),
    "text": lambda w: "1",
    "none": lambda w: None,
    "complex": lambda w: 1j,
    "says false": lambda w: Comparing(w, False),
    "says true": lambda w: Comparing(w, True),
    "says nothing": lambda w: Comparing(w, NotImplemented),
    "fails": lambda w: Comparing(w, ValueError("no comparison")),
    "undecided": lambda w: Comparing(w, Undecided()),
}

NUMERIC = [
    ("get_search_stats", "min_sample_size"),
    ("get_suggestions", "min_sample_size"),
    ("get_suggestions", "top_n"),
    ("get_correlation_patterns", "top_n"),
    ("get_yield_analysis", "recent_window_minutes"),
    ("get_search_velocity", "windows"),
]


@pytest.mark.parametrize("number", list(NUMBERS))
@pytest.mark.parametrize(("operation", "argument"), NUMERIC)
def test_numbers_of_any_kind_agree(operation: str, argument: str, number: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        value: Any = NUMBERS[number](w)
        if argument == "windows":
            value = [60, value]
        return call(w, [plain(index) for index in range(12)], operation, **{argument: value})

    assert_same(build)


READINGS: dict[str, Callable[[World], Any]] = {
    "text": lambda w: "now",
    "none": lambda w: None,
    "nan": lambda w: math.nan,
    "int": lambda w: int(NOW),
    "huge": lambda w: 10**400,
    "fraction": lambda w: Fraction(int(NOW)),
    "complex": lambda w: 1j,
    "undecided": lambda w: Undecided(),
}


@pytest.mark.parametrize("reading", list(READINGS))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_clocks_of_any_kind_agree(operation: str, reading: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        w.clock = lambda: READINGS[reading](w)
        return call(w, [plain(), plain(1)], operation)

    assert_same(build)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_a_failing_clock_agrees(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        def fail() -> Any:
            raise KeyboardInterrupt

        w.clock = fail
        return call(w, [plain()], operation)

    assert_same(build)


TRACKERS: dict[str, Callable[[World], Any]] = {
    "no method": lambda w: object(),
    "not callable": lambda w: SimpleNamespace(get_evaluation_history=5),
    "takes nothing": lambda w: SimpleNamespace(get_evaluation_history=list),
    "gives none": lambda w: SimpleNamespace(get_evaluation_history=lambda **given: None),
    "interrupts": lambda w: SimpleNamespace(get_evaluation_history=_interrupt),
}


def _interrupt(**given: Any) -> Any:
    raise KeyboardInterrupt


@pytest.mark.parametrize("tracker", list(TRACKERS))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_trackers_of_any_kind_agree(operation: str, tracker: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        target = engine(w, [])
        target._tracker = TRACKERS[tracker](w)
        return lambda: getattr(target, operation)(**OPERATIONS[operation])

    assert_same(build)


@pytest.mark.parametrize(
    ("operation", "keywords"),
    [
        ("get_search_stats", {"eval_type": "x", "min_sample_size": -1, "time_windows": []}),
        ("get_search_stats", {"min_sample_size": -1, "time_windows": []}),
        ("get_search_stats", {"time_windows": [], "pnl_column": 3}),
        ("get_suggestions", {"min_sample_size": -1, "top_n": 0, "eval_type": "x"}),
        ("get_suggestions", {"top_n": 0, "eval_type": "x"}),
        ("get_search_patterns", {"eval_type": "x"}),
        ("get_search_velocity", {"eval_type": "x", "windows": []}),
        ("get_search_velocity", {"windows": [60, 0, -1]}),
        ("get_yield_analysis", {"eval_type": "x", "recent_window_minutes": 0}),
        ("get_yield_analysis", {"recent_window_minutes": 0}),
        ("get_correlation_patterns", {"eval_type": "x", "top_n": 0}),
    ],
    ids=repr,
)
def test_first_of_several_wrong_arguments_is_reported(
    operation: str, keywords: dict[str, Any]
) -> None:
    assert_same(lambda w: call(w, [plain()], operation, **keywords))
