"""Evaluation records of generated cases, and the histories that hold them."""

from __future__ import annotations

import math
from collections import deque
from types import MappingProxyType, SimpleNamespace
from typing import Any

from differential import steady
from differential.hooks import HookedDict, HookedIterable, HookedList, HookedSequence, hooked
from differential.usage import usage
from differential.values import (
    CLEAN_NUMBERS,
    correlation,
    depth,
    era,
    fresh_error,
    name,
    number,
    timestamp,
    truth,
)
from differential.world import NOW, World
from support.records import LOGGING_SHAPES, QUIET_SHAPES

COLUMNS = ("gross_returns", "net_returns")

BASIC = ("passed_thresholds", "submitted")
STATISTICS = (
    *BASIC,
    "per_column_stats",
    "sharpe",
    "returns",
    "drawdown",
    "turnover",
    "correlation",
    "timestamp",
    "era_id",
)
PATTERNS = (*BASIC, "tree_depth")
VELOCITY = (*BASIC, "timestamp")
YIELD = (
    *BASIC,
    "timestamp",
    "eval_type",
    "eval_id",
    "strategy_pool_id",
    "signal_pool_id",
    "strategy_signal_pool",
    "is_correlation",
    "is_pnl_mi",
    "agent_is_pnl_mi",
    "failure_reason",
    "failure_detail",
    "rejection_reason",
)


def column_table(w: World) -> Any:
    """The statistics per column of profit and loss, or nothing."""
    if w.chance(50):
        return w.pick((None, {}, 0) if w.mood != "clean" else (None, {}))
    table = {
        f"{column}_{statistic}": number(w)
        for column in COLUMNS
        for statistic in ("sharpe", "returns", "drawdown")
        if w.chance(60)
    }
    if w.odd(10):
        return hooked(HookedDict, w.note, "columns", table)
    if w.odd(5):
        return MappingProxyType(table)
    if w.odd(4):
        return _Defaulting(table)
    if w.broken():
        return w.pick((["gross_returns_sharpe"], "gross_returns_sharpe", 5, object()))
    return table


class _Defaulting(dict):  # type: ignore[type-arg]
    """A table that has an answer for a missing key, yet does not contain it."""

    def __missing__(self, key: Any) -> float:
        return 99.0


def _optional(w: World, value: Any) -> Any:
    return None if w.chance(30) else value


REASONS = (
    "tampering suspected",
    "TAMPER",
    "correlation too high",
    "Tamper-proof seal",
    "tam per",
    "",
    "ok",
)


def reason(w: World) -> Any:
    """A text that says why a candidate failed."""
    if w.odd(8):
        return w.pick((5, ["tamper"], 0, {"a": "TAMPERING"}, b"tamper", ValueError("Tamper")))
    return w.pick(REASONS) if w.chance(60) else None


def pnl_mi(w: World) -> Any:
    """An agent's or the server's measure: numbers, texts of numbers, nothing."""
    if w.chance(50):
        return w.pick((0.5, 0.6, 0.5 + 1e-10, 0.5 + 1e-9, 0.5 + 2e-9, 0, 0.0, -0.0))
    if w.chance(30):
        return w.pick((None, "nan", "inf", "-inf", "0.5", "abc", "", b"0.5", [], 3, True))
    return number(w)


def value_of(w: World, attribute: str) -> Any:
    """A value for one attribute."""
    if w.steady and not steady.is_exception(w):
        return steady.value(w, attribute)
    if attribute in ("passed_thresholds", "submitted"):
        return truth(w)
    if attribute == "per_column_stats":
        return column_table(w)
    if attribute == "correlation":
        return correlation(w)
    if attribute == "timestamp":
        return timestamp(w)
    if attribute == "era_id":
        return era(w)
    if attribute == "tree_depth":
        return depth(w)
    if attribute == "eval_type":
        return w.pick(("signal", "strategy", "signal", "other", None))
    if attribute == "eval_id":
        return f"e{w.below(6)}"
    if attribute in ("is_pnl_mi", "agent_is_pnl_mi"):
        return pnl_mi(w)
    if attribute in ("failure_reason", "failure_detail", "rejection_reason"):
        return reason(w)
    if attribute.endswith(("pool_id", "signal_pool")):
        return _optional(w, name(w, ("pool-a", "pool-b")))
    return number(w)


