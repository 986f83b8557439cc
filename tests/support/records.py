"""Evaluation records of many shapes, and the trackers and connections that hand them out.

Whatever logs does so by appending tuples to the list that it was given, so that two runs can be
compared access by access.
"""

from __future__ import annotations

import sqlite3
from collections import namedtuple
from collections.abc import Callable, Iterable, Mapping
from dataclasses import make_dataclass
from types import ModuleType, SimpleNamespace
from typing import Any

ATTRIBUTES = (
    "era_id",
    "timestamp",
    "submitted",
    "passed_thresholds",
    "sharpe",
    "returns",
    "turnover",
    "drawdown",
    "correlation",
    "per_column_stats",
    "function_metadata",
    "functions",
    "feature_metadata",
    "features",
    "tree_depth",
    "eval_type",
    "eval_id",
    "strategy_pool_id",
    "signal_pool_id",
    "strategy_signal_pool",
    "is_correlation",
    "is_pnl_mi",
    "agent_is_pnl_mi",
    "failure_reason",
    "failure_detail",
    "rejection_reason",
)
"""Every attribute of an evaluation record that is ever read."""

Log = list[Any]


class SlotRecord:
    """A record with a slot per attribute; those not given are unset."""

    __slots__ = ATTRIBUTES

    def __init__(self, **fields: Any) -> None:
        for name, value in fields.items():
            setattr(self, name, value)


DataRecord: Any = make_dataclass("DataRecord", [(name, object, None) for name in ATTRIBUTES])
"""A dataclass; attributes not given are None, by its class."""

TupleRecord: Any = namedtuple("TupleRecord", ATTRIBUTES, defaults=(None,) * len(ATTRIBUTES))
"""A named tuple: a record that is a sequence, too."""


class ReadingRecord:
    """A record that logs every read of an attribute that is not a special name."""

    def __init__(self, log: Log, label: str, fields: Mapping[str, Any]) -> None:
        object.__setattr__(self, "_state", (log, label, dict(fields)))

    def __getattribute__(self, name: str) -> Any:
        if name.startswith("__"):
            return object.__getattribute__(self, name)
        log, label, fields = object.__getattribute__(self, "_state")
        log.append(("read", label, name))
        if name in fields:
            return fields[name]
        raise AttributeError(f"{label} has no {name}")


class LateRecord:
    """A record without attributes of its own: each is answered, and logged, when asked for."""

    def __init__(self, log: Log, label: str, fields: Mapping[str, Any]) -> None:
        self._log, self._label, self._fields = log, label, dict(fields)

    def __getattr__(self, name: str) -> Any:
        if name in ("_log", "_label", "_fields"):  # somebody has taken its dictionary away
            raise AttributeError(name)
        self._log.append(("asked", self._label, name))
        try:
            return self._fields[name]
        except KeyError:
            raise AttributeError(name) from None


def _logged_property(name: str) -> property:
    def read(record: Any) -> Any:
        record._log.append(("property", record._label, name))
        if name not in record._fields:
            raise AttributeError(name)
        return record._fields[name]

    return property(read)


class PropertyRecord:
    """A record whose attributes are properties of its class, each logging its reads."""

    def __init__(self, log: Log, label: str, fields: Mapping[str, Any]) -> None:
        self._log, self._label, self._fields = log, label, dict(fields)


for _name in ATTRIBUTES:
    setattr(PropertyRecord, _name, _logged_property(_name))


def module_record(**fields: Any) -> ModuleType:
    """A record that is a module object."""
    module = ModuleType("record")
    vars(module).update(fields)
    return module


QUIET_SHAPES: tuple[Callable[..., Any], ...] = (
    SimpleNamespace,
    DataRecord,
    SlotRecord,
    TupleRecord,
    module_record,
)
"""Shapes made from keywords."""

LOGGING_SHAPES: tuple[Callable[[Log, str, Mapping[str, Any]], Any], ...] = (
    ReadingRecord,
    LateRecord,
    PropertyRecord,
)
"""Shapes made from a log, a label and a mapping of fields."""


class HistoryTracker:
    """A tracker that logs the keywords of its history calls and returns one given object."""

    def __init__(self, history: Any, log: Log | None = None, **catalogue: Any) -> None:
        self.history = history
        self.log: Log = [] if log is None else log
        self.catalogue = catalogue

    def get_evaluation_history(self, **keywords: Any) -> Any:
        self.log.append(("history", tuple((k, _plain(v)) for k, v in keywords.items())))
        return self.history

    def get_available_eras(self) -> Any:
        self.log.append(("eras",))
        return self.catalogue["eras"]

    def get_available_named_universes(self) -> Any:
        self.log.append(("universes",))
        return self.catalogue["universes"]


class RowCursor:
    """A cursor with one row to give."""

    def __init__(self, row: Any, log: Log) -> None:
        self._row, self._log = row, log

    def fetchone(self) -> Any:
        self._log.append(("fetchone",))
        return self._row


class TableConnection:
    """A connection that logs each statement and answers the probe and the status query.

    `tables` are the names that exist; `rows` maps an evaluation id to its status row.
    """

    def __init__(
        self, tables: Iterable[str], rows: Mapping[Any, Any], log: Log, **attributes: Any
    ) -> None:
        self._tables, self._rows, self._log = set(tables), dict(rows), log
        vars(self).update(attributes)

    def execute(self, statement: str, parameters: tuple[Any, ...]) -> RowCursor:
        self._log.append(("execute", statement, tuple(_plain(value) for value in parameters)))
        (parameter,) = parameters
        if "sqlite_master" in statement:
            return RowCursor((1,) if parameter in self._tables else None, self._log)
        if "to_regclass" in statement:
            return RowCursor((parameter if parameter in self._tables else None,), self._log)
        return RowCursor(self._rows.get(parameter), self._log)


STATUS_TABLES = {
    "strategy_submission_status": "strategy_signal_pool",
    "signal_submission_status": "signal_pool_id",
}
"""The status tables and the column of each that names a pool."""


def status_database(
    rows: Mapping[str, Iterable[tuple[Any, ...]]], views: Iterable[str] = ()
) -> sqlite3.Connection:
    """An in-memory database with the status tables named in `rows`.

    A row is (eval_id, status, useful_flag, rejection_reason, pool); later rows are newer. Names in
    `views` are made as views, which are not tables. The caller closes the connection.
    """
    connection = sqlite3.connect(":memory:", isolation_level=None)
    for table, entries in rows.items():
        column = STATUS_TABLES[table]
        connection.execute(
            f"CREATE TABLE {table} (status_id INTEGER PRIMARY KEY, eval_id, status, "
            f"useful_flag, rejection_reason, {column})"
        )
        connection.executemany(
            f"INSERT INTO {table} (eval_id, status, useful_flag, rejection_reason, {column}) "
            "VALUES (?, ?, ?, ?, ?)",
            list(entries),
        )
    for view in views:
        connection.execute(f"CREATE VIEW {view} AS SELECT 1 AS status")
    return connection


def _plain(value: Any) -> Any:
    """A value as it can be compared between two runs that built their objects separately."""
    if type(value) in (str, int, bool, float, type(None)):
        return type(value).__name__, repr(value)
    return type(value).__qualname__
