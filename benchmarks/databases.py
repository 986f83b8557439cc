"""The yield analysis over a database, against a bare loop that sends the same queries.

Also how long the example tracker takes to fetch the records that all of this is about.
"""

import tempfile
import time
from collections.abc import Iterator, Mapping
from contextlib import contextmanager
from types import ModuleType
from typing import Any

import agreement
from contestants import FLOOR
from demo.postgres_server import PostgresServer, PostgresServerError
from kestrune.search_tracking import Evaluation, SearchTracker
from kestrune.search_tracking.schema import STATUS_TABLES
from operations import Operation
from results import Fetch
from settings import Settings
from side_by_side import Line, run_race
from timing import Spread
from workloads import NARROW

_PROBES = {
    "sqlite": "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?",
    "postgres": "SELECT to_regclass(?)",
}
# What the analysis sends for each record, to the letter.
_INDENT = "\n" + " " * 23
_STATUS_QUERIES = {
    eval_type: (
        table,
        _INDENT.join(
            (
                f"SELECT status, useful_flag, rejection_reason, {pool_column}",
                f"FROM {table}",
                "WHERE eval_id=?",
                "ORDER BY status_id DESC",
                "LIMIT 1",
            )
        ),
    )
    for eval_type, (table, pool_column) in STATUS_TABLES.items()
}


def measure(
    settings: Settings,
    modules: Mapping[str, ModuleType],
    floor: ModuleType,
    absent: dict[str, str],
) -> tuple[list[Line], list[Fetch]]:
    """Race on SQLite, and on a PostgreSQL server of our own where there is one to start."""
    lines, fetches = [], []
    for database, count in (
        ("SQLite", settings.sqlite_records),
        ("PostgreSQL", settings.postgres_records),
    ):
        records = NARROW.records(count)
        try:
            with _tracker(database) as tracker:
                _fill(tracker, records)
                lines.append(_race(settings, database, tracker._conn, records, modules, floor))
                fetches.append(_fetch(database, tracker, count, settings.side_rounds))
        except (ImportError, PostgresServerError) as error:
            absent[database] = str(error).splitlines()[0]
            continue
        print(f"  the tracker's own fetch: {fetches[-1].seconds.median * 1e3:9.3f} ms", flush=True)
    return lines, fetches


@contextmanager
def _tracker(database: str) -> Iterator[SearchTracker]:
    with tempfile.TemporaryDirectory() as folder:
        if database == "SQLite":
            with SearchTracker(folder, "") as tracker:
                yield tracker
        else:
            with PostgresServer() as server, SearchTracker(folder, server.url) as tracker:
                yield tracker


def _fill(tracker: SearchTracker, records: list[Evaluation]) -> None:
    """Record the evaluations, and two statuses for each that was submitted."""
    tracker._conn.execute("BEGIN")
    for number, record in enumerate(reversed(records)):
        tracker.record_evaluation(record)
        if record.submitted:
            tracker.record_submission_status(record, "pending")
            if number % 3 == 0:
                tracker.record_submission_status(record, "useful", useful_flag=True)
            elif number % 3 == 1:
                tracker.record_submission_status(record, "not_useful")
    tracker._conn.execute("COMMIT")


def _race(
    settings: Settings,
    database: str,
    connection: Any,
    records: list[Evaluation],
    modules: Mapping[str, ModuleType],
    floor: ModuleType,
) -> Line:
    operation = Operation(
        "get_yield_analysis", "narrow", database, floors=1.15 if database == "SQLite" else None
    )
    probe = _PROBES[getattr(connection, "dialect", "sqlite")]
    calls = {name: operation.call(m, records, connection) for name, m in modules.items()}
    agreement.require_same(operation.label, calls)
    calls[FLOOR] = lambda: floor.queries(records, None, None, connection, probe, _STATUS_QUERIES)
    return run_race(operation, len(records), calls, settings.side_rounds, settings.turn_seconds)


def _fetch(database: str, tracker: SearchTracker, count: int, rounds: int) -> Fetch:
    seconds = []
    for _ in range(rounds):
        started = time.perf_counter()
        found = tracker.get_evaluation_history(limit=count)
        seconds.append(time.perf_counter() - started)
        del found
    return Fetch(database, count, Spread.of(seconds))
