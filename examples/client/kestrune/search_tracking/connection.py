"""Database connections that the tracker and the analytics can both speak to.

Either kind has `execute(sql, params)` with `?` placeholders, which returns a cursor, and
`close()`. Every statement is its own transaction, so that a failed one spoils no later one.
"""

import os
import re
import sqlite3
from collections.abc import Sequence
from functools import lru_cache
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    import psycopg

# Literals, quoted names and comments come first, so that what is in them is no placeholder.
_SQL_PART = re.compile(
    r"""(?P<verbatim>'(?:[^']|'')*'|"(?:[^"]|"")*"|--[^\n]*|/\*.*?\*/)|(?P<mark>\?)""",
    re.DOTALL,
)


@lru_cache(maxsize=256)
def to_driver_placeholders(sql: str) -> str:
    """Return `sql` with each `?` placeholder as the PostgreSQL driver's `%s`.

    A `?` inside a literal, a quoted name or a comment stays. Every `%` of the statement,
    wherever it stands, is doubled, because the driver looks for placeholders everywhere.
    """
    return _SQL_PART.sub(lambda part: part["verbatim"] or "%s", sql.replace("%", "%%"))


class PostgresConnection:
    """A connection to a PostgreSQL server that takes SQLite's style of placeholders."""

    dialect = "postgres"

    def __init__(self, database_url: str) -> None:
        import psycopg

        self._driver = psycopg.connect(database_url, autocommit=True)

    def execute(self, sql: str, params: Sequence[Any] = ()) -> "psycopg.Cursor[Any]":
        """Run one statement with its parameters bound; return a cursor over its rows.

        A text parameter is sent without a type, so the server gives it the one that the
        statement needs there (as in `SELECT to_regclass(?)`). Errors are the driver's own.
        """
        return self._driver.execute(to_driver_placeholders(sql), tuple(params))

    def close(self) -> None:
        """Close the connection; closing twice is harmless."""
        self._driver.close()


Connection = sqlite3.Connection | PostgresConnection


def connect(data_dir: str | os.PathLike[str], database_url: str | None) -> Connection:
    """Open the server's database when a URL is given, else the SQLite file in `data_dir`."""
    if database_url:
        if not database_url.startswith(("postgresql://", "postgres://")):
            raise ValueError("database_url must begin with 'postgresql://' or 'postgres://'.")
        return PostgresConnection(database_url)
    connection = sqlite3.connect(
        os.path.join(data_dir, "search_tracking.sqlite3"),
        isolation_level=None,
        # The analytics keep one tracker for the whole process, whichever thread asks.
        check_same_thread=False,
    )
    # A search records thousands of small rows: readers should not wait for it, and a power
    # cut may cost the last few.
    connection.execute("PRAGMA journal_mode=WAL")
    connection.execute("PRAGMA synchronous=NORMAL")
    return connection
