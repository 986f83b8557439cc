"""Groups by number: as many as there are, in the order in which they are met, keys of any type."""

from __future__ import annotations

import gc
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World
from support.hidden import Name, hidden
from support.parts import engine_over, evaluation, function_item


class OwnText(str):
    __slots__ = ()


def side(name: str, values: list[Any]) -> list[dict[str, Any]]:
    return [{f"{name}_name": value, f"{name}_subfamily": value} for value in values]


def agree(*keys: tuple[list[Any], list[Any]], **arguments: Any) -> None:
    """Compare the statistics of records that use those functions and features."""

    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(
                i,
                function_metadata=side("function", functions),
                feature_metadata=side("feature", features),
            )
            for i, (functions, features) in enumerate(keys)
        ]
        return call(w, history, "get_search_stats", **arguments)

    assert_same(build)


def numbered(count: int) -> list[tuple[list[Any], list[Any]]]:
    return [([f"f{i}", "f"], [f"g{i % 5}"]) for i in range(count)]


@pytest.mark.parametrize("count", [31, 32, 33, 63, 64, 65, 129, 1000])
def test_any_number_of_groups_is_told_apart(count: int) -> None:
    agree(*numbered(count), *numbered(count)[::-1])


@pytest.mark.parametrize("count", [40, 400])
def test_groups_that_share_a_side_are_told_apart(count: int) -> None:
    functions = [(["f"], [f"g{i}"]) for i in range(count)]
    features = [([f"f{i}"], ["g"]) for i in range(count)]
    agree(*functions, *features, *functions[::-1], *features[::-1])


def test_small_groups_are_dropped_from_many() -> None:
    agree(*numbered(300), *numbered(7), min_sample_size=2)


@pytest.mark.parametrize(
    "keys",
    [
        pytest.param([(["a", "b"], ["c"]), (["b", "a"], ["c"])], id="order of the names"),
        pytest.param([(["a"], ["b"]), (["b"], ["a"])], id="sides exchanged"),
        pytest.param([(["a", "b"], ["c"]), (["a"], ["b", "c"])], id="a name on the other side"),
        pytest.param([(["a", "a"], ["c"]), (["a"], ["c"])], id="repeated"),
        pytest.param([(["a"], ["b"]), (["a"], ["c"])], id="other feature"),
        pytest.param([([], ["a"]), (["a"], []), ([], [])], id="empty sides"),
        pytest.param([(["a", "b"], ["c"]), (["a"], ["c"])], id="subset"),
    ],
)
def test_groups_are_told_apart_as_pairs_of_sets_are(keys: list[Any]) -> None:
    agree(*keys, *keys)


ODD: dict[str, Any] = {
    "own text": OwnText("f3"),
    "number": 3,
    "tuple": ("f", 3),
    "nothing": None,
}


@pytest.mark.parametrize("odd", ODD)
@pytest.mark.parametrize("place", [0, 3, 70, 139])
def test_one_key_of_another_type_turns_all_into_a_dictionary(odd: str, place: int) -> None:
    keys = [*numbered(70), *numbered(70)]
    keys.insert(place, ([ODD[odd], "f"], ["g3"]))
    agree(*keys)


def spoil_groups(value: Any) -> None:
    """Change what groups are numbered by."""

    def is_group(key: Any) -> bool:
        return type(key) is tuple and len(key) == 2 and type(key[0]) is frozenset

    for numbers in hidden(dict, is_group):
        for key in numbers:
            numbers[key] = value


@pytest.mark.parametrize("value", [-1, 2, 10**6, 2**70, "text"], ids=repr)
def test_numbers_that_somebody_spoils_are_an_error(value: Any) -> None:
    actions: list[Callable[[], None]] = [lambda: spoil_groups(value)]
    names = [Name("a"), Name("b"), Name("a", lambda: actions and actions.pop()())]
    evals = [evaluation(function_metadata=[function_item("f", "F", name)]) for name in names]
    with pytest.raises((RuntimeError, TypeError, OverflowError)) as caught:
        engine_over(evals).get_search_stats(min_sample_size=0)
    assert actions == []
    if isinstance(value, int) and value < 2**63:
        assert str(caught.value) == "a private dictionary was changed"


ODD_FEATURES: dict[str, list[Any]] = {
    "own text": [OwnText("y")],
    "number": [5],
    "texts and tuple": ["x", ("t", 1)],
}


@pytest.mark.parametrize("odd", ODD_FEATURES)
def test_features_alone_may_be_of_another_type(odd: str) -> None:
    plain_key: tuple[list[Any], list[Any]] = (["f"], ["x"])
    agree(plain_key, (["f"], ODD_FEATURES[odd]), plain_key, (["f"], ["z"]), min_sample_size=0)


class Fickle:
    """A name that equals another one only every second time."""

    def __init__(self, w: World, text: str) -> None:
        self.w, self.text = w, text

    def __hash__(self) -> int:
        return 7

    def __eq__(self, other: object) -> bool:
        self.w.note("eq", self.text)
        return len(self.w.trace) % 2 == 0


def test_keys_that_are_equal_by_turns_are_as_many_as_a_dictionary_holds() -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(i, function_metadata=side("function", [Fickle(w, str(i))])) for i in range(9)
        ]
        return call(w, history, "get_search_stats")

    assert_same(build)


def test_sides_of_a_key_are_seen_by_the_collector() -> None:
    evals = [evaluation(function_metadata=side("function", ["f", ("t", 1)])), evaluation()]
    for row in engine_over(evals).get_search_stats(min_sample_size=0).rows:
        assert [gc.is_tracked(each) for each in (row.group_key, *row.group_key)] == [True] * 3
