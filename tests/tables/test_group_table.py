"""Groups by number: as many as there are, in the order in which they are met, keys of any type."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World


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
