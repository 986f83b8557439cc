"""Of objects that are equal, a result hands on the very one that the model hands on."""

from __future__ import annotations

import struct
from collections.abc import Iterator
from enum import Enum
from types import SimpleNamespace
from typing import Any

import pytest
from differential.cases import subject
from differential.traps import OPERATIONS
from differential.world import NOW
from model import search_analytics_model as model
from support.outcome import RECORDS
from support.records import HistoryTracker, TableConnection

Arguments = dict[str, Any]


class Name(str):
    """Text of a kind of its own."""


class Labels:
    """Makes values that are equal to others but objects of their own, and knows them again."""

    def __init__(self) -> None:
        self.made: dict[int, tuple[str, Any]] = {}

    def own(self, label: str, value: Any) -> Any:
        """An object of its own that equals `value`: text of two letters or more, a large number."""
        if isinstance(value, str):
            made: Any = "".join(list(value))
        elif isinstance(value, float):
            (made,) = struct.unpack("<d", struct.pack("<d", value))
        else:
            made = int(str(value))
        assert id(made) not in self.made
        self.made[id(made)] = (label, made)
        return made

    def of(self, value: Any, path: str = "") -> Iterator[tuple[str, str]]:
        """Where in a result one of those objects stands, and which."""
        known = self.made.get(id(value))
        if known is not None:
            yield path, known[0]
        elif isinstance(value, (list, tuple)):
            for index, item in enumerate(value):
                yield from self.of(item, f"{path}[{index}]")
        elif isinstance(value, frozenset):
            for item in sorted(value, key=str):
                yield from self.of(item, f"{path}<{item}>")
        elif isinstance(value, dict):
            for key, item in value.items():
                yield from self.of(key, f"{path} key {key}")
                yield from self.of(item, f"{path}[{key!r}]")
        elif type(value).__name__ in RECORDS and not isinstance(value, Enum):
            for name, item in vars(value).items():
                yield from self.of(item, f"{path}.{name}")


def item(labels: Labels, label: str, name: str, side: str) -> dict[str, Any]:
    return {
        f"{side}_name": labels.own(f"{name} of {label}", name),
        f"{side}_family": labels.own(f"family of {name} of {label}", f"family{len(name) % 2}"),
        f"{side}_subfamily": labels.own(f"subfamily of {name} of {label}", "subfamily"),
    }


def evaluation(labels: Labels, number: int, names: list[str], shape: str) -> SimpleNamespace:
    """A record whose every value is an object of its own; equal to those of other records."""
    label = f"record {number}"
    if shape == "bare":
        functions: Arguments = {
            "functions": [labels.own(f"{name} of {label}", name) for name in names],
            "features": [labels.own(f"close of {label}", "close")],
        }
    else:
        functions = {
            "function_metadata": [item(labels, label, name, "function") for name in names],
            "feature_metadata": [item(labels, label, "close", "feature")],
        }
    if shape == "mixed" and number % 3 == 2:
        functions["function_metadata"].append({"function_name": Name("zeta")})
    values = {
        "era_id": "era-1",
        "eval_type": "signal" if number % 2 else "strategy",
        "eval_id": "eval",
        "tree_depth": 1.5 if number % 2 else 70_000,
        "failure_reason": "tampered",
        "failure_detail": "detail",
        "rejection_reason": "rejected",
        "signal_pool_id": "pool-1",
        "strategy_pool_id": "pool-2",
        "strategy_signal_pool": "pool-3",
        "agent_is_pnl_mi": 0.5,
        "is_pnl_mi": 0.25,
        "is_correlation": 0.125,
    }
    made = {name: labels.own(f"{name} of {label}", value) for name, value in values.items()}
    return SimpleNamespace(
        **functions,
        **made,
        timestamp=NOW - 60,
        submitted=True,
        passed_thresholds=number != 0,
        sharpe=1.0,
        returns=1.0,
        turnover=1.0,
        drawdown=1.0,
        correlation=0.5,
        per_column_stats=None,
    )


NAMES = {
    "one pair": [["alpha", "beta"]] * 4,
    "pairs in turn": [["alpha", "beta"], ["gamma", "alpha"], ["gamma", "beta"], ["beta", "gamma"]],
    "names before pairs": [["alpha"], ["beta"], ["gamma", "beta", "alpha"], ["alpha", "gamma"]],
    "names twice": [["alpha", "alpha", "beta"], ["beta", "beta", "alpha", "alpha"]],
    "many names": [[f"name{number:03}" for number in range(140)], ["name001", "name000"]],
    "many names after few": [["name001"], [f"name{n:03}" for n in range(140)], ["name001", "x1"]],
}


def handed_on(
    module: Any, operation: str, records: list[list[str]], shape: str, arguments: Arguments
) -> list[tuple[str, str]]:
    """The objects of our own in the result, by their places."""
    labels = Labels()
    history = [evaluation(labels, i, names, shape) for i, names in enumerate(records)]
    tracker = HistoryTracker(history)
    row = tuple(labels.own(f"{name} of the row", name) for name in ("useful", "why", "where"))
    rows = {"eval": (row[0], None, row[1], row[2])}
    tracker._conn = TableConnection(["signal_submission_status"], rows, [])  # type: ignore[attr-defined]
    pools = [
        SimpleNamespace(name=labels.own(f"pool {number}", "pool"), is_correlation_threshold=0.7)
        for number in range(2)
    ]
    given = {**OPERATIONS[operation], **arguments}
    for name, value in given.items():
        if isinstance(value, (str, float)):
            given[name] = labels.own(name, value)
        elif isinstance(value, list):
            given[name] = [labels.own(f"{name} {i}", part) for i, part in enumerate(value)]
    if "aggregate_by" in given:
        given["aggregate_by"] = getattr(module.AggregateBy, given.pop("by"))
    result = getattr(module.SearchAnalytics(tracker, pools), operation)(**given)
    return list(labels.of(result))


ARGUMENTS: dict[str, tuple[str, Arguments]] = {
    "statistics": ("get_search_stats", {}),
    "statistics by name": ("get_search_stats", {"aggregate_by": None, "by": "NONE"}),
    "statistics by function": (
        "get_search_stats",
        {"aggregate_by": None, "by": "FUNCTION_FEATURE"},
    ),
    "suggestions": ("get_suggestions", {}),
    "patterns": ("get_search_patterns", {"era_id": "era-1"}),
    "velocity": ("get_search_velocity", {"windows": [3000, 1.5, 3000, 1.5]}),
    "yield": ("get_yield_analysis", {"recent_window_minutes": 1000.5}),
    "correlations": ("get_correlation_patterns", {}),
    "correlations cut": ("get_correlation_patterns", {"top_n": 1}),
}


@pytest.mark.parametrize("shape", ["metadata", "bare", "mixed"])
@pytest.mark.parametrize("names", NAMES)
@pytest.mark.parametrize("asked", ARGUMENTS)
def test_result_hands_on_the_same_objects(asked: str, names: str, shape: str) -> None:
    operation, arguments = ARGUMENTS[asked]
    expected, found = (
        handed_on(module, operation, NAMES[names], shape, arguments)
        for module in (model, subject())
    )
    assert expected
    assert found == expected
