"""The tracker's tables, and how a value of a record is kept in a column."""

import json
import math
from collections.abc import Callable
from typing import Any, NamedTuple


class Kind(NamedTuple):
    """The SQL type of a column and the way of a value (never None) into it and back."""

    sql: str
    store: Callable[[Any], Any]
    load: Callable[[Any], Any]


def _store_real(value: Any) -> Any:
    number = float(value)
    # SQLite turns a NaN into NULL. As text it stays what it is there, and PostgreSQL reads
    # the same text as its own NaN.
    return "NaN" if math.isnan(number) else number


def canonical_json(value: Any) -> str:
    """Return one text per value: equal values compare equal in the database."""
    return json.dumps(value, sort_keys=True, separators=(",", ":"))


TEXT = Kind("TEXT", str, str)
REAL = Kind("DOUBLE PRECISION", _store_real, float)
INTEGER = Kind("BIGINT", int, int)
FLAG = Kind("INTEGER", lambda value: 1 if value else 0, bool)
JSON = Kind("TEXT", json.dumps, json.loads)
SORTED_JSON = Kind("TEXT", canonical_json, json.loads)

# One column per field of Evaluation, in the order of its fields.
EVALUATION_COLUMNS: dict[str, Kind] = {
    "eval_id": TEXT,
    "eval_type": TEXT,
    "era_id": TEXT,
    "timestamp": REAL,
    "named_universe": TEXT,
    "metaparameters": SORTED_JSON,
    "submitted": FLAG,
    "passed_thresholds": FLAG,
    "sharpe": REAL,
    "returns": REAL,
    "turnover": REAL,
    "drawdown": REAL,
    "correlation": REAL,
    "per_column_stats": JSON,
    "function_metadata": JSON,
    "functions": JSON,
    "feature_metadata": JSON,
    "features": JSON,
    "tree_depth": INTEGER,
    "strategy_pool_id": TEXT,
    "signal_pool_id": TEXT,
    "strategy_signal_pool": TEXT,
    "is_correlation": REAL,
    "is_pnl_mi": REAL,
    "agent_is_pnl_mi": REAL,
    "rejection_reason": TEXT,
    "failure_reason": TEXT,
    "failure_detail": TEXT,
}

REQUIRED = frozenset({"eval_id", "eval_type", "era_id", "timestamp"})

# The status table of each evaluation type, with the column that names the pool of signals.
STATUS_TABLES: dict[str, tuple[str, str]] = {
    "strategy": ("strategy_submission_status", "strategy_signal_pool"),
    "signal": ("signal_submission_status", "signal_pool_id"),
}

_ROW_NUMBER = {
    "sqlite": "INTEGER PRIMARY KEY AUTOINCREMENT",
    "postgres": "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY",
}


def create_statements(dialect: str) -> list[str]:
    """Return the statements that make the tables, where they do not exist, in this dialect.

    `dialect` is "sqlite" or "postgres".
    """
    row_number = _ROW_NUMBER[dialect]
    columns = ", ".join(
        f"{name} {kind.sql}{' NOT NULL' if name in REQUIRED else ''}"
        for name, kind in EVALUATION_COLUMNS.items()
    )
    statements = [
        f"CREATE TABLE IF NOT EXISTS evaluations "
        f"(sequence {row_number}, {columns}, UNIQUE (eval_id))",
        "CREATE INDEX IF NOT EXISTS evaluations_by_time ON evaluations (timestamp, sequence)",
    ]
    for table, pool_column in STATUS_TABLES.values():
        statements.append(
            f"CREATE TABLE IF NOT EXISTS {table} "
            f"(status_id {row_number}, eval_id TEXT NOT NULL, status TEXT NOT NULL, "
            f"useful_flag INTEGER, rejection_reason TEXT, {pool_column} TEXT)"
        )
        statements.append(f"CREATE INDEX IF NOT EXISTS {table}_by_eval ON {table} (eval_id)")
    return statements
