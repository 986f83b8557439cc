"""Tables as frames of other libraries and as files."""

from __future__ import annotations

import csv
import io
import json
import math
from importlib import import_module
from typing import TYPE_CHECKING, Any, Literal

from kestrune_search_report.tabular import parquet_backend

if TYPE_CHECKING:
    from kestrune_search_report.table import Table

Library = Literal["pandas", "polars", "pyarrow"]


def to_frame(table: Table, library: Library) -> Any:
    """Return a table as a frame of a library, with the same types whatever rows there are.

    Texts, integers, floats and truth values become the library's own; "texts" becomes a list of
    texts, in pandas a plain object column of lists. Raises `ImportError` where the library is
    not installed.
    """
    if library == "pandas":
        return _pandas(table)
    import narwhals.stable.v2 as nw

    types: dict[str, Any] = {
        "text": nw.String(),
        "integer": nw.Int64(),
        "number": nw.Float64(),
        "flag": nw.Boolean(),
        "texts": nw.List(nw.String()),
    }
    data = {name: table.column(name) for name in table.column_names}
    schema = {column.name: types[column.kind] for column in table.columns}
    frame: Any = nw.from_dict(data, schema=schema, backend=library)
    return frame.to_native()


def _pandas(table: Table) -> Any:
    pandas: Any = import_module("pandas")
    # Nullable types where a cell may be unknown: a count does not become a float for it.
    types = {
        "text": "string",
        "integer": "Int64",
        "number": "float64",
        "flag": "boolean",
        "texts": "object",
    }
    return pandas.DataFrame(
        {
            column.name: pandas.Series(table.column(column.name), dtype=types[column.kind])
            for column in table.columns
        }
    )


def to_csv(table: Table) -> str:
    """Return a table as CSV with \\n at the end of lines; an unknown cell is empty.

    Numbers are written so that they read back to the last bit, NaN and infinities as "NaN",
    "Infinity" and "-Infinity", truth values as "true" and "false", lists as JSON.
    """
    text = io.StringIO()
    writer = csv.writer(text, lineterminator="\n")
    writer.writerow(table.column_names)
    writer.writerows([_csv_cell(cell) for cell in row] for row in table.rows)
    return text.getvalue()


def _csv_cell(cell: Any) -> Any:
    if isinstance(cell, bool):
        return "true" if cell else "false"
    if isinstance(cell, float) and not math.isfinite(cell):
        return number_word(cell)
    return json.dumps(cell, ensure_ascii=False) if isinstance(cell, list) else cell


def number_word(value: float) -> str:
    """Return the word for a number that JSON has no number for."""
    return "NaN" if math.isnan(value) else "Infinity" if value > 0 else "-Infinity"


def to_parquet(table: Table, path: Any) -> None:
    """Write a table to a Parquet file through pyarrow or polars, whichever is installed."""
    import narwhals.stable.v2 as nw

    frame: Any = nw.from_native(to_frame(table, parquet_backend()))
    frame.write_parquet(str(path))
