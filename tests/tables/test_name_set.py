"""The names of one record: few or many, repeated, and such as need a real set."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, call, plain
from differential.world import World

GROUPING = ("get_search_stats", "get_search_patterns", "get_correlation_patterns")


class OwnText(str):
    __slots__ = ()


def agree(operation: str, *records: list[Any]) -> None:
    """Compare what is made of records that use those names, on both sides."""

    def build(w: World) -> Callable[[], Any]:
        history = []
        for i, names in enumerate(records):
            functions = [
                {"function_name": name, "function_family": name, "function_subfamily": name}
                for name in names
            ]
            features = [{"feature_name": name, "feature_subfamily": name} for name in names]
            history.append(plain(i, function_metadata=functions, feature_metadata=features))
        return call(w, history, operation)

    assert_same(build)


def numbered(count: int) -> list[str]:
    return [f"name {number}" for number in range(count)]


@pytest.mark.parametrize("count", [1, 2, 127, 128, 129, 150])
@pytest.mark.parametrize("operation", GROUPING)
def test_a_record_may_use_any_number_of_names(operation: str, count: int) -> None:
    names = numbered(count)
    agree(operation, names, names[::-1], names[:1], [*names, *names])


@pytest.mark.parametrize("operation", GROUPING)
def test_records_of_few_and_of_many_names_take_turns(operation: str) -> None:
    many, few = numbered(140), numbered(3)
    agree(operation, few, many, few, many[::-1], few[::-1], many)


@pytest.mark.parametrize("operation", GROUPING)
def test_repeated_names_count_once(operation: str) -> None:
    names = numbered(3)
    copies = ["".join(list(name)) for name in names]
    agree(operation, names * 60, [*names, *copies], copies, names[:2])


ODD = {
    "own text": OwnText("name 1"),
    "number": 5,
    "tuple": ("name", 1),
    "pair of equal ones": True,
}


@pytest.mark.parametrize("place", ["first", "last", "after many"])
@pytest.mark.parametrize("odd", ODD)
@pytest.mark.parametrize("operation", GROUPING)
def test_one_name_of_another_type_makes_a_real_set(operation: str, odd: str, place: str) -> None:
    name = ODD[odd]
    names = numbered(130 if place == "after many" else 4)
    agree(operation, numbered(2), [name, *names] if place == "first" else [*names, name], names)
