"""Values of records that turn on their reader: the same outcome as the model's."""

from __future__ import annotations

from collections.abc import Callable
from decimal import Decimal
from types import MappingProxyType
from typing import Any

import pytest
from differential.hooks import HookedNumber
from differential.traps import (
    OPERATIONS,
    assert_same,
    call,
    engine,
    plain,
)
from differential.world import World


class Undecided(list):  # type: ignore[type-arg]
    """Like an array: has no truth."""

    def __bool__(self) -> bool:
        raise ValueError("the truth of an array is ambiguous")


class Value:
    """A value whose every use is an answer that it was given, an error, or a side effect."""

    def __init__(self, w: World, answer: Callable[[], Any]) -> None:
        self.w, self.answer = w, answer

    def _used(self, what: str) -> Any:
        self.w.note("value", what)
        return self.answer()

    def __bool__(self) -> bool:
        return self._used("bool")  # type: ignore[no-any-return]

    def __ge__(self, other: Any) -> Any:
        return self._used("ge")

    def __le__(self, other: Any) -> Any:
        return self._used("le")

    def __lt__(self, other: Any) -> Any:
        return self._used("lt")

    def __gt__(self, other: Any) -> Any:
        return self._used("gt")

    def __eq__(self, other: Any) -> Any:
        return self._used("eq")

    def __radd__(self, other: Any) -> Any:
        return self._used("radd")

    def __hash__(self) -> int:
        self.w.note("value", "hash")
        return 7

    def __contains__(self, key: Any) -> Any:
        return self._used("contains")

    def __getitem__(self, key: Any) -> Any:
        if isinstance(key, int) and key > 3:
            raise IndexError(key)  # an end to the items, or reading them would have none
        return self._used("getitem")


def _fail() -> Any:
    raise ValueError("hostile")


ANSWERS: dict[str, Callable[[World, list[Any]], Callable[[], Any]]] = {
    "raises": lambda w, history: _fail,
    "not implemented": lambda w, history: lambda: NotImplemented,
    "true": lambda w, history: lambda: True,
    "false": lambda w, history: lambda: False,
    "number": lambda w, history: lambda: 2.5,
    "array": lambda w, history: lambda: Undecided([1]),
    "clears": lambda w, history: lambda: history.clear() or True,
    "grows": lambda w, history: lambda: len(history) < 6 and (history.append(plain(9)) or True),
}


VALUE_ATTRIBUTES = (
    "passed_thresholds",
    "timestamp",
    "era_id",
    "correlation",
    "sharpe",
    "per_column_stats",
    "tree_depth",
    "function_metadata",
    "agent_is_pnl_mi",
    "failure_reason",
    "eval_type",
)


@pytest.mark.parametrize("answer", list(ANSWERS))
@pytest.mark.parametrize("attribute", VALUE_ATTRIBUTES)
def test_value_turns_on_its_reader(attribute: str, answer: str) -> None:
    for operation in OPERATIONS:

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            history: list[Any] = [plain(), plain(1), plain(2)]
            setattr(history[1], attribute, Value(w, ANSWERS[answer](w, history)))
            return call(w, history, operation)

        assert_same(build)


class Vanishing(dict):  # type: ignore[type-arg]
    """A table that loses a key between the question and the reading."""

    def __contains__(self, key: object) -> bool:
        found = dict.__contains__(self, key)
        self.clear()
        return found


class SameHash:
    """Equal to every key with the hash of one statistic's key; says so, or fails."""

    def __init__(self, w: World, fails: bool) -> None:
        self.w, self.fails = w, fails

    def __hash__(self) -> int:
        return hash("gross_returns_sharpe")

    def __eq__(self, other: Any) -> Any:
        self.w.note("same hash", other)
        if self.fails:
            raise ValueError("never equal")
        return True


TABLES: dict[str, Callable[[World], Any]] = {
    "vanishing": lambda w: Vanishing(gross_returns_sharpe=1.0, gross_returns_returns=2.0),
    "equal key": lambda w: {SameHash(w, False): 3.0},
    "failing key": lambda w: {SameHash(w, True): 3.0},
    "none in it": lambda w: {"gross_returns_sharpe": None},
    "proxy": lambda w: MappingProxyType({"gross_returns_sharpe": 2}),
    "list": lambda w: ["gross_returns_sharpe"],
    "text": lambda w: "gross_returns_sharpe",
    "number": lambda w: 5,
    "decimal in it": lambda w: {"gross_returns_sharpe": Decimal("0.1")},
}


@pytest.mark.parametrize("table", list(TABLES))
def test_table_of_columns(table: str) -> None:
    assert_same(lambda w: call(w, [plain(per_column_stats=TABLES[table](w))], "get_search_stats"))
    assert_same(
        lambda w: (
            lambda: engine(w, [])._get_stat(
                plain(per_column_stats=TABLES[table](w)), None, "sharpe"
            )
        )
    )


def test_sum_that_is_replaced_by_what_is_added() -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(sharpe=HookedNumber(w.note, "sharpe", 2)), plain(), plain()]
        return call(w, history, "get_search_stats")

    assert_same(build)


def test_half_sorted_depths_raise_what_the_comparison_raises() -> None:
    class Depth:
        def __init__(self, w: World, rank: int) -> None:
            self.w, self.rank = w, rank

        def __hash__(self) -> int:
            return self.rank

        def __eq__(self, other: Any) -> bool:
            return self is other

        def __lt__(self, other: Any) -> bool:
            self.w.note("lt", self.rank, other.rank)
            if self.rank == 3:
                raise ValueError("half-way")
            return self.rank < other.rank

    for ranks in ([1, 2, 4, 5], [5, 4, 3, 2, 1], [3], [2, 1, 2, 5]):

        def build(w: World, ranks: list[int] = ranks) -> Callable[[], Any]:
            history = [plain(tree_depth=Depth(w, rank)) for rank in ranks]
            return call(w, history, "get_search_patterns")

        assert_same(build)
