"""Entries are found in dictionaries of any kind, size and past."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World

NAMES = {"function_name": "f", "function_family": "F", "function_subfamily": "S"}


class Holder:
    """Its instances' dictionaries share their keys."""


def shared(values: dict[str, Any], before: dict[str, Any] | None = None) -> dict[str, Any]:
    holder = Holder()
    for name, value in {**(before or {}), **values}.items():
        setattr(holder, name, value)
    for name in before or {}:
        delattr(holder, name)
    return vars(holder)


class Colliding:
    """A key that a look-up of a text with its hash asks."""

    def __init__(self, text: str, w: World | None = None) -> None:
        self.text, self.w = text, w

    def __hash__(self) -> int:
        return hash(self.text)

    def __eq__(self, other: object) -> bool:
        if self.w is not None:
            self.w.note("asked", other if isinstance(other, str) else "")
        return False


def with_key(key: Any, first: bool = False) -> dict[Any, Any]:
    return {key: "other", **NAMES} if first else {**NAMES, key: "other"}


def regrown(values: dict[str, Any]) -> dict[str, Any]:
    made: dict[str, Any] = {str(number): number for number in range(50)}
    made.update(values)
    for number in range(50):
        del made[str(number)]
    return made


class Dictionary(dict):  # type: ignore[type-arg]
    """A dictionary of another type."""


TABLES: dict[str, Callable[[], Any]] = {
    "texts": lambda: dict(NAMES),
    "a number, too": lambda: with_key(5),
    "a number first": lambda: with_key(5, first=True),
    "no key any more": lambda: dict.fromkeys(()),
    "shared": lambda: shared(NAMES),
    "shared, in part": lambda: shared({"function_name": "f"}),
    "shared, one deleted": lambda: shared(NAMES, {"gone": 1}),
    "regrown": lambda: regrown(NAMES),
    "many": lambda: {**{str(number): number for number in range(300)}, **NAMES},
    "very many": lambda: {**NAMES, **{str(number): number for number in range(70_000)}},
    "many of any type": lambda: {**{number: number for number in range(300)}, **NAMES},
    "another type": lambda: Dictionary(NAMES),
    "empty": dict,
}


@pytest.mark.parametrize("operation", ["get_search_stats", "get_search_patterns"])
@pytest.mark.parametrize("kind", TABLES)
def test_dictionaries_of_any_kind_agree(kind: str, operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(index, function_metadata=[TABLES["texts" if index % 3 == 1 else kind]()])
            for index in range(7)
        ]
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("first", [True, False])
@pytest.mark.parametrize("name", [*NAMES, "other"])
def test_a_key_with_the_same_hash_is_asked_as_by_python(name: str, first: bool) -> None:
    for operation in ("get_search_stats", "get_search_patterns", "get_correlation_patterns"):

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            history = [
                plain(index, function_metadata=[with_key(Colliding(name, w), first)])
                for index in range(5)
            ]
            return call(w, history, operation)

        assert_same(build)


@pytest.mark.parametrize("items", [tuple, list], ids=lambda kind: kind.__name__)
def test_items_in_a_tuple_agree_with_those_in_a_list(items: Callable[[Any], Any]) -> None:
    for operation in ("get_search_stats", "get_search_patterns", "get_correlation_patterns"):

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            history = [
                plain(index, function_metadata=items([NAMES, {"function_name": str(index)}]))
                for index in range(9)
            ]
            history[4].function_metadata = ()
            return call(w, history, operation)

        assert_same(build)
