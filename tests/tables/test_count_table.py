"""Counts by key: keys are told apart as a dictionary tells them apart, and kept as first met."""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World
from support.hidden import Name, hidden
from support.parts import engine_over, evaluation


class OwnInt(int):
    pass


class OwnFloat(float):
    """A float that equals nothing but what its number is twice of."""

    def __eq__(self, other: object) -> bool:
        return isinstance(other, float) and float(self) == 2.0 * float(other)

    def __hash__(self) -> int:
        return hash(float(self) / 2.0)


class OwnText(str):
    __slots__ = ()


def agree(depths: list[Any] = [], families: list[Any] = []) -> None:  # noqa: B006 - not changed
    """Compare the patterns of records with those depths, and with those families; half fail."""

    def build(w: World) -> Callable[[], Any]:
        history = [plain(i, tree_depth=depth) for i, depth in enumerate(depths)]
        history += [
            plain(i, function_metadata=[{"function_family": each} for each in several])
            for i, several in enumerate(families)
        ]
        for record in history[1::2]:
            record.passed_thresholds = False
        return call(w, history, "get_search_patterns")

    assert_same(build)


DEPTHS: dict[str, list[Any]] = {
    "ints": [3, 1, 2, 1, 3, 3],
    "equal numbers of several types": [1, True, 1.0, 2.0, 2, 0, False, -0.0],
    "large ints": [2**63, 2**63 - 1, -(2**63), 2**63, 2**64],
    "floats": [0.5, 0.25, 0.5, math.inf, -math.inf],
    "texts": ["b", "a", "".join(["a"]), "é", "😀"],
    "more than are known by themselves": [*range(1000, 1040), *range(1000, 1040)],
    "not comparable": [1, "a"],
    "nothing": [None, None],
    "own int": [1, 2, OwnInt(1), 3, 1],
    "own float": [1.0, 2.0, OwnFloat(2.0), 1.0, OwnFloat(4.0)],
    "own text": ["a", OwnText("a"), "b", OwnText("b"), "b"],
    "tuples": [(1, 2), (1,), (1, 2)],
    "not hashable": [1, [1], 2],
}


@pytest.mark.parametrize("kind", DEPTHS)
def test_depths_of_every_kind_are_told_apart(kind: str) -> None:
    agree(depths=DEPTHS[kind])
    agree(depths=DEPTHS[kind][::-1])


FAMILIES: dict[str, list[Any]] = {
    "two new ones at once": [["b", "a"], ["d", "c", "a"], ["a", "b"]],
    "texts and numbers": [["a", 1], [1.0, "a"], [True]],
    "tuples": [[("a", 1), "a"], [("a", 1)]],
    "own text": [["a", "b"], [OwnText("a")], ["a", OwnText("c")], ["c"]],
    "many": [[f"family {i}", f"family {i + 1}", "common"] for i in range(100)],
}


@pytest.mark.parametrize("kind", FAMILIES)
def test_families_of_every_kind_are_told_apart(kind: str) -> None:
    agree(families=FAMILIES[kind])
    agree(families=FAMILIES[kind][::-1])


def test_a_key_of_another_type_keeps_what_was_counted() -> None:
    for place in range(8):
        depths: list[Any] = [1, 2, 1, 3, 2, 1, 4, 1]
        depths[place] = OwnInt(depths[place])
        agree(depths=depths)


class Changing(int):
    """A depth that changes the records when another one is compared with it."""

    change: Callable[[], None]

    def __eq__(self, other: object) -> bool:
        self.change()
        return int.__eq__(self, other)  # type: ignore[arg-type]

    __hash__ = int.__hash__


def test_families_are_read_after_the_depth_was_counted() -> None:
    def build(w: World) -> Callable[[], Any]:
        def change() -> None:
            w.note("compared")
            for record in history:
                record.function_metadata = [{"function_family": f"new {len(w.trace)}"}]

        changing = Changing(7)
        changing.change = change
        history = [plain(i, tree_depth=7 if i else changing) for i in range(8)]
        return call(w, history, "get_search_patterns")

    assert_same(build)


@pytest.mark.parametrize("value", [-1, "text"])
def test_counts_that_somebody_spoils_are_an_error(value: Any) -> None:
    def spoil() -> None:
        for counts in hidden(dict, lambda key: type(key) is Name):
            counts.update(dict.fromkeys(counts, value))

    actions = [spoil]
    depths = [Name("a"), Name("b"), Name("a", lambda: actions and actions.pop()())]
    engine = engine_over([evaluation(tree_depth=depth) for depth in depths])
    with pytest.raises(RuntimeError, match="a private dictionary was changed"):
        engine.get_search_patterns()


class Noting(float):
    """A float that notes when it is hashed or compared."""

    w: World

    def __eq__(self, other: object) -> bool:
        self.w.note("compared")
        return float.__eq__(self, other)  # type: ignore[arg-type]

    def __hash__(self) -> int:
        self.w.note("hashed")
        return float.__hash__(self)


def test_floats_of_another_type_are_hashed_and_compared_as_in_dictionaries() -> None:
    def build(w: World) -> Callable[[], Any]:
        depths = [1.0, Noting(1.0), 2.0, Noting(2.0), 2.0]
        for depth in depths[1::2]:
            depth.w = w
        history = [plain(i, tree_depth=depth) for i, depth in enumerate(depths)]
        return call(w, history, "get_search_patterns")

    assert_same(build)


class Hashing(int):
    """A depth that changes the records when it is hashed."""

    change: Callable[[], None]

    def __hash__(self) -> int:
        self.change()
        return int.__hash__(self)

    __eq__ = int.__eq__


def test_families_are_read_after_the_depth_was_hashed() -> None:
    def build(w: World) -> Callable[[], Any]:
        def change() -> None:
            for record in history:
                record.function_metadata = [{"function_family": "".join(["new ", str(w.trace)])}]
            w.note("hashed")

        history = [plain(i, tree_depth=1) for i in range(8)]
        history[4].tree_depth = hashing = Hashing(7)
        hashing.change = change
        return call(w, history, "get_search_patterns")

    assert_same(build)
