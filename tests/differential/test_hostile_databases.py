"""Rows, connections and databases that misbehave: the same outcome as the model's."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from differential.traps import assert_same, engine, plain
from differential.world import World
from support.records import status_database


class Undecided:
    """Without a truth."""

    def __bool__(self) -> bool:
        raise ValueError("ambiguous")


class Comparing:
    """Its comparison gives the answer it was given."""

    def __init__(self, w: World, answer: Any) -> None:
        self.w, self.answer = w, answer

    def __eq__(self, other: Any) -> Any:
        self.w.note("comparing", "eq")
        return self.answer

    __hash__ = None  # type: ignore[assignment]


class Row:
    """A row that logs its reading, and fails at one column."""

    def __init__(self, w: World, fails_at: int = 9) -> None:
        self.w, self.fails_at = w, fails_at

    def __getitem__(self, column: int) -> Any:
        self.w.note("row", column)
        if column == self.fails_at:
            raise KeyError(column)
        return (Undecided(), None, "tamper", 5)[column]


ROWS: dict[str, Callable[[World], Any]] = {
    "empty": lambda w: (),
    "narrow": lambda w: ("useful", 1, None),
    "wide": lambda w: ("useful", 0, None, "pool", "more"),
    "text": lambda w: "abcd",
    "dictionary": lambda w: dict(enumerate(("not_useful", None, "TAMPERED", None))),
    "generator": lambda w: (column for column in ("useful", 1, None, None)),
    "number": lambda w: 5,
    "false": lambda w: (),
    "undecided flag": lambda w: ("useful", Undecided(), None, None),
    "logging": lambda w: Row(w),
    **{f"fails at {column}": lambda w, column=column: Row(w, column) for column in range(4)},
}


class Connection:
    """A connection whose status query gives one row, or whose methods fail."""

    def __init__(self, w: World, row: Any, **behaviour: Any) -> None:
        self.w, self.row = w, row
        vars(self).update(behaviour)

    def execute(self, statement: str, parameters: Any) -> Any:
        self.w.note("execute", statement, repr(parameters))
        if "sqlite_master" in statement:
            return SimpleNamespace(fetchone=lambda: (1,))
        return SimpleNamespace(fetchone=lambda: self.row)


@pytest.mark.parametrize("row", list(ROWS))
def test_status_rows_of_any_kind_agree(row: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        target = engine(w, [plain(), plain(1, eval_type="strategy")])
        target._tracker._conn = Connection(w, ROWS[row](w))
        return target.get_yield_analysis

    assert_same(build)


CONNECTIONS: dict[str, Callable[[World], Any]] = {
    "none": lambda w: None,
    "object": lambda w: object(),
    "execute gives none": lambda w: SimpleNamespace(execute=lambda *given: None),
    "execute fails": lambda w: SimpleNamespace(execute=lambda *given: 1 // 0),
    "no fetchone": lambda w: SimpleNamespace(execute=lambda *given: object()),
    "postgres": lambda w: Connection(w, (None,), dialect="postgres"),
    "own postgres": lambda w: Connection(w, ("t",), dialect=type("Own", (str,), {})("postgres")),
    "undecided dialect": lambda w: Connection(w, None, dialect=Comparing(w, Undecided())),
}


@pytest.mark.parametrize("connection", list(CONNECTIONS))
def test_connections_of_any_kind_agree(connection: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        target = engine(w, [plain(), plain(1, eval_type="strategy")])
        target._tracker._conn = CONNECTIONS[connection](w)
        return target.get_yield_analysis

    assert_same(build)


@pytest.mark.parametrize("damage", ["close", "drop"])
def test_database_that_goes_away_between_two_evaluations(damage: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        database = status_database({"signal_submission_status": [("e0", "useful", None, "x", "p")]})
        w.cleanup.callback(database.close)

        class Damaging:
            @property
            def is_correlation(self) -> float:
                if damage == "close":
                    database.close()
                else:
                    database.execute("DROP TABLE signal_submission_status")
                return 0.5

        first = Damaging()
        vars(first).update(vars(plain()))
        target = engine(w, [first, plain(1)])
        target._tracker._conn = database
        return target.get_yield_analysis

    assert_same(build)


QUOTED = "x'; DROP TABLE signal_submission_status; --\""


def test_no_text_of_a_caller_reaches_a_statement() -> None:
    def build(w: World) -> Callable[[], Any]:
        record = plain(
            eval_id=QUOTED,
            signal_pool_id=QUOTED,
            strategy_signal_pool=QUOTED,
            failure_reason=QUOTED,
            rejection_reason=QUOTED,
        )
        target = engine(w, [record])
        keywords = dict.fromkeys(("era_id", "named_universe", "signal_pool_id"), QUOTED)
        return lambda: target.get_yield_analysis(**keywords)

    assert_same(build)
