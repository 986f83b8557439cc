"""Flat tables: what every answer and every piece of evidence comes down to."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from typing import Any, Literal

ColumnKind = Literal["text", "integer", "number", "flag", "texts"]


@dataclass(frozen=True)
class Column:
    """One column: its name, what kind of value it holds, and what that says, with its unit."""

    name: str
    kind: ColumnKind
    meaning: str


@dataclass(frozen=True, repr=False)
class Table:
    """Rows under columns. A cell is None where nothing is known.

    A cell of kind "text" holds a str, "integer" an int, "number" a float (NaN and infinities
    included), "flag" a bool, "texts" a sorted list of str.
    """

    name: str
    columns: tuple[Column, ...]
    rows: tuple[tuple[Any, ...], ...]

    def __repr__(self) -> str:
        return f"<Table {self.name}: {len(self.rows)} rows of {len(self.columns)} columns>"

    @property
    def column_names(self) -> list[str]:
        """The names of the columns, in order."""
        return [column.name for column in self.columns]

    def dicts(self) -> Iterator[dict[str, Any]]:
        """Yield each row as a dictionary by column name."""
        names = self.column_names
        for row in self.rows:
            yield dict(zip(names, row, strict=True))

    def column(self, name: str) -> list[Any]:
        """Return the cells of one column; `KeyError` for a name that there is not."""
        names = self.column_names
        if name not in names:
            raise KeyError(name)
        place = names.index(name)
        return [row[place] for row in self.rows]

    def head(self, count: int) -> Table:
        """Return the same table with at most `count` rows."""
        return Table(self.name, self.columns, self.rows[:count])

    def to_pandas(self) -> Any:
        """Return the table as a pandas frame; `ImportError` without pandas."""
        from kestrune_search_report.frames import to_frame

        return to_frame(self, "pandas")

    def to_polars(self) -> Any:
        """Return the table as a polars frame; `ImportError` without polars."""
        from kestrune_search_report.frames import to_frame

        return to_frame(self, "polars")

    def to_arrow(self) -> Any:
        """Return the table as an Arrow table; `ImportError` without pyarrow."""
        from kestrune_search_report.frames import to_frame

        return to_frame(self, "pyarrow")

    def to_csv(self) -> str:
        """Return the table as CSV: a line of names, texts quoted where needed, lists as JSON."""
        from kestrune_search_report.frames import to_csv

        return to_csv(self)

    def to_parquet(self, path: Any) -> None:
        """Write the table to a Parquet file; `SourceError` without pyarrow and polars."""
        from kestrune_search_report.frames import to_parquet

        to_parquet(self, path)


def table(name: str, columns: Iterable[Column], rows: Iterable[Iterable[Any]]) -> Table:
    """Return a table whose cells are brought into the form that their column promises."""
    known = tuple(columns)
    kinds: list[ColumnKind] = [column.kind for column in known]
    made = tuple(
        tuple(_cell(kind, value) for kind, value in zip(kinds, row, strict=True)) for row in rows
    )
    return Table(name, known, made)


def _cell(kind: ColumnKind, value: Any) -> Any:
    if value is None:
        return None
    if kind == "text":
        return value if isinstance(value, str) else str(value)
    if kind == "integer":
        return int(value)
    if kind == "number":
        return float(value)
    if kind == "flag":
        return bool(value)
    return sorted(str(item) for item in value)
