"""The evaluations that a question sees, for what the module's answers do not say."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

from kestrune_search_report.catalogue import FAMILY_FILTERS
from kestrune_search_report.evaluation import Evaluation, items_of, name_at
from kestrune_search_report.snapshot import Snapshot

# How many evaluations a question sees at most: the newest.
QUESTION_LIMIT = 10_000
DEFAULT_COLUMN = "gross_returns"


def selected(snapshot: Snapshot, filters: Mapping[str, Any]) -> list[Evaluation]:
    """Return the evaluations that any question with these filters reads, newest first."""
    found = matching(snapshot, filters)[:QUESTION_LIMIT]
    for name in FAMILY_FILTERS:
        if (wanted := filters.get(name)) is not None:
            side, _, level = name.partition("_")
            found = [
                one
                for one in found
                if any(name_at(item, side, level) == wanted for item in items_of(one, side))
            ]
    return found


def matching(snapshot: Snapshot, filters: Mapping[str, Any]) -> list[Evaluation]:
    """Return all evaluations that pass the filters which a tracker honours, newest first."""
    asked = {
        name: value
        for name, value in filters.items()
        if name not in FAMILY_FILTERS and value is not None
    }
    # A signal pool alone also stands for that of strategies, with strategies only for that.
    if "signal_pool_id" in asked and "strategy_signal_pool" not in asked:
        asked["strategy_signal_pool"] = asked["signal_pool_id"]
        if asked.get("eval_type") == "strategy":
            del asked["signal_pool_id"]
    return snapshot.get_evaluation_history(**asked)


def sharpe_of(evaluation: Evaluation, pnl_column: str | None) -> float:
    """Return the Sharpe ratio of a profit column, or that of the whole where it has none."""
    key = f"{pnl_column or DEFAULT_COLUMN}_sharpe"
    figures = evaluation.per_column_stats
    return float(figures[key] if figures and key in figures else evaluation.sharpe)
