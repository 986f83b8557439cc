"""One's own records: dictionaries, objects, frames of three libraries, files, studies."""

from __future__ import annotations

import csv
import json
from collections.abc import Callable
from datetime import datetime, timezone
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pandas
import polars
import pyarrow
import pyarrow.parquet
import pytest

from kestrune_search_report import Snapshot, SourceError
from support.searches import simple

FRAMES: dict[str, Callable[[list[dict[str, Any]]], Any]] = {
    "pandas": pandas.DataFrame,
    "polars": polars.DataFrame,
    "lazy": lambda rows: polars.DataFrame(rows).lazy(),
    "arrow": pyarrow.Table.from_pylist,
}


def expected() -> list[Any]:
    return [vars(one) for one in Snapshot.from_records(simple()).evaluations]


def test_objects_and_dictionaries_are_the_same() -> None:
    objects = [SimpleNamespace(**row) for row in simple()]
    found = Snapshot.from_records(objects).evaluations
    # Made at different moments.
    for one, other in zip(found, expected(), strict=True):
        assert {**vars(one), "timestamp": 0} == {**other, "timestamp": 0}


@pytest.mark.parametrize("kind", FRAMES)
def test_frames_of_every_library_are_read(kind: str) -> None:
    rows = simple()
    frame = FRAMES[kind](rows)
    made = Snapshot.from_frame(frame)
    plain = Snapshot.from_records(rows)
    assert made.evaluations == plain.evaluations
    assert made.fields == plain.fields


@pytest.mark.parametrize("kind", FRAMES)
def test_empty_cells_of_every_library_are_missing(kind: str) -> None:
    rows = simple(4)
    for row in rows:
        row["named_universe"] = "few"
    rows[1]["named_universe"] = None
    made = Snapshot.from_frame(FRAMES[kind](rows))
    assert made.get_available_named_universes() == ["few"]
    assert [one.named_universe for one in made.evaluations] == ["few", "few", None, "few"]


@pytest.mark.parametrize("kind", FRAMES)
def test_dates_of_every_library_are_seconds(kind: str) -> None:
    rows = simple(2, timestamp=datetime(2024, 1, 2, tzinfo=timezone.utc))
    made = Snapshot.from_frame(FRAMES[kind](rows))
    assert {one.timestamp for one in made.evaluations} == {1704153600.0}


def test_figures_by_column_are_gathered() -> None:
    rows = [{**row, "net_sharpe": 0.25, "net_drawdown": 0.5} for row in simple()]
    made = Snapshot.from_frame(polars.DataFrame(rows))
    assert made.evaluations[0].per_column_stats == {"net_sharpe": 0.25, "net_drawdown": 0.5}
    stats = made.engine.get_search_stats(pnl_column="net", min_sample_size=1)
    assert {row.windows[0].sharpe for row in stats.rows} == {0.25}


def write_csv(path: Path, rows: list[dict[str, Any]]) -> Path:
    with open(path, "w", encoding="utf-8", newline="") as file:
        writer = csv.DictWriter(file, list(rows[0]))
        writer.writeheader()
        for row in rows:
            cells = {k: ";".join(v) if isinstance(v, list) else v for k, v in row.items()}
            writer.writerow(cells)
    return path


def test_a_csv_file_is_read(tmp_path: Path) -> None:
    rows = simple()
    made = Snapshot.from_csv(write_csv(tmp_path / "tried.csv", rows))
    assert made.evaluations == Snapshot.from_records(rows).evaluations
    assert made.name.endswith("tried.csv")


def test_texts_of_a_csv_file_say_what_they_mean(tmp_path: Path) -> None:
    row = simple(1)[0]
    row["timestamp"] = "2024-01-02T00:00:00Z"
    row["passed_thresholds"] = "yes"
    row["functions"] = json.dumps(["b", "a"])
    row["function_metadata"] = json.dumps([{"function_name": "b", "function_family": "f"}])
    row["sharpe"] = "NaN"
    path = write_csv(tmp_path / "one.csv", [row])
    (one,) = Snapshot.from_csv(path).evaluations
    assert (one.timestamp, one.passed_thresholds, one.functions) == (1704153600.0, True, ["b", "a"])
    assert one.function_metadata == [{"function_name": "b", "function_family": "f"}]
    assert one.sharpe != one.sharpe


