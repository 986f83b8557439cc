"""Answers as flat tables: of every question, in frames, files and JSON, in one order."""

from __future__ import annotations

import csv
import io
import json
import math
import subprocess
import sys
from pathlib import Path
from typing import Any

import jsonschema
import polars
import pyarrow.parquet
import pytest
from kestrune.search_analytics import SearchStatsResult, StatsRow, TimeWindow, WindowStats

from kestrune_search_report import QUESTIONS, Answer, Column, Questions, Snapshot, answer_of
from kestrune_search_report.documents import answer_schema, schemas
from kestrune_search_report.questions import SHAPES
from kestrune_search_report.table import table

SCHEMAS = Path(sys.modules["kestrune_search_report"].__file__ or "").parent / "schemas"
ARGUMENTS: dict[str, dict[str, Any]] = {
    "get_search_stats": {"min_sample_size": 3},
    "get_suggestions": {"min_sample_size": 3, "top_n": 3},
    "get_yield_analysis": {"recent_window_minutes": "3d"},
}


def asked(questions: Questions, question: str) -> Answer:
    return questions.ask(question, **ARGUMENTS.get(question, {}))


def odd() -> Answer:
    """Return an answer whose numbers are none, and whose names need quotes."""
    window = WindowStats(TimeWindow.LIFETIME, math.nan, math.inf, -math.inf, composite_score=0.1)
    window.submittable_yield = {'po"ol, one': 0.5}
    row = StatsRow((frozenset({"b,", 'a"'}), frozenset()), [window], 3)
    return answer_of("get_search_stats", SearchStatsResult([row], None, None, {}, 3, 1, 1))


@pytest.mark.parametrize("question", QUESTIONS)
def test_every_cell_is_of_its_kind(questions: Questions, question: str) -> None:
    kinds: dict[str, Any] = {
        "text": str,
        "integer": int,
        "number": float,
        "flag": bool,
        "texts": list,
    }
    answer = asked(questions, question)
    assert list(answer.tables) == list(SHAPES[question].tables)
    for one in (answer.summary, *answer.tables.values()):
        for row in one.rows:
            for column, cell in zip(one.columns, row, strict=True):
                assert cell is None or type(cell) is kinds[column.kind], column


def test_statistics_are_flat(questions: Questions) -> None:
    answer = asked(questions, "get_search_stats")
    result = answer.result
    assert len(answer.table.rows) == 4 * len(result.rows)
    first, window = next(answer.table.dicts()), result.rows[0].windows[0]
    assert first["functions"] == sorted(result.rows[0].group_key[0])
    assert first["window"] == "lifetime"
    assert first["sharpe"] == window.sharpe
    assert first["submittable_yield:diverse"] == window.submittable_yield["diverse"]
    assert answer.figures["aggregate_by"] == "function_subfamily_feature_subfamily"
    assert answer.arguments["eval_pool"] == "all"


def test_families_of_equal_yield_stand_in_the_alphabets_order() -> None:
    rows = [
        {"functions": ["z", "m", "a"], "passed_thresholds": True, "timestamp": 1.0}
        for _ in range(3)
    ]
    measures = {"sharpe": 1, "returns": 1, "turnover": 1, "drawdown": 1, "correlation": 1}
    snapshot = Snapshot.from_records(rows, constants=measures)
    families = Questions(snapshot).get_search_patterns().tables["families"]
    assert families.column("function_family") == ["a", "m", "z"]


@pytest.mark.parametrize("question", QUESTIONS)
def test_frames_hold_the_same_with_and_without_rows(questions: Questions, question: str) -> None:
    for one in asked(questions, question).tables.values():
        frame, empty = one.to_polars(), one.head(0).to_polars()
        assert frame.columns == one.column_names
        assert frame.schema == empty.schema
        assert [tuple(row) for row in frame.rows()] == list(one.rows)
        arrow = one.to_arrow()
        assert arrow.schema == one.head(0).to_arrow().schema
        assert arrow.to_pylist() == list(one.dicts())
        pandas_frame = one.to_pandas()
        assert list(pandas_frame.columns) == one.column_names
        assert len(pandas_frame) == len(one.rows)
        assert (pandas_frame.dtypes == one.head(0).to_pandas().dtypes).all()


