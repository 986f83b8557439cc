"""The usefulness and tamper scan: status rows, rationale records, suspects."""

from __future__ import annotations

import sqlite3
from contextlib import closing
from types import SimpleNamespace

import pytest
from support.environment import failing
from support.parts import engine_over, evaluation

BREAK = "\n" + 23 * " "
PROBE = "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?"
QUERIES = {
    kind: f"SELECT status, useful_flag, rejection_reason, {column}{BREAK}FROM {table}{BREAK}"
    f"WHERE eval_id=?{BREAK}ORDER BY status_id DESC{BREAK}LIMIT 1"
    for kind, table, column in (
        ("signal", "signal_submission_status", "signal_pool_id"),
        ("strategy", "strategy_submission_status", "strategy_signal_pool"),
    )
}
KEYS = (
    *("eval_type", "eval_id", "strategy_pool_id", "signal_pool_id", "strategy_signal_pool"),
    *("status", "useful_flag", "rejection_reason", "is_correlation", "is_pnl_mi"),
    *("agent_is_pnl_mi", "failure_reason", "failure_detail", "agent_server_is_pnl_mi_delta"),
)
MISMATCH, MARKED = "agent_server_is_pnl_mi_mismatch", "failure_marked_tampering"

pytestmark = pytest.mark.usefixtures("now")


class Connection:
    """Answers table probes with a row and status queries with `row`; keeps what it was asked."""

    def __init__(self, row=None):
        self.row = row
        self.asked = []

    def execute(self, sql, parameters):
        self.asked.append((sql, parameters))
        row = (1,) if sql == PROBE else self.row
        return SimpleNamespace(fetchone=lambda: row)


def scan(*evals, conn=None):
    return engine_over(list(evals), conn=conn).get_yield_analysis()


def rationale(record, row=None):
    (found,) = scan(record, conn=Connection(row)).usefulness_rationale
    return found


def reasons(record, row=None):
    candidates = scan(record, conn=Connection(row)).tamper_candidates
    return candidates[0]["tamper_reasons"] if candidates else []


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


def test_a_rationale_record_has_its_keys_in_order():
    found = rationale(evaluation())
    assert type(found) is dict
    assert tuple(found) == KEYS


def test_absent_attributes_are_none():
    assert rationale(evaluation()) == {
        **dict.fromkeys(KEYS),
        "eval_type": "signal",
        "eval_id": "e1",
    }


def test_present_attributes_are_taken_as_they_are():
    names = (
        *("strategy_pool_id", "is_correlation", "is_pnl_mi", "agent_is_pnl_mi"),
        *("failure_reason", "failure_detail", "rejection_reason", "eval_id", "signal_pool_id"),
    )
    values = {name: object() for name in names}
    found = rationale(evaluation(**values))
    assert {name: found[name] for name in names} == values


@pytest.mark.parametrize(
    ("kind", "column", "other"),
    [
        ("signal", "signal_pool_id", "strategy_signal_pool"),
        ("strategy", "strategy_signal_pool", "signal_pool_id"),
    ],
)
def test_the_pool_comes_from_the_row_then_from_the_record(kind, column, other):
    record = evaluation(eval_type=kind, **{column: "mine", other: "not mine"})
    assert rationale(record, (None, None, None, "row"))[column] == "row"
    assert rationale(record, (None, None, None, ""))[column] == ""
    assert rationale(record, (None, None, None, None))[column] == "mine"
    assert rationale(record)[column] == "mine"
    assert rationale(record)[other] is None


@pytest.mark.parametrize(
    ("kind", "column"), [("signal", "signal_pool_id"), ("strategy", "strategy_signal_pool")]
)
def test_a_pool_that_nobody_knows_is_none(kind, column):
    assert rationale(evaluation(eval_type=kind))[column] is None
    assert rationale(evaluation(eval_type=kind), (None, None, None, None))[column] is None


def test_other_types_have_no_pool():
    found = rationale(evaluation(eval_type="x", signal_pool_id=1, strategy_signal_pool=2))
    assert (found["signal_pool_id"], found["strategy_signal_pool"]) == (None, None)


def test_the_rejection_reason_comes_from_the_row_then_from_the_record():
    record = evaluation(rejection_reason="mine")
    assert rationale(record, (None, None, "row", None))["rejection_reason"] == "row"
    assert rationale(record, (None, None, "", None))["rejection_reason"] == ""
    assert rationale(record, (None, None, None, None))["rejection_reason"] == "mine"


@pytest.mark.parametrize("missing", ["eval_type", "eval_id"])
def test_a_record_must_have_type_and_id(missing):
    record = evaluation()
    delattr(record, missing)
    with pytest.raises(AttributeError, match=f"no attribute '{missing}'"):
        scan(record)


def test_every_evaluation_has_a_rationale_in_order():
    result = scan(*[evaluation(eval_id=i) for i in "cab"])
    assert [found["eval_id"] for found in result.usefulness_rationale] == list("cab")


@pytest.mark.parametrize(
    ("agent", "server", "delta"),
    [(0.5, 0.75, 0.25), (0.5, 0.5, None), (0, 5, None), ("nan", 1, float("inf")), (None, 1, None)],
    ids=repr,
)
def test_a_disagreement_with_the_server_is_a_reason(agent, server, delta):
    record = evaluation(agent_is_pnl_mi=agent, is_pnl_mi=server)
    assert rationale(record)["agent_server_is_pnl_mi_delta"] == delta
    assert reasons(record) == ([] if delta is None else [MISMATCH])


@pytest.mark.parametrize("name", ["failure_reason", "failure_detail", "rejection_reason"])
@pytest.mark.parametrize("text", ["TAMPER", "marked as tampering", "xTamperedx", ["tamper"]])
def test_a_text_that_speaks_of_tampering_is_a_reason(name, text):
    assert reasons(evaluation(**{name: text})) == [MARKED]


def test_the_rejection_reason_of_the_row_is_read_too():
    assert reasons(evaluation(), (None, None, "Tampering found", None)) == [MARKED]
    record = evaluation(rejection_reason="tamper")
    assert reasons(record, (None, None, "late", None)) == [MARKED]


@pytest.mark.parametrize("text", ["", None, 0, "tam per", "temper"], ids=repr)
def test_other_texts_are_no_reason(text):
    assert reasons(evaluation(failure_reason=text, failure_detail=text)) == []


def test_texts_are_joined_with_a_single_space_in_order():
    """Two texts do not run together into the word; the four stand in a fixed order."""
    assert reasons(evaluation(failure_reason="tam", failure_detail="per")) == []

    class Text:
        def __init__(self, name):
            self.name = name

        def __str__(self):
            printed.append(self.name)
            return self.name

    printed = []
    record = evaluation(
        failure_reason=Text("reason"), failure_detail=Text("detail"), rejection_reason=Text("own")
    )
    assert reasons(record, (None, None, Text("row"), None)) == []
    assert printed == ["reason", "detail", "row", "own"]


def test_a_suspect_is_a_copy_with_its_reasons_last():
    record = evaluation(agent_is_pnl_mi=1.0, is_pnl_mi=2.0, failure_reason="tamper")
    result = scan(record, evaluation())
    (suspect,) = result.tamper_candidates
    assert result.tamper_candidate_count == 1
    assert tuple(suspect) == (*KEYS, "tamper_reasons")
    assert suspect["tamper_reasons"] == [MISMATCH, MARKED]
    original = result.usefulness_rationale[0]
    assert original is not suspect
    assert "tamper_reasons" not in original
    assert {key: suspect[key] for key in KEYS} == original


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
