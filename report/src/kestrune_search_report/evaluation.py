"""One evaluation as a snapshot keeps it: a copy that no tracker changes any more."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NamedTuple

from kestrune_search_report.narrowing import is_mapping


class Submission(NamedTuple):
    """The latest status of a submitted candidate; each part None where it is not known."""

    status: str | None
    useful_flag: bool | None
    rejection_reason: str | None
    pool: str | None


@dataclass
class Evaluation:
    """One candidate, tried once; units as its source recorded them.

    `timestamp` is in seconds since the epoch. The five measures are numbers, never None. What
    the source does not have is None, `submitted` False.
    """

    eval_id: Any
    eval_type: Any
    era_id: Any
    timestamp: float
    named_universe: Any
    metaparameters: Any
    submitted: bool
    passed_thresholds: bool
    sharpe: float
    returns: float
    turnover: float
    drawdown: float
    correlation: float
    per_column_stats: dict[str, Any] | None
    function_metadata: list[Any] | None
    functions: list[Any] | None
    feature_metadata: list[Any] | None
    features: list[Any] | None
    tree_depth: Any
    strategy_pool_id: Any
    signal_pool_id: Any
    strategy_signal_pool: Any
    is_correlation: Any
    is_pnl_mi: Any
    agent_is_pnl_mi: Any
    rejection_reason: Any
    failure_reason: Any
    failure_detail: Any
    submission: Submission | None = None


def items_of(evaluation: Evaluation, side: str) -> list[Any]:
    """Return the items of one side, "function" or "feature", as the questions see them."""
    metadata = getattr(evaluation, f"{side}_metadata")
    if metadata:
        return list(metadata)
    names: list[Any] = getattr(evaluation, f"{side}s") or []
    if any(isinstance(name, dict) for name in names):
        return list(names)
    return [{f"{side}_name": name} for name in names]


def name_at(item: Any, side: str, level: str) -> Any:
    """Return the name of an item at a level: "name", "family" or "subfamily".

    An item without a family or subfamily goes by its own name; "" stands for no name at all.
    """
    if not is_mapping(item):
        return str(item) if level == "name" else ""
    value = item.get(f"{side}_{level}")
    return (item.get(f"{side}_name") if value is None else value) or ""
