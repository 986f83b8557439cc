"""The status of a submission: which table is asked, what its latest row says, and what may fail."""

from __future__ import annotations

import sqlite3
from contextlib import closing
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.environment import failing
from support.parts import engine_over, evaluation
from support.statuses import PROBE, Connection, rationale, scan

BREAK = "\n" + 23 * " "
QUERIES = {
    kind: f"SELECT status, useful_flag, rejection_reason, {column}{BREAK}FROM {table}{BREAK}"
    f"WHERE eval_id=?{BREAK}ORDER BY status_id DESC{BREAK}LIMIT 1"
    for kind, table, column in (
        ("signal", "signal_submission_status", "signal_pool_id"),
        ("strategy", "strategy_submission_status", "strategy_signal_pool"),
    )
}

pytestmark = pytest.mark.usefixtures("now")


@pytest.fixture
def database():
    with closing(sqlite3.connect(":memory:")) as connection:
        for table, column in (
            ("signal_submission_status", "signal_pool_id"),
            ("strategy_submission_status", "strategy_signal_pool"),
        ):
            connection.execute(
                f"CREATE TABLE {table} (status_id INTEGER PRIMARY KEY, eval_id, status, "
                f"useful_flag, rejection_reason, {column})"
            )
        yield connection


def submit(database, kind, *row):
    database.execute(f"INSERT INTO {kind}_submission_status VALUES (NULL, ?, ?, ?, ?, ?)", row)


@pytest.mark.parametrize("kind", QUERIES)
def test_each_evaluation_costs_one_probe_and_one_query(kind):
    connection = Connection()
    scan(*[evaluation(eval_type=kind, eval_id=i) for i in (7, 8)], conn=connection)
    table = f"{kind}_submission_status"
    assert connection.asked == [
        (PROBE, (table,)),
        (QUERIES[kind], (7,)),
        (PROBE, (table,)),
        (QUERIES[kind], (8,)),
    ]


@pytest.mark.parametrize("kind", ["other", None, "Signal", ""], ids=repr)
def test_other_evaluation_types_ask_nothing(kind):
    connection = Connection()
    scan(evaluation(eval_type=kind), conn=connection)
    assert connection.asked == []


def test_a_table_with_another_column_is_asked_in_other_words(monkeypatch):
    table = "signal_submission_status"
    replaced = {"signal": (table, "first"), "strategy": (table, "second")}
    helper = "_submission_status_table_and_signal_column"
    monkeypatch.setattr(search_analytics, helper, replaced.get)
    connection = Connection()
    records = [evaluation(eval_type=kind, eval_id=1) for kind in ("signal", "strategy", "signal")]
    scan(*records, conn=connection)
    queries = [sql for sql, _ in connection.asked if sql != PROBE]
    columns = [sql.split("rejection_reason, ")[1].split()[0] for sql in queries]
    assert columns == ["first", "second", "first"]


@pytest.mark.parametrize("table", ["", 0, [], None], ids=repr)
def test_a_falsy_table_is_not_asked(table, monkeypatch):
    helper = "_submission_status_table_and_signal_column"
    monkeypatch.setattr(search_analytics, helper, lambda eval_type: (table, "column"))
    connection = Connection()
    scan(evaluation(eval_type="signal", eval_id=1), conn=connection)
    assert connection.asked == []


def test_without_connection_nothing_is_known():
    result = scan(evaluation())
    assert result.usefulness_unknown_evaluations == 1
    assert result.usefulness_rationale[0]["status"] is None


def test_a_table_that_does_not_exist_is_no_error():
    with closing(sqlite3.connect(":memory:")) as connection:
        assert scan(evaluation(), conn=connection).usefulness_unknown_evaluations == 1


def test_the_latest_status_wins(database):
    submit(database, "signal", "e1", "useful", 1, None, "p1")
    submit(database, "signal", "e1", "rejected", 0, "late", "p2")
    submit(database, "signal", "e2", "useful", 1, None, "p3")
    (found,) = scan(evaluation(eval_id="e1"), conn=database).usefulness_rationale
    assert (found["status"], found["useful_flag"]) == ("rejected", False)
    assert (found["rejection_reason"], found["signal_pool_id"]) == ("late", "p2")


def test_both_kinds_read_their_own_table(database):
    submit(database, "signal", 1, "useful", None, None, "p")
    submit(database, "strategy", 1, "not_useful", None, None, "q")
    result = scan(
        evaluation(eval_type="signal", eval_id=1),
        evaluation(eval_type="strategy", eval_id=1),
        conn=database,
    )
    assert (result.useful_evaluations, result.not_useful_evaluations) == (1, 1)
    signal, strategy = result.usefulness_rationale
    assert (signal["signal_pool_id"], signal["strategy_signal_pool"]) == ("p", None)
    assert (strategy["signal_pool_id"], strategy["strategy_signal_pool"]) == (None, "q")


