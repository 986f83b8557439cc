"""Searches made up for tests: records as dictionaries, the same for the same seed."""

from __future__ import annotations

import random
import time
from collections.abc import Callable, Mapping
from typing import Any

FUNCTIONS = {
    "ema_20": "smoothing",
    "ema_50": "smoothing",
    "rank": "cross_section",
    "zscore_10": "reversion",
    "momentum_20": "trend",
    "delta_5": "trend",
}
FEATURES = {"close": "price", "volume": "volume", "range": "range"}
POOLS = {"core": 0.7, "diverse": 0.4}
ERAS = ("2011", "2012")


def items(side: str, names: list[str], families: Mapping[str, str]) -> list[dict[str, str]]:
    """Return items of one side with their families."""
    return [{f"{side}_name": name, f"{side}_family": families[name]} for name in names]


def records(
    count: int = 300,
    seed: int = 1,
    *,
    rate: float = 0.2,
    days: float = 20.0,
    passes: Callable[[random.Random, list[str]], bool] | None = None,
) -> list[dict[str, Any]]:
    """Return evaluations of `days` days up to now, oldest first, as a tracker records them."""
    chance = random.Random(seed)
    now = time.time()
    made: list[dict[str, Any]] = []
    for number in range(count):
        functions = sorted(chance.sample(sorted(FUNCTIONS), chance.randint(1, 3)))
        features = sorted(chance.sample(sorted(FEATURES), chance.randint(1, 2)))
        passed = passes(chance, functions) if passes else chance.random() < rate
        sharpe = chance.gauss(0.0, 1.0)
        eval_type = chance.choice(["signal", "strategy"])
        pool = chance.choice(["alpha", "beta"])
        made.append(
            {
                "eval_id": f"e{number:05}",
                "eval_type": eval_type,
                "era_id": chance.choice(ERAS),
                "timestamp": now - 60.0 - (count - number) * days * 86400 / count,
                "named_universe": chance.choice(["all", "few"]),
                "metaparameters": {"hold": chance.choice([1, 5])},
                "submitted": passed and chance.random() < 0.8,
                "passed_thresholds": passed,
                "sharpe": sharpe,
                "returns": sharpe / 10,
                "turnover": chance.uniform(0.01, 0.5),
                "drawdown": chance.uniform(0.0, 0.4),
                "correlation": chance.uniform(-0.2, 0.9),
                "per_column_stats": {
                    "net_returns_sharpe": sharpe - 0.1,
                    "net_returns_returns": sharpe / 10 - 0.01,
                },
                "function_metadata": items("function", functions, FUNCTIONS),
                "feature_metadata": items("feature", features, FEATURES),
                "tree_depth": len(functions),
                "strategy_pool_id": "p1" if eval_type == "strategy" else None,
                "signal_pool_id": pool if eval_type == "signal" else None,
                "strategy_signal_pool": pool if eval_type == "strategy" else None,
                "is_pnl_mi": 0.002,
                "agent_is_pnl_mi": 0.003 if chance.random() < 0.05 else 0.002,
            }
        )
    return made


def simple(count: int = 60, **changes: Any) -> list[dict[str, Any]]:
    """Return flat rows, as somebody's own CSV file has them: fewer fields, bare names."""
    return [
        {
            "timestamp": row["timestamp"],
            "sharpe": row["sharpe"],
            "returns": row["returns"],
            "turnover": row["turnover"],
            "drawdown": row["drawdown"],
            "correlation": row["correlation"],
            "passed_thresholds": row["passed_thresholds"],
            "era_id": row["era_id"],
            "functions": [item["function_name"] for item in row["function_metadata"]],
            "features": [item["feature_name"] for item in row["feature_metadata"]],
            **changes,
        }
        for row in records(count, seed=3)
    ]
