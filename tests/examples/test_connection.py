"""The database connections behind the tracker, as the analytics use them."""

from __future__ import annotations

import sqlite3
from pathlib import Path
from typing import Any

import pytest


@pytest.mark.parametrize(
    ("sql", "expected"),
    [
        ("SELECT ?, ?", "SELECT %s, %s"),
        ("SELECT to_regclass(?)", "SELECT to_regclass(%s)"),
        ("SELECT '?' || ?", "SELECT '?' || %s"),
        ("SELECT 'it''s ?', ?", "SELECT 'it''s ?', %s"),
        ('SELECT "a?""b" FROM t WHERE x=?', 'SELECT "a?""b" FROM t WHERE x=%s'),
        ("SELECT ? -- why?\n, ?", "SELECT %s -- why?\n, %s"),
        ("SELECT /* ?\n? */ ?", "SELECT /* ?\n? */ %s"),
        ("SELECT 7 % ? WHERE x LIKE '%?'", "SELECT 7 %% %s WHERE x LIKE '%%?'"),
        ("SELECT 1", "SELECT 1"),
    ],
)
def test_placeholders_are_translated_outside_of_literals(
    demo: Any, sql: str, expected: str
) -> None:
    from kestrune.search_tracking.connection import to_driver_placeholders

    assert to_driver_placeholders(sql) == expected


def test_only_the_server_connection_names_its_dialect(both_trackers: dict[str, Any]) -> None:
    assert isinstance(both_trackers["sqlite"]._conn, sqlite3.Connection)
    assert not hasattr(both_trackers["sqlite"]._conn, "dialect")
    assert both_trackers["postgres"]._conn.dialect == "postgres"


@pytest.mark.parametrize(
    ("sql", "params", "row"),
    [
        ("SELECT CAST(? AS TEXT), '%?'", ("a'; --",), ("a'; --", "%?")),
        ("SELECT 7 % 4", (), (3,)),
        ("SELECT 7 % 4 + CAST(? AS INTEGER)", (1,), (4,)),
        ("SELECT CAST(? AS TEXT)", (None,), (None,)),
    ],
    ids=["text", "literal", "int", "none"],
)
def test_parameters_are_bound_and_literals_are_left_alone(
    tracker: Any, sql: str, params: tuple[Any, ...], row: tuple[Any, ...]
) -> None:
    assert tracker._conn.execute(sql, params).fetchone() == row


def test_no_row_is_none(tracker: Any) -> None:
    assert (
        tracker._conn.execute("SELECT 1 FROM evaluations WHERE eval_id=?", ("x",)).fetchone()
        is None
    )


def test_tables_are_found_by_the_analytics(kestrune: Any, tracker: Any) -> None:
    from kestrune.search_analytics import _tracker_table_exists

    for table in ("evaluations", "signal_submission_status", "strategy_submission_status"):
        assert _tracker_table_exists(tracker._conn, table)
    assert not _tracker_table_exists(tracker._conn, "absent")
    # In quotes it is the name of a table: before 16, PostgreSQL refuses what cannot be one.
    assert not _tracker_table_exists(tracker._conn, "\"x' OR '1'='1\"")


def test_a_url_of_another_database_is_refused(kestrune: Any, tmp_path: Path) -> None:
    from kestrune.search_tracking import SearchTracker

    with pytest.raises(ValueError, match=r"^database_url must begin with 'postgresql://'"):
        SearchTracker(tmp_path, "mysql://localhost/x")


def test_a_server_that_is_not_there_is_the_drivers_error(kestrune: Any, tmp_path: Path) -> None:
    import psycopg
    from kestrune.search_tracking import SearchTracker

    with pytest.raises(psycopg.OperationalError):
        SearchTracker(tmp_path, f"postgresql://demo@/postgres?host={tmp_path}")


def test_a_missing_folder_is_the_databases_error(kestrune: Any, tmp_path: Path) -> None:
    from kestrune.search_tracking import SearchTracker

    with pytest.raises(sqlite3.OperationalError):
        SearchTracker(tmp_path / "absent", "")
