"""The evaluation record: one candidate, tried once."""

from dataclasses import dataclass
from typing import Any


@dataclass
class Evaluation:
    """What a search found out about one candidate, a signal or a strategy.

    `timestamp` is in seconds since the epoch. `sharpe` and `returns` are per year, `turnover`
    is the share of the capital traded per day, `drawdown` the deepest fall below an earlier
    peak, as a share of the capital; `correlation` is the highest to the members of the pool.
    `per_column_stats` holds statistics by "<profit column>_<statistic>". A pool of signals is
    named by `signal_pool_id` on a signal and by `strategy_signal_pool` on a strategy that is
    built on it. `metaparameters` is any value that JSON can hold.
    """

    eval_id: str
    eval_type: str
    era_id: str
    timestamp: float
    named_universe: str | None = None
    metaparameters: Any = None
    submitted: bool = False
    passed_thresholds: bool = False
    sharpe: float | None = None
    returns: float | None = None
    turnover: float | None = None
    drawdown: float | None = None
    correlation: float | None = None
    per_column_stats: dict[str, float] | None = None
    function_metadata: list[dict[str, Any]] | None = None
    functions: list[Any] | None = None
    feature_metadata: list[dict[str, Any]] | None = None
    features: list[Any] | None = None
    tree_depth: int | None = None
    strategy_pool_id: str | None = None
    signal_pool_id: str | None = None
    strategy_signal_pool: str | None = None
    is_correlation: float | None = None
    is_pnl_mi: float | None = None
    agent_is_pnl_mi: float | None = None
    rejection_reason: str | None = None
    failure_reason: str | None = None
    failure_detail: str | None = None
