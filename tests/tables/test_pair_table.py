"""Pairs of names: as many as there are, in the order of their names, of any type that has one."""

from __future__ import annotations

import itertools
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World


class OwnText(str):
    __slots__ = ()


def agree(*records: list[Any], **arguments: Any) -> None:
    """Compare the pairs of records that use those functions; every third fails."""

    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(
                i,
                passed_thresholds=i % 3 != 2,
                function_metadata=[{"function_name": name} for name in names],
            )
            for i, names in enumerate(records)
        ]
        return call(w, history, "get_correlation_patterns", **{"top_n": 10**6, **arguments})

    assert_same(build)


@pytest.mark.parametrize("count", [2, 8, 9, 11, 12, 17, 40])
def test_any_number_of_pairs_is_told_apart(count: int) -> None:
    names = [f"name {number}" for number in range(count)]
    agree(names, names[::-1], names[::2], names[1::2])


@pytest.mark.parametrize("top_n", [1, 5, 64, 65, 435, 436])
def test_the_first_pairs_are_those_of_the_whole_order(top_n: int) -> None:
    names = [f"name {number}" for number in range(30)]
    agree(*(names[i::7] for i in range(7)), names, top_n=top_n)


def test_the_names_of_a_pair_are_the_objects_that_were_met_first() -> None:
    def build(w: World) -> Callable[[], Any]:
        pairs = [["".join(list(name)) for name in ("left", "right")] for _ in range(3)]
        for number, names in enumerate(pairs):
            for name in names:
                w.tag(name, f"{name} of record {number}")
        history = [
            plain(i, function_metadata=[{"function_name": name} for name in names])
            for i, names in enumerate([pairs[0][:1], pairs[1], pairs[2]])
        ]
        found = call(w, history, "get_correlation_patterns")

        def labels() -> list[Any]:
            return [
                (w.labels.get(id(pair.function_a)), w.labels.get(id(pair.function_b)))
                for pair in found().pairs
            ]

        return labels

    assert_same(build)


ORDERS = {
    "kinds of texts": ["a", "é", "я", "平", "😀", "\ud800", "aa", "a\0"],
    "own texts": [OwnText("b"), "a", OwnText("a"), "c"],
    "numbers": [3, 1.5, True, 2**70],
    "tuples": [("a", 1), ("a",), ("b", 0)],
    "not comparable": ["a", 1],
}


@pytest.mark.parametrize("order", ORDERS)
def test_names_of_one_type_have_its_order(order: str) -> None:
    names = ORDERS[order]
    agree(names, names[::-1], *map(list, itertools.combinations(names, 2)))


@pytest.mark.parametrize("place", [0, 1, 40, 79])
@pytest.mark.parametrize("name", [OwnText("name 1"), OwnText("other")], ids=["known", "new"])
def test_one_name_of_another_type_turns_all_into_a_dictionary(name: str, place: int) -> None:
    names = [f"name {number}" for number in range(80)]
    records: list[list[Any]] = [[one, other] for one, other in itertools.pairwise(names)]
    records.insert(place, [name, "name 1", "name 2"])
    agree(*records, *records)
