"""Frames and files as rows: a dictionary for each, and the names of the columns."""

from __future__ import annotations

import csv
from importlib.util import find_spec
from typing import Any

from kestrune_search_report.errors import SourceError

Rows = tuple[list[Any], set[str]]
_FIGURES = ("sharpe", "returns", "drawdown")


def frame_rows(frame: Any) -> Rows:
    """Return the rows of a pandas, polars or Arrow table, or of another that narwhals knows."""
    import narwhals.stable.v2 as nw

    try:
        known: Any = nw.from_native(frame)
    except TypeError as error:
        raise SourceError(f"{type(frame).__name__} is no frame that can be read.") from error
    if isinstance(known, nw.LazyFrame):
        known = known.collect()
    return _gathered(list(known.iter_rows(named=True)), list(known.columns))


def csv_rows(path: Any) -> Rows:
    """Return the rows of a CSV file in UTF-8 whose first line names the columns."""
    with open(path, encoding="utf-8-sig", newline="") as file:
        reader = csv.DictReader(file, strict=True)
        try:
            rows = list(reader)
        except (csv.Error, UnicodeDecodeError) as error:
            raise SourceError(f"{path} is no CSV file in UTF-8: {error}.") from error
        ragged = [number for number, row in enumerate(rows, 2) if None in row]
        if ragged:
            raise SourceError(f"{path}: line {ragged[0]} has more cells than there are columns.")
        return _gathered(rows, list(reader.fieldnames or ()))


def parquet_rows(path: Any) -> Rows:
    """Return the rows of a Parquet file."""
    import narwhals.stable.v2 as nw

    backend = parquet_backend()
    with open(path, "rb") as file:
        if file.read(4) != b"PAR1":
            raise SourceError(f"{path} is no Parquet file.")
    return frame_rows(nw.read_parquet(str(path), backend=backend).to_native())


def parquet_backend() -> Any:
    """Return the name of an installed library that reads and writes Parquet files."""
    for library in ("pyarrow", "polars"):
        if find_spec(library) is not None:
            return library
    raise SourceError("Parquet files need pyarrow or polars, and neither is installed.")


def _gathered(rows: list[Any], names: list[str]) -> Rows:
    """Gather the columns P_sharpe, P_returns, P_drawdown into mappings, unless there are any."""
    present = set(names)
    profits = [
        name.removesuffix("_sharpe") for name in names if name.endswith("_sharpe") and name[:-7]
    ]
    if "per_column_stats" in present or not profits:
        return rows, present
    keys = [f"{profit}_{figure}" for profit in profits for figure in _FIGURES]
    keys = [key for key in keys if key in present]
    for row in rows:
        row["per_column_stats"] = {
            key: float(row[key]) for key in keys if row[key] is not None and row[key] != ""
        }
    return rows, {*present, "per_column_stats"}
