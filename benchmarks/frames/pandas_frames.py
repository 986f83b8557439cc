"""pandas: grouped aggregations over NumPy columns."""

from typing import Any

import numpy as np
import pandas as pd
from workloads import POOLS

from frames import columns
from frames.questions import (
    MIN_SAMPLE_SIZE,
    TOP_PAIRS,
    VELOCITY_MINUTES,
    WINDOWS,
    Answerer,
    pairs_table,
    patterns_table,
    stats_table,
    velocity_table,
)

_KEY = ["functions", "features"]


def _ask_stats(
    frame: pd.DataFrame, now: float, min_sample_size: int = MIN_SAMPLE_SIZE
) -> pd.DataFrame:
    frame = frame.assign(
        **{
            "n": 1.0,
            "yield": frame["passed"],
            **{
                pool.name: frame["passed"] & (frame["correlation"] < pool.is_correlation_threshold)
                for pool in POOLS
            },
        }
    )
    values = ["n", *columns.MEASURES, "yield", *(pool.name for pool in POOLS)]
    parts = []
    for window, seconds in WINDOWS.items():
        inside = frame if seconds is None else frame[frame["timestamp"] >= now - seconds]
        sums = inside.groupby(_KEY, sort=False)[values].sum()
        if seconds is None:
            sums = sums[sums["n"] >= min_sample_size]
        else:
            sums = sums.reindex(parts[0].index, fill_value=0.0)
        means = sums.div(sums["n"].clip(lower=1.0), axis=0).assign(n=sums["n"])
        turnover = means["turnover"].clip(lower=0.01)
        means["score"] = means["sharpe"] * (1.0 - means["correlation"]) / turnover
        parts.append(means.add_prefix(f"{window}_"))
    return pd.concat(parts, axis=1).sort_values(["lifetime_score", "lifetime_n"], ascending=False)


def _patterns_frames(records: list[Any]) -> tuple[pd.DataFrame, pd.DataFrame]:
    return (
        pd.DataFrame(columns.depths(records)),
        pd.DataFrame(columns.usage(records, "function_family")),
    )


def _ask_patterns(
    frames: tuple[pd.DataFrame, pd.DataFrame], now: float
) -> tuple[pd.DataFrame, pd.DataFrame]:
    depths, used = frames
    values = ["count", "sum", "mean"]
    return (
        depths.groupby("depth")["passed"].agg(values),
        used.groupby("used", sort=False)["passed"].agg(values).sort_values("mean", ascending=False),
    )


def _ask_velocity(frame: pd.DataFrame, now: float) -> list[tuple[int, int]]:
    timestamp, passed = frame["timestamp"].to_numpy(), frame["passed"].to_numpy()
    recent = [timestamp >= now - minutes * 60 for minutes in VELOCITY_MINUTES]
    return [(int(np.sum(test)), int(np.sum(test & passed))) for test in recent]


def _pairs_frames(records: list[Any]) -> tuple[pd.DataFrame, pd.DataFrame]:
    return (
        pd.DataFrame(columns.outcomes(records)),
        pd.DataFrame(columns.usage(records, "function_name")),
    )


def _ask_pairs(frames: tuple[pd.DataFrame, pd.DataFrame], now: float) -> pd.DataFrame:
    outcomes, used = frames
    both = used.merge(used[["record", "used"]], on="record", suffixes=("", "_right"))
    both = both[both["used"] < both["used_right"]]
    names = ["used", "used_right"]
    counts = both.groupby(names, sort=False)["passed"].agg(["count", "sum"]).reset_index()
    best = counts.sort_values(["sum", *names], ascending=[False, True, True]).head(TOP_PAIRS)
    return best.assign(lift=best["sum"] / best["count"] / outcomes["passed"].mean())


ANSWERERS = {
    "get_search_stats": Answerer(
        lambda records: pd.DataFrame(columns.stats(records)),
        _ask_stats,
        lambda answer: stats_table(answer.reset_index().to_dict("records")),
    ),
    "get_search_patterns": Answerer(
        _patterns_frames,
        _ask_patterns,
        lambda answer: patterns_table(*(part.itertuples(name=None) for part in answer)),
    ),
    "get_search_velocity": Answerer(
        lambda records: pd.DataFrame(columns.outcomes(records)), _ask_velocity, velocity_table
    ),
    "get_correlation_patterns": Answerer(
        _pairs_frames,
        _ask_pairs,
        lambda answer: pairs_table(answer.itertuples(index=False, name=None)),
    ),
}