def test_parquet_holds_the_same(questions: Questions, tmp_path: Path) -> None:
    one = asked(questions, "get_search_stats").table
    one.to_parquet(tmp_path / "groups.parquet")
    assert pyarrow.parquet.read_table(tmp_path / "groups.parquet").to_pylist() == list(one.dicts())
    assert polars.read_parquet(tmp_path / "groups.parquet").schema == one.to_polars().schema


def test_csv_reads_back_to_the_last_bit(questions: Questions) -> None:
    one = asked(questions, "get_search_stats").table
    for cells, row in zip(csv.DictReader(io.StringIO(one.to_csv())), one.dicts(), strict=True):
        assert float(cells["sharpe"]) == row["sharpe"]
        assert json.loads(cells["functions"]) == row["functions"]
    (cells,) = csv.DictReader(io.StringIO(odd().table.to_csv()))
    words = ["NaN", "Infinity", "-Infinity"]
    assert [cells[name] for name in ("sharpe", "returns", "turnover")] == words
    assert json.loads(cells["functions"]) == ['a"', "b,"]
    assert cells['submittable_yield:po"ol, one'] == "0.5"


@pytest.mark.parametrize("question", QUESTIONS)
def test_json_is_as_the_schema_says(questions: Questions, question: str) -> None:
    text = asked(questions, question).to_json()
    assert text.endswith("}\n")
    document = json.loads(text, parse_constant=lambda word: pytest.fail(word))
    jsonschema.Draft202012Validator(answer_schema()).validate(document)
    assert document["question"] == question


def test_numbers_that_json_has_none_for_are_words() -> None:
    document = json.loads(odd().to_json(), parse_constant=lambda word: pytest.fail(word))
    jsonschema.Draft202012Validator(answer_schema()).validate(document)
    (row,) = document["tables"]["groups"]
    assert (row["sharpe"], row["returns"], row["turnover"]) == ("NaN", "Infinity", "-Infinity")
    assert row["functions"] == ['a"', "b,"]


def test_the_schema_refuses_what_is_no_answer(questions: Questions) -> None:
    validator = jsonschema.Draft202012Validator(answer_schema())
    document = json.loads(asked(questions, "get_search_patterns").to_json())
    document["tables"]["depths"][0]["total"] = "many"
    assert not validator.is_valid(document)


def test_the_schemas_are_checked_in() -> None:
    # `kestrune-search-report schema NAME` prints a new one.
    assert {path.name: path.read_text(encoding="utf-8") for path in SCHEMAS.iterdir()} == schemas()
    for text in schemas().values():
        jsonschema.Draft202012Validator.check_schema(json.loads(text))


def test_a_table_knows_its_columns() -> None:
    one = table("t", [Column("a", "integer", "a number")], [[1], [None]])
    assert one.column("a") == [1, None]
    with pytest.raises(KeyError):
        one.column("b")


SEEDED = """
import sys, json
sys.path[:0] = json.loads(sys.argv[1])
from kestrune_search_report import collect, Snapshot
rows = json.loads(sys.stdin.read())
for row in rows:
    # Far from the edge of every window.
    row["timestamp"] = row["timestamp"] - 864000
snapshot = Snapshot.from_records(rows)
sys.stdout.write(collect(snapshot, min_sample_size=2, recent_window_minutes="20d").to_json())
"""


def test_json_is_the_same_under_any_hash_seed(rows: list[dict[str, Any]]) -> None:
    texts = set()
    for seed in ("1", "2"):
        done = subprocess.run(
            [sys.executable, "-c", SEEDED, json.dumps(sys.path)],
            input=json.dumps(rows),
            env={"PYTHONHASHSEED": seed},
            capture_output=True,
            text=True,
            check=True,
        )
        texts.add(done.stdout)
    assert len(texts) == 1
