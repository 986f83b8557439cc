"""Numbers that records are compared with: floats by their values, all else by their operators."""

from __future__ import annotations

from collections.abc import Callable
from fractions import Fraction
from typing import Any

import pytest
from differential.hooks import HookedNumber
from differential.traps import OPERATIONS, assert_same, call, engine, plain
from differential.world import NOW, World
from support.parts import pool

THRESHOLDS: dict[str, Callable[[World], list[Any]]] = {
    "floats": lambda w: [0.25, 0.75],
    "int, float": lambda w: [1, 0.25],
    "float, int": lambda w: [0.25, 1],
    "ints": lambda w: [1, 2],
    "fraction, float": lambda w: [Fraction(1, 4), 0.75],
    "logging, float": lambda w: [HookedNumber(w.note, "threshold", 0.5), 0.75],
}


@pytest.mark.parametrize("thresholds", THRESHOLDS)
def test_thresholds_of_several_kinds_agree(thresholds: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        made = engine(w, [plain(i, correlation=i / 8) for i in range(9)])
        made._pool_configs = [
            pool(f"pool {i}", value) for i, value in enumerate(THRESHOLDS[thresholds](w))
        ]
        return lambda: made.get_search_stats(min_sample_size=0)

    assert_same(build)


CLOCKS: dict[str, Callable[[World], Any]] = {
    "float": lambda w: NOW,
    "int": lambda w: int(NOW),
    "fraction": lambda w: Fraction(NOW),
}


@pytest.mark.parametrize("clock", CLOCKS)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_clocks_of_every_kind_agree(operation: str, clock: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        w.clock = lambda: CLOCKS[clock](w)
        ages = [0.0, 60.0, 21600.0, 86400.0, 86401.0, 604800.0, 604801.0]
        history = [plain(i, timestamp=NOW - age) for i, age in enumerate(ages)]
        return call(w, history, operation)

    assert_same(build)
