"""Pairs of names: as many as there are, in the order of their names, of any type that has one."""

from __future__ import annotations

import itertools
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain, trap
from differential.world import World
from support.hidden import Name, hidden
from support.parts import engine_over, using


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


def spoil_pairs(key: Any, value: Any) -> None:
    """Change what pairs are counted by; None stands for the keys that are there."""

    def is_pair(key: Any) -> bool:
        return type(key) is tuple and len(key) == 2 and type(key[0]) is Name

    for counts in hidden(dict, is_pair):
        for each in [key] if key is not None else list(counts):
            counts[each] = value


SPOILT: dict[str, tuple[Any, Any]] = {
    "no counts": (None, 5),
    "one count": (None, (1,)),
    "three counts": (None, (1, 2, 3)),
    "no numbers": (None, ("x", "y")),
    "list": (None, [1, 2]),
    "key of one": (("x",), (1, 1)),
    "key of three": (("x", "y", "z"), (1, 1)),
    "key that is no pair": ("xy", (1, 1)),
}


def change_once(action: Callable[[], None]) -> list[Any]:
    """Records of two names each, of which the third is hashed with that action."""
    actions = [action]
    last = [Name("a", lambda: actions and actions.pop()()), Name("b")]
    return [using(Name("a"), Name("b")), using(Name("b"), Name("c")), using(*last)]


@pytest.mark.parametrize("spoilt", SPOILT)
def test_counts_that_somebody_spoils_are_an_error(spoilt: str) -> None:
    evals = change_once(lambda: spoil_pairs(*SPOILT[spoilt]))
    with pytest.raises((RuntimeError, TypeError)) as caught:
        engine_over(evals).get_correlation_patterns()
    if spoilt != "no numbers":
        assert str(caught.value) == "a private dictionary was changed"


def test_counts_that_somebody_sets_back_are_an_error() -> None:
    evals = change_once(lambda: spoil_pairs(None, (-1, -1)))
    with pytest.raises(RuntimeError, match="a private dictionary was changed"):
        engine_over(evals).get_correlation_patterns()


def test_sorted_names_that_somebody_takes_away_are_an_error() -> None:
    def clear() -> None:
        for names in hidden(list, lambda name: type(name) is Name):
            names.clear()

    late = [Name("a"), Name("b"), Name("c"), Name("d")]

    def watch() -> None:
        # The set has been sorted when a pair is looked for.
        late[0].action = clear

    late[0].action = watch
    history = [using(*late)]
    del late[1:]
    with pytest.raises(IndexError, match="list index out of range"):
        engine_over(history).get_correlation_patterns()


@pytest.mark.parametrize(
    "names", [[OwnText("a")], ["a"], [5], []], ids=["own", "text", "int", "none"]
)
def test_whether_it_passed_is_asked_only_of_a_record_with_a_pair(names: list[Any]) -> None:
    def build(w: World) -> Callable[[], Any]:
        items = [{"function_name": name} for name in names]
        history = [trap(w, i, function_metadata=items) for i in range(3)]
        return call(w, history, "get_correlation_patterns")

    assert_same(build)
