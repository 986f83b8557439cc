"""A tracker that keeps records in lists and statuses in SQLite, as a client's does."""

from __future__ import annotations

import sqlite3
from types import SimpleNamespace
from typing import Any

TABLES = {
    "strategy": ("strategy_submission_status", "strategy_signal_pool"),
    "signal": ("signal_submission_status", "signal_pool_id"),
}


class ListTracker:
    """Filters its records as a client's tracker does; `calls` counts how often it was asked."""

    def __init__(self, rows: list[dict[str, Any]]) -> None:
        self.rows = [SimpleNamespace(**row) for row in reversed(rows)]
        self.calls = 0
        self._conn = sqlite3.connect(":memory:", isolation_level=None)
        for table, pool in TABLES.values():
            self._conn.execute(
                f"CREATE TABLE {table} (status_id INTEGER PRIMARY KEY, eval_id TEXT, "
                f"status TEXT, useful_flag INTEGER, rejection_reason TEXT, {pool} TEXT)"
            )

    def close(self) -> None:
        """Close the database."""
        self._conn.close()

    def add_status(self, row: dict[str, Any], status: str, useful: bool | None = None) -> None:
        """Add a status to those of one evaluation; the last one holds."""
        table, pool = TABLES[row["eval_type"]]
        self._conn.execute(
            f"INSERT INTO {table} (eval_id, status, useful_flag, rejection_reason, {pool}) "
            "VALUES (?, ?, ?, ?, ?)",
            (row["eval_id"], status, useful, "tampering" if status == "rejected" else None, "px"),
        )

    def get_evaluation_history(self, **asked: Any) -> list[Any]:
        """Return what passes the filters, newest first."""
        self.calls += 1
        found = self.rows
        for name in ("era_id", "eval_type", "named_universe", "metaparameters", "strategy_pool_id"):
            if asked[name] is not None:
                found = [row for row in found if getattr(row, name) == asked[name]]
        pools = [
            name for name in ("signal_pool_id", "strategy_signal_pool") if asked[name] is not None
        ]
        if pools:
            found = [row for row in found if any(getattr(row, n) == asked[n] for n in pools)]
        if asked["passed_only"]:
            found = [row for row in found if row.passed_thresholds]
        return found[: asked["limit"]]

    def get_available_eras(self) -> list[str]:
        """Return the distinct eras, sorted."""
        return sorted({row.era_id for row in self.rows})

    def get_available_named_universes(self) -> list[str]:
        """Return the distinct universes, sorted."""
        return sorted({row.named_universe for row in self.rows})
