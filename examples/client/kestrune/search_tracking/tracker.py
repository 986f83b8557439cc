"""The search tracker: evaluations and submission outcomes in a database."""

import os
from typing import Any

from kestrune.search_tracking.connection import connect
from kestrune.search_tracking.evaluation import Evaluation
from kestrune.search_tracking.schema import (
    EVALUATION_COLUMNS,
    STATUS_TABLES,
    canonical_json,
    create_statements,
)

_NAMES = ", ".join(EVALUATION_COLUMNS)
_INSERT = f"INSERT INTO evaluations ({_NAMES}) VALUES ({', '.join('?' * len(EVALUATION_COLUMNS))})"
_SELECT = f"SELECT {_NAMES} FROM evaluations"
_KINDS = tuple(EVALUATION_COLUMNS.items())
_LOADERS = tuple(kind.load for kind in EVALUATION_COLUMNS.values())


class SearchTracker:
    """Keeps what a search evaluated, in a SQLite file or on a PostgreSQL server.

    `data_dir` is an existing folder. `database_url` chooses the database: None stands for
    the client's configuration, "" for the file in `data_dir`. Errors of the database reach
    the caller unchanged. Also a context manager that closes it.
    """

    def __init__(self, data_dir: str | os.PathLike[str], database_url: str | None = None) -> None:
        if database_url is None:
            from kestrune import agent_onboarding

            database_url = agent_onboarding._config.get("database_url")
        self._conn = connect(data_dir, database_url)
        try:
            for statement in create_statements(getattr(self._conn, "dialect", "sqlite")):
                self._conn.execute(statement)
        except BaseException:
            self._conn.close()
            raise

    def __enter__(self) -> "SearchTracker":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def close(self) -> None:
        """Close the database connection; closing twice is harmless."""
        self._conn.close()

    def record_evaluation(self, evaluation: Evaluation) -> None:
        """Store one evaluation; its `eval_id` must be new."""
        row = []
        for name, kind in _KINDS:
            value = getattr(evaluation, name)
            row.append(None if value is None else kind.store(value))
        self._conn.execute(_INSERT, row)

    def record_submission_status(
        self,
        evaluation: Evaluation,
        status: str,
        *,
        useful_flag: bool | None = None,
        rejection_reason: str | None = None,
    ) -> None:
        """Add a status to those of a submitted candidate; the last one added holds."""
        table, pool_column = STATUS_TABLES[evaluation.eval_type]
        self._conn.execute(
            f"INSERT INTO {table} (eval_id, status, useful_flag, rejection_reason, {pool_column}) "
            "VALUES (?, ?, ?, ?, ?)",
            (
                evaluation.eval_id,
                status,
                None if useful_flag is None else int(useful_flag),
                rejection_reason,
                getattr(evaluation, pool_column),
            ),
        )

    def get_evaluation_history(
        self,
        era_id: str | None = None,
        eval_type: str | None = None,
        passed_only: bool = False,
        limit: int | None = None,
        named_universe: str | None = None,
        metaparameters: Any = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
    ) -> list[Evaluation]:
        """Return the evaluations that pass every filter given, newest first.

        None is no filter. `limit` cuts the list to the newest ones. When both
        `signal_pool_id` and `strategy_signal_pool` are given, a signal has to be in the first
        or a strategy built on the second, since no evaluation has both.
        """
        wanted = {
            "era_id": era_id,
            "eval_type": eval_type,
            "named_universe": named_universe,
            "metaparameters": None if metaparameters is None else canonical_json(metaparameters),
            "strategy_pool_id": strategy_pool_id,
        }
        conditions = [f"{name} = ?" for name, value in wanted.items() if value is not None]
        params: list[Any] = [value for value in wanted.values() if value is not None]
        pools = {"signal_pool_id": signal_pool_id, "strategy_signal_pool": strategy_signal_pool}
        if pool_conditions := [f"{name} = ?" for name, pool in pools.items() if pool is not None]:
            conditions.append(f"({' OR '.join(pool_conditions)})")
            params += [pool for pool in pools.values() if pool is not None]
        if passed_only:
            conditions.append("passed_thresholds = 1")
        sql = _SELECT + (f" WHERE {' AND '.join(conditions)}" if conditions else "")
        sql += " ORDER BY timestamp DESC, sequence DESC"
        if limit is not None:
            sql += " LIMIT ?"
            params.append(limit)
        return [_evaluation(row) for row in self._conn.execute(sql, params).fetchall()]

    def get_available_eras(self) -> list[str]:
        """Return the distinct eras of the stored evaluations, sorted."""
        return self._distinct("era_id")

    def get_available_named_universes(self) -> list[str]:
        """Return the distinct named universes of the stored evaluations, sorted."""
        return self._distinct("named_universe")

    def _distinct(self, column: str) -> list[str]:
        sql = f"SELECT DISTINCT {column} FROM evaluations WHERE {column} IS NOT NULL"
        # Sorted here: a server sorts by the rules of its language.
        return sorted(row[0] for row in self._conn.execute(sql, ()).fetchall())


def _evaluation(row: tuple[Any, ...]) -> Evaluation:
    values: list[Any] = [
        None if value is None else load(value) for value, load in zip(row, _LOADERS, strict=True)
    ]
    return Evaluation(*values)
