"""polars: lazy expressions over typed columns, on all cores."""

from typing import Any

import polars as pl
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


def _window_values(window: str, seconds: float | None, now: float) -> list[pl.Expr]:
    inside = None if seconds is None else pl.col("timestamp") >= now - seconds
    passed = pl.col("passed")
    values = {name: pl.col(name) for name in columns.MEASURES}
    values["yield"] = passed
    for pool in POOLS:
        values[pool.name] = passed & (pl.col("correlation") < pool.is_correlation_threshold)
    count = pl.len() if inside is None else inside.sum()
    return [
        count.alias(f"{window}_n"),
        *(
            (value if inside is None else value.filter(inside))
            .mean()
            .fill_null(0.0)
            .alias(f"{window}_{name}")
            for name, value in values.items()
        ),
    ]


def _score(window: str) -> pl.Expr:
    sharpe, correlation, turnover = (
        pl.col(f"{window}_{name}") for name in ("sharpe", "correlation", "turnover")
    )
    score = sharpe * (1.0 - correlation) / pl.max_horizontal(turnover, 0.01)
    return score.alias(f"{window}_score")


def _ask_stats(
    frame: pl.DataFrame, now: float, min_sample_size: int = MIN_SAMPLE_SIZE
) -> pl.DataFrame:
    values = [v for name, seconds in WINDOWS.items() for v in _window_values(name, seconds, now)]
    return (
        frame.lazy()
        .group_by("functions", "features")
        .agg(values)
        .filter(pl.col("lifetime_n") >= min_sample_size)
        .with_columns(map(_score, WINDOWS))
        .sort("lifetime_score", "lifetime_n", descending=True)
        .collect()
    )


def _patterns_frames(records: list[Any]) -> tuple[pl.DataFrame, pl.DataFrame]:
    return (
        pl.DataFrame(columns.depths(records)),
        pl.DataFrame(columns.usage(records, "function_family")),
    )


def _ask_patterns(
    frames: tuple[pl.DataFrame, pl.DataFrame], now: float
) -> tuple[pl.DataFrame, pl.DataFrame]:
    depths, used = frames
    passed = pl.col("passed")
    values = [pl.len(), passed.sum().alias("good"), passed.mean().alias("rate")]
    return (
        depths.group_by("depth").agg(values).sort("depth"),
        used.group_by("used").agg(values).sort("rate", descending=True),
    )


def _ask_velocity(frame: pl.DataFrame, now: float) -> pl.DataFrame:
    values = []
    for minutes in VELOCITY_MINUTES:
        recent = pl.col("timestamp") >= now - minutes * 60
        values.append(recent.sum().alias(f"total_{minutes}"))
        values.append((recent & pl.col("passed")).sum().alias(f"passed_{minutes}"))
    return frame.select(values)


def _velocity_table(answer: pl.DataFrame) -> Any:
    row = answer.row(0)
    return velocity_table(zip(row[::2], row[1::2], strict=True))


def _ask_pairs(frames: tuple[pl.DataFrame, pl.DataFrame], now: float) -> pl.DataFrame:
    outcomes, used = frames
    base_rate = outcomes["passed"].mean()
    return (
        used.lazy()
        .join(used.lazy(), on="record")
        .filter(pl.col("used") < pl.col("used_right"))
        .group_by("used", "used_right")
        .agg(pl.len().alias("total"), pl.col("passed").sum().alias("good"))
        .sort("good", "used", "used_right", descending=[True, False, False])
        .head(TOP_PAIRS)
        .with_columns((pl.col("good") / pl.col("total") / base_rate).alias("lift"))
        .collect()
    )


def _pairs_frames(records: list[Any]) -> tuple[pl.DataFrame, pl.DataFrame]:
    return (
        pl.DataFrame(columns.outcomes(records)),
        pl.DataFrame(columns.usage(records, "function_name")),
    )


ANSWERERS = {
    "get_search_stats": Answerer(
        lambda records: pl.DataFrame(columns.stats(records)),
        _ask_stats,
        lambda answer: stats_table(answer.to_dicts()),
    ),
    "get_search_patterns": Answerer(
        _patterns_frames,
        _ask_patterns,
        lambda answer: patterns_table(*(part.rows() for part in answer)),
    ),
    "get_search_velocity": Answerer(
        lambda records: pl.DataFrame(columns.outcomes(records)), _ask_velocity, _velocity_table
    ),
    "get_correlation_patterns": Answerer(
        _pairs_frames, _ask_pairs, lambda answer: pairs_table(answer.rows())
    ),
}
