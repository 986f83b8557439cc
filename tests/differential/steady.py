"""What ordinary records hold, all of one class: records for which looking is enough.

A tracker returns thousands of such records in a row; here and there one is not quite like that.
"""

from __future__ import annotations

from typing import Any

from differential.values import CLEAN_FAMILIES, CLEAN_NAMES, CLEAN_NUMBERS
from differential.world import NOW, World
from support.records import ATTRIBUTES, DataRecord, SlotRecord

STATISTICS = ("sharpe", "returns", "drawdown")
AGES = (-5.0, 0.0, 59.0, 3600.0, 21600.0, 86399.5, 86400.0, 86401.0, 604800.0, 604801.0, 9e6)


class InstanceRecord:
    """A record that holds what it was given."""

    def __init__(self, **fields: Any) -> None:
        vars(self).update(fields)


class ArrayRecord:
    """A record that holds every attribute, but those that may be absent."""

    def __init__(self, **fields: Any) -> None:
        for name in ATTRIBUTES:
            if name in fields:
                setattr(self, name, fields[name])


SHAPES = (ArrayRecord, DataRecord, SlotRecord, InstanceRecord)


def is_exception(w: World) -> bool:
    """True now and then, where something is not as steady as the rest."""
    return w.chance(3)


def text(w: World, texts: tuple[str, ...]) -> str:
    """One of the texts, mostly as an object of its own."""
    chosen = w.pick(texts)
    return "".join(list(chosen)) if w.chance(80) else chosen


def value(w: World, attribute: str) -> Any:
    """An attribute's value, of the type that a tracker gives it."""
    if attribute in ("passed_thresholds", "submitted"):
        return w.chance(50)
    if attribute == "per_column_stats":
        return _columns(w)
    if attribute == "timestamp":
        return NOW - w.pick(AGES)
    if attribute == "era_id":
        return text(w, ("era-1", "era-2"))
    if attribute == "tree_depth":
        return w.below(5)
    if attribute == "eval_type":
        return text(w, ("signal", "strategy"))
    if attribute == "eval_id":
        return f"evaluation-{w.below(6)}"
    if attribute in ("is_pnl_mi", "agent_is_pnl_mi"):
        return w.pick((0.25, 0.25, 0.25 + 2e-9, 0.0, None, float("inf"), float("nan")))
    if attribute in ("failure_reason", "failure_detail", "rejection_reason"):
        return text(w, REASONS) if w.chance(70) else None
    if attribute.endswith(("pool_id", "signal_pool")):
        return text(w, ("pool-a", "pool-b")) if w.chance(70) else None
    return w.pick(CLEAN_NUMBERS)


REASONS = (
    "thresholds",
    "TamPer seen",
    "sharpe 0.31 below 0.70",
    "no tampe",
    "été TAMPER",
    "tamper",
)


def _columns(w: World) -> dict[str, float] | None:
    if w.chance(20):
        return None
    columns = ("gross_returns", "net_returns") if w.chance(70) else ("net_returns", "gross_returns")
    return {f"{c}_{s}": w.pick(CLEAN_NUMBERS) for c in columns for s in STATISTICS}


def usage(w: World, side: str) -> dict[str, Any]:
    """One side of a record: its metadata in full, and the bare names."""
    items = [_item(w, side) for _ in range(1 + w.below(4))]
    bare = "functions" if side == "function" else "features"
    return {f"{side}_metadata": items, bare: [item[f"{side}_name"] for item in items]}


def _item(w: World, side: str) -> dict[str, str]:
    # An empty name is no name for a pair, but one for a group.
    names = ("", *CLEAN_NAMES) if w.chance(20) else CLEAN_NAMES
    entries = {
        f"{side}_name": text(w, names),
        f"{side}_family": text(w, CLEAN_FAMILIES),
        f"{side}_subfamily": text(w, CLEAN_FAMILIES),
    }
    # The keys are texts of their own, as they are when each record is decoded by itself.
    items = [("".join(list(key)), entry) for key, entry in entries.items()]
    return dict(reversed(items) if w.chance(5) else items)
