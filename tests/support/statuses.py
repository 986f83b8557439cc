"""A connection with one answer, and the yield analysis of evaluations over it."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

from support.parts import engine_over

PROBE = "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?"


class Connection:
    """Answers table probes with a row and status queries with `row`; keeps what it was asked."""

    def __init__(self, row: Any = None) -> None:
        self.row = row
        self.asked: list[Any] = []

    def execute(self, sql: str, parameters: Any) -> SimpleNamespace:
        self.asked.append((sql, parameters))
        row = (1,) if sql == PROBE else self.row
        return SimpleNamespace(fetchone=lambda: row)


def scan(*evals: Any, conn: Any = None) -> Any:
    """The yield analysis of `evals`."""
    return engine_over(list(evals), conn=conn).get_yield_analysis()


def rationale(record: Any, row: Any = None) -> Any:
    """What the analysis says of one evaluation whose status row is `row`."""
    (found,) = scan(record, conn=Connection(row)).usefulness_rationale
    return found
