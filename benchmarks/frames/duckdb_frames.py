"""DuckDB: SQL over tables in memory, on all cores. Records come in as Arrow tables."""

from typing import Any

import duckdb
import pyarrow as pa
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

_connection = duckdb.connect()


class Tables:
    """Named tables of one conversion, stored by the database."""

    def __init__(self, **contents: columns.Columns) -> None:
        for name, values in contents.items():
            incoming = pa.table(values)
            _connection.register("incoming", incoming)
            _connection.execute(f"CREATE OR REPLACE TABLE {name} AS SELECT * FROM incoming")
            _connection.unregister("incoming")


def _fetch(sql: str, *parameters: Any) -> list[tuple[Any, ...]]:
    return _connection.execute(sql, parameters).fetchall()


def _window_values(window: str, seconds: float | None) -> list[str]:
    inside = "" if seconds is None else f" FILTER (timestamp >= $now - {seconds})"
    values = {name: name for name in columns.MEASURES}
    values["yield"] = "passed::INT"
    for pool in POOLS:
        values[pool.name] = f"(passed AND correlation < {pool.is_correlation_threshold})::INT"
    return [
        f"count(*){inside} AS {window}_n",
        *(
            f"coalesce(avg({value}){inside}, 0.0) AS {window}_{name}"
            for name, value in values.items()
        ),
    ]


def _score(window: str) -> str:
    return (
        f"{window}_sharpe * (1.0 - {window}_correlation) / greatest({window}_turnover, 0.01) "
        f"AS {window}_score"
    )


_ALL_VALUES = [v for name, seconds in WINDOWS.items() for v in _window_values(name, seconds)]
_STATS = f"""
    WITH groups AS (
        SELECT functions, features,
            {", ".join(_ALL_VALUES)}
        FROM stats GROUP BY functions, features HAVING count(*) >= $least
    )
    SELECT *, {", ".join(map(_score, WINDOWS))}
    FROM groups ORDER BY lifetime_score DESC, lifetime_n DESC
"""


def _ask_stats(
    tables: Tables, now: float, min_sample_size: int = MIN_SAMPLE_SIZE
) -> tuple[list[str], list[tuple[Any, ...]]]:
    answer = _connection.execute(_STATS, {"now": now, "least": min_sample_size})
    return [column[0] for column in answer.description], answer.fetchall()


def _stats_table(answer: tuple[list[str], list[tuple[Any, ...]]]) -> Any:
    names, rows = answer
    return stats_table(dict(zip(names, row, strict=True)) for row in rows)


def _patterns_tables(records: list[Any]) -> Tables:
    return Tables(
        depths=columns.depths(records), families=columns.usage(records, "function_family")
    )


def _ask_patterns(tables: Tables, now: float) -> tuple[list[Any], list[Any]]:
    values = "count(*), sum(passed::INT), avg(passed::INT) AS rate"
    return (
        _fetch(f"SELECT depth, {values} FROM depths GROUP BY depth ORDER BY depth"),
        _fetch(f"SELECT used, {values} FROM families GROUP BY used ORDER BY rate DESC"),
    )


_VELOCITY = "SELECT " + ", ".join(
    f"count(*) FILTER (timestamp >= $now - {60 * minutes}), "
    f"count(*) FILTER (timestamp >= $now - {60 * minutes} AND passed)"
    for minutes in VELOCITY_MINUTES
)


def _ask_velocity(tables: Tables, now: float) -> list[tuple[int, int]]:
    ((*counts,),) = _connection.execute(f"{_VELOCITY} FROM outcomes", {"now": now}).fetchall()
    return list(zip(counts[::2], counts[1::2], strict=True))


def _pairs_tables(records: list[Any]) -> Tables:
    return Tables(outcomes=columns.outcomes(records), names=columns.usage(records, "function_name"))


_PAIRS = f"""
    SELECT one.used AS a, other.used AS b, count(*) AS total, sum(one.passed::INT) AS good,
        good / total / (SELECT avg(passed::INT) FROM outcomes) AS lift
    FROM names AS one JOIN names AS other ON one.record = other.record AND one.used < other.used
    GROUP BY a, b ORDER BY good DESC, a, b LIMIT {TOP_PAIRS}
"""

ANSWERERS = {
    "get_search_stats": Answerer(
        lambda records: Tables(stats=columns.stats(records)), _ask_stats, _stats_table
    ),
    "get_search_patterns": Answerer(
        _patterns_tables, _ask_patterns, lambda answer: patterns_table(*answer)
    ),
    "get_search_velocity": Answerer(
        lambda records: Tables(outcomes=columns.outcomes(records)), _ask_velocity, velocity_table
    ),
    "get_correlation_patterns": Answerer(
        _pairs_tables, lambda tables, now: _fetch(_PAIRS), pairs_table
    ),
}
