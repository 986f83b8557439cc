"""Small stand-ins that the component tests are made of: records, pools, a tracker, an engine."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

NOW = 1_700_000_000.0
"""The instant (seconds since the epoch) at which the `now` fixture stops the clock."""

SETTING_FILTERS = ("era_id", "eval_type", "named_universe", "metaparameters")
USAGE_FILTERS = ("function_family", "function_subfamily", "feature_family", "feature_subfamily")
POOL_FILTERS = ("strategy_pool_id", "signal_pool_id", "strategy_signal_pool")
FIRST_FILTERS = (*SETTING_FILTERS, *USAGE_FILTERS)
FILTERS = (*FIRST_FILTERS, *POOL_FILTERS)
"""The filter arguments that every operation shares, in their order.

Some operations have arguments of their own between the first and those of pools.
"""


class RecordingTracker:
    """A tracker that hands out `evals` as they are and keeps the keywords of every history call."""

    def __init__(self, evals: Any = (), conn: Any = None, **catalogue: Any) -> None:
        self.evals = evals
        self.calls: list[dict[str, Any]] = []
        self.catalogue = catalogue
        if conn is not None:
            self._conn = conn

    def get_evaluation_history(self, **filters: Any) -> Any:
        self.calls.append(filters)
        return self.evals

    def get_available_eras(self) -> Any:
        return self.catalogue["eras"]

    def get_available_named_universes(self) -> Any:
        return self.catalogue["universes"]


def pool(name: str = "main", threshold: float = 0.7) -> SimpleNamespace:
    """A normalised pool config."""
    return SimpleNamespace(
        name=name, is_correlation_threshold=threshold, os_correlation_threshold=None
    )


class Evaluation:
    """A record of an ordinary class: it can be read in place."""

    def __init__(self, **fields: Any) -> None:
        for name, value in fields.items():
            setattr(self, name, value)


def evaluation(**overrides: Any) -> Evaluation:
    """One complete evaluation record: a passed signal made of two functions and one feature."""
    fields: dict[str, Any] = {
        "eval_type": "signal",
        "eval_id": "e1",
        "era_id": "era-1",
        "timestamp": NOW - 60.0,
        "submitted": False,
        "passed_thresholds": True,
        "sharpe": 1.5,
        "returns": 0.25,
        "turnover": 0.5,
        "drawdown": 0.125,
        "correlation": 0.25,
        "per_column_stats": None,
        "tree_depth": 2,
        "function_metadata": [
            function_item("sma", "smoothing", "mean"),
            function_item("rank", "cross_section", "ordinal"),
        ],
        "feature_metadata": [
            {"feature_name": "close", "feature_family": "price", "feature_subfamily": "daily"}
        ],
    }
    fields.update(overrides)
    return Evaluation(**fields)


def function_item(name: Any, family: Any = None, subfamily: Any = None) -> dict[str, Any]:
    """One entry of an evaluation's function metadata."""
    return {"function_name": name, "function_family": family, "function_subfamily": subfamily}


def using(*names: Any, **overrides: Any) -> Evaluation:
    """An evaluation whose functions are bare names, without metadata."""
    return evaluation(function_metadata=None, functions=list(names), **overrides)


def engine_over(evals: Any, *pools: SimpleNamespace, conn: Any = None, **catalogue: Any) -> Any:
    """An engine over a `RecordingTracker` of `evals`, with one pool unless others are given."""
    import kestrune.search_analytics as search_analytics

    tracker = RecordingTracker(evals, conn, **catalogue)
    return search_analytics.SearchAnalytics(tracker, list(pools) or [pool()])
