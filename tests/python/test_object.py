"""Comparison and truth as Python has them: of identical objects, of texts, of whatever answers."""

from __future__ import annotations

import math
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from differential.traps import assert_same, call, fields, plain, trap
from differential.world import World
from support.records import SlotRecord

NAN = math.nan


class OwnText(str):
    __slots__ = ()


class Answering:
    """An object that answers every comparison, and every question for its truth, as it is told."""

    def __init__(self, w: World, answer: Any) -> None:
        self.w, self.answer = w, answer

    def __eq__(self, other: Any) -> Any:
        self.w.note("eq", type(other).__name__)
        if isinstance(self.answer, BaseException):
            raise self.answer
        return self.answer

    __hash__ = None  # type: ignore[assignment]


class Undecided:
    def __bool__(self) -> bool:
        raise ValueError("neither")


# What is wanted, and what a record has.
COMPARED: dict[str, tuple[Any, Any]] = {
    "equal texts": ("era-1", "".join(["era", "-1"])),
    "texts of one length": ("era-1", "era-2"),
    "texts of other kinds": ("ära", "\u0456ra"),
    "text and nothing": ("era-1", None),
    "own text wanted": (OwnText("era-1"), "era-1"),
    "own text found": ("era-1", OwnText("era-1")),
    "identical nan": (NAN, NAN),
    "numbers of two types": (1, 1.0),
    "text and bytes": ("a", ("a",)),
    "containers": ([NAN], [NAN]),
}


@pytest.mark.parametrize("pair", COMPARED)
@pytest.mark.parametrize("make", [SlotRecord, SimpleNamespace, plain])
def test_what_is_wanted_is_compared_as_by_python(make: Any, pair: str) -> None:
    wanted, found = COMPARED[pair]

    def build(w: World) -> Callable[[], Any]:
        values = [fields(i, era_id=found if i % 2 else "era-1") for i in range(8)]
        history = [make(**each) for each in values]
        return call(w, history, "get_search_stats", era_id=wanted)

    assert_same(build)


ANSWERS: dict[str, Callable[[], Any]] = {
    "true": lambda: True,
    "number": lambda: 2,
    "empty list": list,
    "not known": lambda: NotImplemented,
    "without a truth": Undecided,
    "failure": lambda: ValueError("not now"),
}


@pytest.mark.parametrize("answer", ANSWERS)
def test_an_answer_to_a_comparison_is_its_truth(answer: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(i) for i in range(4)]
        history[2].era_id = Answering(w, ANSWERS[answer]())
        return call(w, history, "get_search_stats")

    assert_same(build)


@pytest.mark.parametrize("attribute", ["function_family", "feature_family"])
@pytest.mark.parametrize("pair", COMPARED)
def test_a_filter_compares_as_python_does(pair: str, attribute: str) -> None:
    wanted, found = COMPARED[pair]
    side = attribute.partition("_")[0]

    def build(w: World) -> Callable[[], Any]:
        items = [{f"{side}_name": "n", attribute: found}]
        history = [plain(i, **{f"{side}_metadata": items}) for i in range(3)]
        return call(w, [plain(), *history], "get_search_patterns", **{attribute: wanted})

    assert_same(build)


TRUTHS: dict[str, Any] = {
    "one": 1,
    "zero": 0,
    "text": "no",
    "empty text": "",
    "nan": NAN,
    "list": [0],
    "nothing": None,
    "neither": Undecided(),
}


@pytest.mark.parametrize("truth", TRUTHS)
@pytest.mark.parametrize("operation", ["get_search_stats", "get_search_velocity"])
def test_anything_with_a_truth_says_who_passed(operation: str, truth: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(i, passed_thresholds=i % 2 == 0) for i in range(6)]
        history[3].passed_thresholds = TRUTHS[truth]
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("operation", ["get_search_stats", "get_search_patterns"])
def test_nothing_is_read_after_a_truth_that_fails(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(), trap(w, 1, passed_thresholds=Undecided()), trap(w, 2)]
        return call(w, history, operation)

    assert_same(build)
