"""Entries are found in dictionaries of every size and past, wherever those before them had them."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World


def crowded(count: int, **entries: Any) -> dict[str, Any]:
    """A dictionary with so many other entries first."""
    return {**{f"other {number}": number for number in range(count)}, **entries}


def without_first(item: dict[str, Any]) -> dict[str, Any]:
    """The same, once its first entry was deleted."""
    made = {"gone": 1, **item}
    del made["gone"]
    return made


NAMES = {"function_name": "f", "function_family": "F", "function_subfamily": "S"}
ITEMS: dict[str, dict[str, Any]] = {
    "few": NAMES,
    "other order": dict(reversed(NAMES.items())),
    "many": crowded(20, **NAMES),
    "very many": crowded(300, **NAMES),
    "one deleted": without_first(NAMES),
    "names of its own": {"".join(list(key)): value for key, value in NAMES.items()},
    "other keys, too": {5: "x", **NAMES},
    "name only": {"function_name": "f"},
    "emptied": {},
}


@pytest.mark.parametrize("second", ITEMS)
@pytest.mark.parametrize("first", ITEMS)
def test_dictionaries_of_two_kinds_may_take_turns(first: str, second: str) -> None:
    for operation in ("get_search_stats", "get_search_patterns", "get_correlation_patterns"):

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            kinds = [ITEMS[first], ITEMS[first], ITEMS[second], ITEMS[first], ITEMS[second]]
            history = [plain(i, function_metadata=[kind]) for i, kind in enumerate(kinds)]
            return call(w, history, operation)

        assert_same(build)
