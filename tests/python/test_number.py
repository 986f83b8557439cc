"""Numbers as Python has them: sums, means, counts and limits at the edges of machine words."""

from __future__ import annotations

import math
from collections.abc import Callable
from fractions import Fraction
from random import Random
from types import SimpleNamespace
from typing import Any

import pytest
from differential.traps import assert_same, call, engine, fields, plain
from differential.world import World
from support.records import SlotRecord

WORD = 2**63
EDGES = {
    "largest word": WORD - 1,
    "beyond the largest word": WORD,
    "smallest word": -WORD,
    "beyond the smallest word": -WORD - 1,
    "beyond an unsigned word": 2**64,
    "beyond exact doubles": 2**53 + 1,
    "largest that is a double": int(1.7e308),
    "beyond doubles": 10**400,
    "minus zero": -0.0,
    "infinite": math.inf,
    "true": True,
    "fraction": Fraction(1, 3),
    "not a number": "1",
}


class OwnFloat(float):
    """A float that says how it is added."""

    def __radd__(self, other: Any) -> Any:
        return 1000.0


@pytest.mark.parametrize("attribute", ["sharpe", "turnover", "correlation", "drawdown"])
@pytest.mark.parametrize("edge", EDGES)
def test_sums_of_any_numbers_agree(edge: str, attribute: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(per_column_stats=None, **{attribute: 0.5 * i}) for i in range(6)]
        setattr(history[3], attribute, EDGES[edge])
        return call(w, history, "get_search_stats")

    assert_same(build)


@pytest.mark.parametrize("place", [0, 1, 5])
def test_a_float_of_its_own_kind_adds_itself(place: int) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(per_column_stats=None, sharpe=0.5) for _ in range(6)]
        history[place].sharpe = OwnFloat(2.0)
        return call(w, history, "get_search_stats")

    assert_same(build)


@pytest.mark.parametrize("edge", EDGES)
def test_time_stamps_of_any_numbers_agree(edge: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = [plain(), plain(timestamp=EDGES[edge]), plain()]
        return call(w, history, "get_search_velocity")

    assert_same(build)


@pytest.mark.parametrize("edge", EDGES)
def test_windows_of_any_numbers_agree(edge: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        return call(w, [plain(i) for i in range(12)], "get_search_velocity", windows=[EDGES[edge]])

    assert_same(build)


@pytest.mark.parametrize("edge", EDGES)
@pytest.mark.parametrize(
    ("operation", "argument"),
    [("get_search_stats", "min_sample_size"), ("get_correlation_patterns", "top_n")],
)
def test_sizes_of_any_numbers_agree(operation: str, argument: str, edge: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        target = engine(w, [plain(i) for i in range(6)])
        return lambda: getattr(target, operation)(**{argument: EDGES[edge]})

    assert_same(build)


@pytest.mark.parametrize("edge", EDGES)
def test_measures_of_any_numbers_agree(edge: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        value = EDGES[edge]
        history = [
            plain(is_pnl_mi=value),
            plain(agent_is_pnl_mi=value),
            plain(is_pnl_mi=value, agent_is_pnl_mi=value),
        ]
        return call(w, history, "get_yield_analysis")

    assert_same(build)


DIGITS = ("sharpe", "returns", "turnover", "drawdown", "correlation", "is_pnl_mi")


# Groups of one to three records: a processor that carries more digits than a double has shows it
# in one rounding of a few hundred.
@pytest.mark.parametrize("record_class", [SimpleNamespace, SlotRecord])
@pytest.mark.parametrize(
    ("operation", "keywords"),
    [
        ("get_search_stats", {"min_sample_size": 1}),
        ("get_correlation_patterns", {"top_n": 10_000}),
        ("get_yield_analysis", {}),
    ],
    ids=["statistics", "pairs", "yield"],
)
def test_every_digit_of_many_numbers_agrees(
    operation: str, keywords: dict[str, Any], record_class: Callable[..., Any]
) -> None:
    def build(w: World) -> Callable[[], Any]:
        random = Random(17)
        history = []
        for _ in range(3000):
            name = f"f{random.randrange(1500)}"
            changes: dict[str, Any] = {field: random.gauss(0.0, 1.0) for field in DIGITS}
            changes["agent_is_pnl_mi"] = random.gauss(0.0, 1.0)
            changes["per_column_stats"] = None
            changes["passed_thresholds"] = random.random() < 0.4
            changes["function_metadata"] = [
                {"function_name": name, "function_family": name},
                {"function_name": f"g{random.randrange(40)}", "function_family": "trend"},
            ]
            history.append(record_class(**fields(**changes)))
        return call(w, history, operation, **keywords)

    assert_same(build)
