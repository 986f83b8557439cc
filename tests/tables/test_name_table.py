"""Names by number: names that meet in one slot, names of every kind of text, any number of names.

What is made of the names has to be what a dictionary or a set would make of them.
"""

from __future__ import annotations

import itertools
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import OPERATIONS, assert_same, call, plain
from differential.world import World

GROUPING = ("get_search_stats", "get_search_patterns", "get_correlation_patterns")


def used(*names: Any) -> list[dict[str, Any]]:
    """Functions of these names, each of a family and a subfamily of the same name."""
    keys = ("function_name", "function_family", "function_subfamily")
    return [dict.fromkeys(keys, name) for name in names]


def agree(operation: str, *records: list[Any]) -> None:
    """Compare what is made of records that use those names."""
    assert operation in OPERATIONS

    def build(w: World) -> Callable[[], Any]:
        history = [plain(i, function_metadata=used(*names)) for i, names in enumerate(records)]
        return call(w, history, operation)

    assert_same(build)


def colliding(count: int, bits: int) -> list[str]:
    """Names whose hashes end in the same bits, whatever the seed of this process."""
    mask = (1 << bits) - 1
    wanted = hash("sma") & mask
    names = (f"name {number}" for number in itertools.count())
    return list(itertools.islice((name for name in names if hash(name) & mask == wanted), count))


def test_the_search_finds_names_that_collide() -> None:
    names = colliding(40, 10)
    assert len(set(names)) == 40
    assert len({hash(name) & 1023 for name in names}) == 1


@pytest.mark.parametrize("bits", [6, 12])
@pytest.mark.parametrize("operation", GROUPING)
def test_names_that_meet_in_one_slot_are_told_apart(operation: str, bits: int) -> None:
    names = colliding(70, bits)
    agree(operation, *([name, names[0]] for name in [*names, *reversed(names)]))


@pytest.mark.parametrize("operation", GROUPING)
def test_names_that_wrap_around_the_last_slot_are_told_apart(operation: str) -> None:
    names = [f"name {number}" for number in range(3000)]
    last = [name for name in names if hash(name) & 63 == 63][:8]
    first = [name for name in names if hash(name) & 63 == 0][:8]
    agree(operation, *([name, last[0]] for name in [*last, *first, *last]))


KINDS = {
    "ascii": [f"name{number}" for number in range(5)],
    "latin": [f"naïveté{number}" for number in range(5)],
    "two bytes": [f"имя{number}" for number in range(5)],
    "four bytes": [f"😀{number}" for number in range(5)],
    "same bytes": ["aa", "\u6161\u6161", "\U00016161\U00016161", "aa\0\0", "\u6161"],
    "one letter": ["a", "é", "я", "平", "😀"],
    "one differs at the end": [f"{'x' * 64}{number}" for number in range(5)],
    "one differs at the start": [f"{number}{'x' * 64}" for number in range(5)],
    "lengths around a word": ["x" * length for length in (1, 7, 8, 9, 15, 16, 17)],
    "surrogates": ["\ud800", "\udfff", "a\ud800"],
    "zero bytes": ["a", "a\0", "a\0b", "\0"],
}


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("operation", GROUPING)
def test_texts_of_every_kind_are_told_apart(operation: str, kind: str) -> None:
    names = KINDS[kind]
    copies = ["".join(list(name)) for name in names]
    agree(operation, names, copies, *([name, names[0]] for name in copies), names[::-1])


@pytest.mark.parametrize("operation", GROUPING)
def test_texts_of_all_kinds_go_together(operation: str) -> None:
    names = [name for kind in KINDS.values() for name in kind]
    agree(operation, *(list(pair) for pair in itertools.pairwise([*names, *names])))


@pytest.mark.parametrize("count", [31, 32, 33, 63, 64, 65, 129, 600])
@pytest.mark.parametrize("operation", GROUPING)
def test_any_number_of_names_is_told_apart(operation: str, count: int) -> None:
    names = [f"name {number}" for number in range(count)]
    agree(operation, *([name, "common"] for name in names), *([name, "common"] for name in names))
