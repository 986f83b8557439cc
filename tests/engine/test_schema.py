"""Probing the tracker's database: which tables exist, which of them an evaluation type has."""

from __future__ import annotations

import sqlite3
from contextlib import closing
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import (
    _submission_status_table_and_signal_column,
    _tracker_table_exists,
)
from support.environment import failing

SQLITE = "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?"
POSTGRES = "SELECT to_regclass(?)"


class Connection:
    """Answers every statement with one row and keeps what it was asked."""

    def __init__(self, row, **attributes):
        self.row = row
        self.asked = []
        vars(self).update(attributes)

    def execute(self, *args, **kwargs):
        self.asked.append((args, kwargs))
        return SimpleNamespace(fetchone=lambda: self.row)


@pytest.fixture
def database():
    with closing(sqlite3.connect(":memory:")) as connection:
        connection.execute("CREATE TABLE present (x)")
        connection.execute("CREATE VIEW seen AS SELECT x FROM present")
        connection.execute("CREATE INDEX sorted ON present (x)")
        yield connection


def test_no_connection_has_no_table():
    assert _tracker_table_exists(None, "present") is False


def test_nothing_is_asked_without_a_connection():
    class Untouchable:
        __eq__ = failing(AssertionError("compared"))
        __hash__ = None

    assert _tracker_table_exists(None, Untouchable()) is False


@pytest.mark.parametrize(
    ("name", "exists"),
    [
        ("present", True),
        ("absent", False),
        ("PRESENT", False),
        ("seen", False),
        ("sorted", False),
        ("", False),
        (None, False),
        ("present' OR '1'='1", False),
        ("present; DROP TABLE present", False),
    ],
    ids=repr,
)
def test_tables_of_a_real_sqlite_database(database, name, exists):
    assert _tracker_table_exists(database, name) is exists
    assert _tracker_table_exists(database, "present") is True


def test_a_connection_without_dialect_is_sqlite():
    connection = Connection((1,))
    assert _tracker_table_exists(connection, "t") is True
    assert connection.asked == [((SQLITE, ("t",)), {})]


@pytest.mark.parametrize("dialect", ["Postgres", "postgresql", "sqlite", None, b"postgres"])
def test_every_other_dialect_is_sqlite(dialect):
    connection = Connection(None, dialect=dialect)
    assert _tracker_table_exists(connection, "t") is False
    assert connection.asked == [((SQLITE, ("t",)), {})]


@pytest.mark.parametrize(
    "dialect", ["postgres", type("Text", (str,), {})("postgres")], ids=["str", "subclass"]
)
def test_the_postgres_dialect_asks_its_own_question(dialect):
    connection = Connection((12345,), dialect=dialect)
    assert _tracker_table_exists(connection, "t") is True
    assert connection.asked == [((POSTGRES, ("t",)), {})]


@pytest.mark.parametrize(
    ("row", "exists"),
    [(None, False), ((None,), False), ((0,), True), (("",), True), ("ab", True), ([None], False)],
    ids=repr,
)
def test_on_postgres_a_table_exists_when_the_first_value_is_not_none(row, exists):
    assert _tracker_table_exists(Connection(row, dialect="postgres"), "t") is exists


@pytest.mark.parametrize("row", [(None,), (), 0, "", False], ids=repr)
def test_on_sqlite_any_row_means_that_the_table_exists(row):
    assert _tracker_table_exists(Connection(row), "t") is True


def test_the_table_name_is_bound_as_it_is():
    name = object()
    connection = Connection(None)
    _tracker_table_exists(connection, name)
    ((_, parameters), _) = connection.asked[0]
    assert type(parameters) is tuple
    assert parameters[0] is name


@pytest.mark.parametrize("dialect", [None, "postgres"])
@pytest.mark.parametrize(
    "error", [sqlite3.OperationalError("locked"), KeyboardInterrupt()], ids=repr
)
def test_errors_of_the_database_pass_unchanged(dialect, error):
    connection = SimpleNamespace(dialect=dialect, execute=failing(error))
    with pytest.raises(type(error)) as caught:
        _tracker_table_exists(connection, "t")
    assert caught.value is error
    connection.execute = lambda *args: SimpleNamespace(fetchone=failing(error))
    with pytest.raises(type(error)) as caught:
        _tracker_table_exists(connection, "t")
    assert caught.value is error


def test_a_closed_connection_is_the_databases_error():
    connection = sqlite3.connect(":memory:")
    connection.close()
    with pytest.raises(sqlite3.ProgrammingError, match="Cannot operate on a closed database"):
        _tracker_table_exists(connection, "t")


def test_an_execute_that_returns_nothing_is_an_attribute_error():
    connection = SimpleNamespace(execute=lambda *args: None)
    with pytest.raises(AttributeError, match="'NoneType' object has no attribute 'fetchone'"):
        _tracker_table_exists(connection, "t")


@pytest.mark.parametrize(
    ("row", "error"),
    [((), IndexError), (5, TypeError), ({}, KeyError)],
    ids=["empty", "int", "mapping"],
)
def test_a_postgres_row_that_cannot_be_indexed_is_its_own_error(row, error):
    with pytest.raises(error):
        _tracker_table_exists(Connection(row, dialect="postgres"), "t")


@pytest.mark.parametrize(
    ("eval_type", "expected"),
    [
        ("strategy", ("strategy_submission_status", "strategy_signal_pool")),
        ("signal", ("signal_submission_status", "signal_pool_id")),
        ("Signal", (None, None)),
        ("STRATEGY", (None, None)),
        ("", (None, None)),
        (None, (None, None)),
        (5, (None, None)),
        (b"signal", (None, None)),
    ],
    ids=repr,
)
def test_status_table_and_pool_column_of_an_evaluation_type(eval_type, expected):
    found = _submission_status_table_and_signal_column(eval_type)
    assert found == expected
    assert type(found) is tuple


def test_strategy_is_compared_first():
    compared = []

    class Either:
        def __eq__(self, other):
            compared.append(other)
            return True

        __hash__ = None

    assert _submission_status_table_and_signal_column(Either())[0] == "strategy_submission_status"
    assert compared == ["strategy"]
