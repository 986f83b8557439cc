"""Counts by key: keys are told apart as a dictionary tells them apart, and kept as first met."""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World


class OwnInt(int):
    pass


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
