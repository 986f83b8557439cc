"""Submission statuses: read out of a tracker's database at once, and asked for one by one."""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from typing import Any

from kestrune_search_report.evaluation import Evaluation, Submission

# The status table of each evaluation type, and its column for the pool.
TABLES = {
    "strategy": ("strategy_submission_status", "strategy_signal_pool"),
    "signal": ("signal_submission_status", "signal_pool_id"),
}


def read_statuses(connection: Any) -> dict[tuple[str, Any], Submission]:
    """Return the latest status of each submission, by evaluation type and `eval_id`.

    `connection` is a tracker's: `execute(sql, params)` with `?` placeholders, and "postgres" in
    its `dialect` where it is a server's. None, or one without the tables, has no statuses.
    """
    found: dict[tuple[str, Any], Submission] = {}
    if connection is None:
        return found
    for eval_type, (table, pool_column) in TABLES.items():
        if not _exists(connection, table):
            continue
        cursor = connection.execute(
            f"SELECT eval_id, status, useful_flag, rejection_reason, {pool_column} "
            f"FROM {table} ORDER BY status_id",
            (),
        )
        # Later rows replace earlier ones.
        while (row := cursor.fetchone()) is not None:
            eval_id, status, useful, reason, pool = row
            flag = None if useful is None else bool(useful)
            found[eval_type, eval_id] = Submission(status, flag, reason, pool)
    return found


def _exists(connection: Any, table: str) -> bool:
    if getattr(connection, "dialect", None) == "postgres":
        row = connection.execute("SELECT to_regclass(?)", (table,)).fetchone()
        return row is not None and row[0] is not None
    sql = "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?"
    return connection.execute(sql, (table,)).fetchone() is not None


class _Row:
    """A cursor over one row, or none."""

    def __init__(self, row: Sequence[Any] | None) -> None:
        self._row = row

    def fetchone(self) -> Sequence[Any] | None:
        """Return the row."""
        return self._row


class StatusConnection:
    """What a snapshot shows in place of a database connection: its evaluations' statuses.

    It answers the two queries that a yield analysis makes of a SQLite database: whether a status
    table exists, and for the latest row of one evaluation in it.
    """

    def __init__(self, evaluations: Iterable[Evaluation]) -> None:
        self._rows: Mapping[str, Mapping[Any, Submission]] = {
            table: {} for table, _ in TABLES.values()
        }
        rows: dict[str, dict[Any, Submission]] = {table: {} for table, _ in TABLES.values()}
        for evaluation in evaluations:
            if evaluation.submission is not None and evaluation.eval_type in TABLES:
                table, _ = TABLES[evaluation.eval_type]
                rows[table][evaluation.eval_id] = evaluation.submission
        self._rows = rows

    def execute(self, sql: str, params: Sequence[Any] = ()) -> _Row:
        """Answer one of the two queries; `LookupError` for any other."""
        (parameter,) = params
        if "sqlite_master" in sql:
            return _Row((1,) if parameter in self._rows else None)
        for table, rows in self._rows.items():
            if f"FROM {table}" in sql:
                return _Row(rows.get(parameter))
        raise LookupError(f"a snapshot holds no table for the query {sql!r}")