def test_no_text_of_the_caller_reaches_a_statement(database):
    nasty = "x'; DROP TABLE signal_submission_status; --"
    statements = []
    database.set_trace_callback(statements.append)
    record = evaluation(eval_id=nasty, failure_reason=nasty, rejection_reason=nasty)
    scan(record, conn=database)
    database.set_trace_callback(None)
    # The trace shows bound values in their place, quoted: the table is still there.
    assert len(statements) == 2
    assert scan(evaluation(), conn=database).usefulness_unknown_evaluations == 1


@pytest.mark.parametrize(
    ("status", "flag", "expected"),
    [
        ("useful", None, True),
        ("not_useful", None, False),
        ("pending", None, None),
        ("Useful", None, None),
        (None, None, None),
        ("useful", 0, False),
        ("not_useful", 1, True),
        ("pending", "no", True),
        (None, [], False),
        ("useful", 0.0, False),
    ],
    ids=repr,
)
def test_the_flag_of_the_row_wins_over_its_status(status, flag, expected):
    result = scan(evaluation(), conn=Connection((status, flag, None, None)))
    found = result.usefulness_rationale[0]
    assert found["useful_flag"] is expected
    assert found["status"] is status
    counts = (
        result.useful_evaluations,
        result.not_useful_evaluations,
        result.usefulness_unknown_evaluations,
    )
    assert counts == (expected is True, expected is False, expected is None)
    assert sum(counts) == 1


@pytest.mark.parametrize("row", [(), ("useful",), ("useful", 1), ("useful", 1, None)], ids=len)
def test_a_row_that_is_too_narrow_is_an_index_error(row):
    with pytest.raises(IndexError, match="tuple index out of range"):
        scan(evaluation(), conn=Connection(row))


def test_a_row_may_be_wider_or_of_another_kind():
    assert rationale(evaluation(), ["useful", None, "r", "p", "more"])["signal_pool_id"] == "p"
    assert rationale(evaluation(), "abcd")["status"] == "a"


def test_the_connection_of_the_tracker_is_read_once():
    reads = []

    class Tracker:
        def get_evaluation_history(self, **filters):
            return [evaluation(), evaluation()]

        @property
        def _conn(self):
            reads.append(1)

    engine = engine_over([])
    engine._tracker = Tracker()
    engine.get_yield_analysis()
    assert len(reads) == 1


def test_the_connection_is_not_read_without_evaluations():
    class Tracker:
        def get_evaluation_history(self, **filters):
            return []

        _conn = property(failing(AssertionError("read")))

    engine = engine_over([])
    engine._tracker = Tracker()
    assert engine.get_yield_analysis().total_evaluations == 0


def test_a_postgres_connection_probes_in_its_own_words():
    class Postgres(Connection):
        dialect = "postgres"

        def execute(self, sql, parameters):
            self.asked.append((sql, parameters))
            return SimpleNamespace(fetchone=lambda: (None,))

    connection = Postgres()
    scan(evaluation(), conn=connection)
    assert connection.asked == [("SELECT to_regclass(?)", ("signal_submission_status",))]


def test_a_table_that_vanishes_between_two_evaluations_is_no_error(database):
    submit(database, "signal", 1, "useful", None, None, None)

    class Second:
        eval_type, timestamp, passed_thresholds, eval_id = "signal", 0, True, 1

        @property
        def agent_is_pnl_mi(self):
            database.execute("DROP TABLE signal_submission_status")

    result = scan(Second(), evaluation(eval_id=1), conn=database)
    assert (result.useful_evaluations, result.usefulness_unknown_evaluations) == (1, 1)


def test_a_missing_column_is_the_databases_error_and_the_next_call_works():
    with closing(sqlite3.connect(":memory:")) as connection:
        connection.execute("CREATE TABLE signal_submission_status (status)")
        engine = engine_over([evaluation()], conn=connection)
        with pytest.raises(sqlite3.OperationalError, match="no such column"):
            engine.get_yield_analysis()
        connection.execute("DROP TABLE signal_submission_status")
        assert engine.get_yield_analysis().total_evaluations == 1


def test_a_closed_connection_is_the_databases_error():
    connection = sqlite3.connect(":memory:")
    connection.close()
    with pytest.raises(sqlite3.ProgrammingError, match="closed database"):
        scan(evaluation(), conn=connection)