OPTIONAL = frozenset(YIELD[5:])


def evaluation(
    w: World, attributes: tuple[str, ...], sides: tuple[str, ...], label: str, **fields: Any
) -> Any:
    """One record with those attributes (some now and then missing) and usage on those sides."""
    for attribute in attributes:
        if attribute in OPTIONAL and not w.steady and w.chance(20):
            continue
        if w.broken(1):
            continue
        fields[attribute] = value_of(w, attribute)
    for side in sides:
        fields.update(usage(w, side))
    return shaped(w, fields, label)


def shaped(w: World, fields: dict[str, Any], label: str) -> Any:
    """A record of some shape with those fields."""
    if w.steady and not steady.is_exception(w):
        return w.tag(steady.SHAPES[w.steady_shape](**fields), "record")
    shape = w.below(len(QUIET_SHAPES) + len(LOGGING_SHAPES))
    record: Any
    if shape < len(QUIET_SHAPES):
        record = QUIET_SHAPES[shape](**fields)
    else:
        record = LOGGING_SHAPES[shape - len(QUIET_SHAPES)](w.trace, label, fields)
    return w.tag(record, "record")


def crowd(w: World) -> list[Any]:
    """So many plain records that sorting them takes more than one run, with ties and oddities."""
    scores: list[Any] = [w.pick(CLEAN_NUMBERS) for _ in range(1 + w.below(6))]
    if w.chance(50):
        w.mixes_nans = True
        scores.extend((math.nan, 0.0, -0.0, 1, True, math.inf, -math.inf)[: 1 + w.below(7)])
    groups = 1 + w.below(90)
    records = []
    for index in range(w.pick((30, 60, 70, 120, 150))):
        group = w.below(groups)
        members = {group, w.below(groups), (group * group) % 13}
        metadata = [{"function_name": f"g{m}", "function_family": f"h{m}"} for m in members]
        fields = {
            "era_id": "era-1",
            "timestamp": NOW - 7000 * (index % 100),
            "passed_thresholds": w.below(3) == 0,
            "submitted": group % 2,
            "per_column_stats": None,
            "sharpe": w.pick(scores),
            "returns": 0.1,
            "turnover": w.pick(scores),
            "drawdown": 0.2,
            "correlation": w.pick(scores),
            "tree_depth": w.pick(scores) if groups % 2 else group,
            "function_metadata": metadata if group % 4 else metadata[:1],
            "features": ["close"],
        }
        shape = steady.SHAPES[w.steady_shape] if w.steady else SimpleNamespace
        records.append(w.tag(shape(**fields), "record"))
    return records


def timed(w: World, age: float, passed: bool, label: str) -> Any:
    """A record that has little but an age in seconds and an outcome, as rates need it."""
    fields = {"timestamp": NOW - age, "passed_thresholds": passed}
    return shaped(w, {**fields, "eval_type": "other", "eval_id": label}, label)


def history(w: World, records: list[Any]) -> Any:
    """What the tracker returns: mostly the list itself."""
    if w.odd(6):
        kind = w.below(9)
        if kind == 0:
            return w.tag(tuple(records), "tuple")
        if kind == 1:
            return w.tag(deque(records), "deque")
        if kind == 2:
            return w.tag(iter(records), "iterator")
        if kind == 3:
            return w.tag(hooked(HookedList, w.note, "history", records), "history")
        if kind == 4:
            return w.tag(HookedSequence(w.note, "history", records), "sequence")
        if kind == 5:
            return w.tag(HookedIterable(w.note, "history", records), "iterable")
        if kind == 6:
            return w.tag((record for record in records), "generator")
        if kind == 7:
            return w.tag({index: None for index, _ in enumerate(records)}, "dict")
        return w.pick((None, "", 0, 5, fresh_error(w)))
    return w.tag(records, "history")
