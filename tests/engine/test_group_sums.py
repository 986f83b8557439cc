"""Sums by group and window: doubles while they can be, and then whatever adding makes of them."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from fractions import Fraction
from typing import Any

import pytest
from differential.hooks import HookedNumber
from differential.traps import assert_same, call, engine, plain
from differential.world import NOW, World
from support.parts import pool

MEASURES = ("sharpe", "returns", "turnover", "drawdown", "correlation")


class Divided:
    """Added up to itself; logs what type it is divided by."""

    def __init__(self, w: World) -> None:
        self.w = w

    def __add__(self, other: Any) -> Divided:
        return self

    __radd__ = __add__

    def __truediv__(self, other: Any) -> float:
        self.w.note("divided by", type(other).__name__, other)
        return 0.5

    def __lt__(self, other: Any) -> bool:
        return True


ODD: dict[str, Callable[[World], Any]] = {
    "fraction": lambda w: Fraction(1, 3),
    "logging": lambda w: HookedNumber(w.note, "number", 0.5),
    "large int": lambda w: 2**70,
    "int": lambda w: 3,
    "divided": Divided,
}


@pytest.mark.parametrize("place", [0, 3, 7])
@pytest.mark.parametrize("measure", MEASURES)
@pytest.mark.parametrize("odd", ODD)
def test_one_statistic_of_another_type_agrees(odd: str, measure: str, place: int) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(i, per_column_stats=None, **dict.fromkeys(MEASURES, 0.1 * (i + 1)))
            for i in range(8)
        ]
        setattr(history[place], measure, ODD[odd](w))
        return call(w, history, "get_search_stats")

    assert_same(build)


class Growing:
    """Pools of which there are more each time that somebody goes through them."""

    def __init__(self, pools: list[Any]) -> None:
        self.pools, self.seen = pools, 0

    def __iter__(self) -> Iterator[Any]:
        self.seen += 1
        return iter(self.pools[: self.seen])


@pytest.mark.parametrize("kind", ["more thresholds", "fewer thresholds"])
def test_names_and_thresholds_of_pools_may_differ_in_number(kind: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        made = engine(w, [plain(i) for i in range(3)])
        pools = [pool(f"pool {i}", 0.5) for i in range(4)]
        growing = Growing(pools)
        if kind == "fewer thresholds":
            growing.seen, growing.pools = 0, pools
            growing.__class__ = type("Shrinking", (Growing,), {"__iter__": shrink})
        made._pool_configs = growing
        return lambda: made.get_search_stats(min_sample_size=0)

    assert_same(build)


def shrink(pools: Growing) -> Iterator[Any]:
    pools.seen += 1
    return iter(pools.pools[pools.seen :])


def test_each_window_counts_what_its_pools_would_take() -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [
            plain(0, timestamp=NOW - age, correlation=correlation)
            for age, correlation in [(0.0, 0.1), (90000.0, 0.5), (700000.0, 0.5), (60.0, 0.9)]
        ]
        return call(w, history, "get_search_stats")

    assert_same(build)