@pytest.mark.parametrize(
    ("content", "text"),
    [
        (b"a,b\n1,2,3\n", "line 2 has more cells"),
        (b"a,b\n\xff,2\n", "no CSV file in UTF-8"),
        (b"", "are missing"),
    ],
    ids=["ragged", "not UTF-8", "empty"],
)
def test_a_file_that_is_no_csv_file_is_refused(tmp_path: Path, content: bytes, text: str) -> None:
    path = tmp_path / "bad.csv"
    path.write_bytes(content)
    with pytest.raises(SourceError, match=text):
        Snapshot.from_csv(path)


def test_a_parquet_file_is_read(tmp_path: Path) -> None:
    rows = simple()
    path = tmp_path / "tried.parquet"
    pyarrow.parquet.write_table(pyarrow.Table.from_pylist(rows), path)
    made = Snapshot.from_parquet(path)
    assert made.evaluations == Snapshot.from_records(rows).evaluations
    path.write_bytes(b"no such thing")
    with pytest.raises(SourceError, match="no Parquet file"):
        Snapshot.from_parquet(path)


def test_columns_and_constants_stand_for_fields() -> None:
    rows = [{"when": i, "sr": i / 10, "used": ["a", "b"]} for i in range(5)]
    made = Snapshot.from_records(
        rows,
        columns={
            "timestamp": "when",
            "sharpe": "sr",
            "functions": "used",
            "passed_thresholds": lambda row: row["sr"] > 0.2,
        },
        constants={"returns": 0.1, "turnover": 1, "drawdown": 0, "correlation": 0},
    )
    assert [one.passed_thresholds for one in made.evaluations] == [True, True, False, False, False]
    assert made.engine.get_correlation_patterns().pairs[0].total_cooccurrences == 5


def test_everything_missing_is_said_at_once_with_its_purpose() -> None:
    with pytest.raises(SourceError) as caught:
        Snapshot.from_records([{"sr": 1}], columns={"sharpe": "sr"})
    text = str(caught.value)
    for name in ("timestamp", "passed_thresholds", "returns", "turnover", "functions"):
        assert f"  {name}: " in text
    assert "  sharpe: " not in text
    assert "get_suggestions" in text


@pytest.mark.parametrize(
    ("change", "text"),
    [
        ({"columns": {"sharp": "sr"}}, "Did you mean 'sharpe'"),
        ({"constants": {"era": "x"}}, "Did you mean 'era_id'"),
        ({"columns": {"sharpe": "sharp"}}, "Did you mean 'sharpe'"),
        ({"pools": []}, "none is given"),
        ({"pools": {"core": 0}}, "above 0"),
        ({"pools": [{"is_correlation_threshold": 1}]}, "has no name"),
    ],
    ids=["field", "constant", "column", "no pools", "threshold", "nameless"],
)
def test_what_is_named_wrongly_is_an_error(change: dict[str, Any], text: str) -> None:
    with pytest.raises(SourceError, match=text):
        Snapshot.from_frame(polars.DataFrame(simple()), **change)


def test_what_is_no_frame_is_refused() -> None:
    with pytest.raises(SourceError, match="no frame"):
        Snapshot.from_frame(3)


def test_nothing_at_all_is_refused() -> None:
    with pytest.raises(SourceError, match="no evaluation"):
        Snapshot.from_records([])


def test_progress_is_told() -> None:
    told: list[tuple[int, int]] = []
    Snapshot.from_records(simple(1200), progress=lambda done, all_: told.append((done, all_)))
    assert told == [(500, 1200), (1000, 1200), (1200, 1200)]
