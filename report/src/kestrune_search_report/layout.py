"""How tables look to people: which columns, in which order, and how a cell is written."""

from __future__ import annotations

import math
from typing import Any

from kestrune_search_report.table import Column, Table

# What fits beside each other; CSV and JSON have all columns.
_SHARES = (
    "total",
    "passed",
    "rate",
    "low",
    "high",
    "rest_rate",
    "q_value",
    "held_still",
    "told_apart",
)
SHOWN: dict[tuple[str, ...], tuple[str, ...]] = {
    ("rank", "functions"): (
        "functions",
        "features",
        "window",
        "evaluation_count",
        "sharpe",
        "correlation",
        "turnover",
        "yield_rate",
        "composite_score",
    ),
    ("function_a", "function_b", "total"): ("function_a", "function_b", *_SHARES),
    ("function_family", "total", "low"): ("function_family", *_SHARES),
    ("functions", "features", "low"): ("functions", "features", *_SHARES),
    ("depth", "low"): ("depth", *_SHARES),
    ("eval_id", "status", "tamper_reasons"): (
        "eval_id",
        "status",
        "agent_is_pnl_mi",
        "is_pnl_mi",
        "tamper_reasons",
    ),
    ("eval_id", "status"): ("eval_id", "eval_type", "status", "useful_flag", "rejection_reason"),
    ("part", "total_a"): (
        "part",
        "total_a",
        "rate_a",
        "total_b",
        "rate_b",
        "difference",
        "q_value",
        "told_apart",
    ),
}
_PERCENT = ("rate", "low", "high", "effect")
TITLES = {
    "evaluation_count": "n",
    "composite_score": "score",
    "yield_rate": "yield",
    "correlation": "corr",
    "turnover": "turn",
    "told_apart": "apart",
    "rest_rate": "rest",
    "q_value": "q",
    "held_still": "still",
}


def shown_columns(table: Table) -> list[Column]:
    """Return the columns that people are shown."""
    names = set(table.column_names)
    by_name = {column.name: column for column in table.columns}
    for marks, shown in SHOWN.items():
        if names.issuperset(marks):
            extra = ("advice",) if "advice" in names else ()
            return [by_name[name] for name in (*extra, *shown) if name in names]
    return list(table.columns)


def title(column: Column) -> str:
    """Return what stands above a column."""
    return TITLES.get(column.name, column.name.replace("_", " "))


def written(column: Column, value: Any) -> str:
    """Return a cell as people read it: shares in percent, names joined, numbers kept short."""
    if value is None:
        return ""
    if column.kind == "texts":
        return " + ".join(value) if value else "-"
    if column.kind == "flag":
        return "yes" if value else "no"
    if column.kind != "number":
        return str(value)
    if not math.isfinite(value):
        return str(value)
    is_share = column.meaning.endswith("0 to 1") or column.name.split("_")[-1] in _PERCENT
    if is_share or column.name in {"low", "high", "rate_a", "rate_b", "difference"}:
        return f"{value:.1%}"
    return f"{value:.4g}" if abs(value) >= 1000 or 0 < abs(value) < 0.01 else f"{value:.2f}"


def is_number(column: Column) -> bool:
    """Whether a column stands flush right."""
    return column.kind in {"integer", "number"}
