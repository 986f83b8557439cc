"""The command: sources of every kind, forms of output, plain errors with their status."""

from __future__ import annotations

import csv
import io
import json
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

import jsonschema
import optuna
import pyarrow
import pyarrow.parquet
import pytest

from kestrune_search_report import QUESTIONS
from kestrune_search_report.cli import app
from kestrune_search_report.documents import schemas
from support.searches import records, simple

CLIENT = Path(__file__).parents[2] / "examples" / "client"
Run = Callable[..., tuple[int, str, str]]


@pytest.fixture
def run(capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch) -> Run:
    """Return a function that runs the command: its exit status, output and errors."""
    monkeypatch.setenv("COLUMNS", "120")

    def started(*words: str) -> tuple[int, str, str]:
        with pytest.raises(SystemExit) as ended:
            app([str(word) for word in words])
        texts = capsys.readouterr()
        return int(ended.value.code or 0), texts.out, texts.err

    return started


@pytest.fixture
def parquet(tmp_path: Path) -> Path:
    """A Parquet file of evaluations."""
    path = tmp_path / "tried.parquet"
    pyarrow.parquet.write_table(pyarrow.Table.from_pylist(simple(400)), path)
    return path


@pytest.fixture
def trials(tmp_path: Path) -> str:
    """The address of an Optuna storage with one study."""
    address = f"sqlite:///{tmp_path}/trials.db"
    optuna.logging.set_verbosity(optuna.logging.ERROR)
    study = optuna.create_study(storage=address, study_name="tuning")
    study.optimize(lambda trial: trial.suggest_float("x", 0, 1), 12)
    storage: Any = study._storage
    storage.remove_session()
    storage._backend.engine.dispose()
    return address


def test_show_prints_all_nine_answers_and_what_they_are_worth(run: Run, parquet: Path) -> None:
    status, out, err = run("show", parquet)
    assert (status, err) == (0, "")
    for question in QUESTIONS:
        assert question in out
    assert "What can be told from chance" in out
    assert "Warning: A pool has no limit" in out
    assert "not independent" in " ".join(out.split())


@pytest.mark.parametrize("question", QUESTIONS)
def test_answers_are_printed_in_every_form(run: Run, parquet: Path, question: str) -> None:
    status, out, _ = run("answer", question, parquet, "--format", "json")
    assert status == 0
    jsonschema.validate(json.loads(out), json.loads(schemas()["answer-1.json"]))
    status, out, _ = run("answer", question, parquet, "--format", "csv")
    assert status == 0
    assert next(csv.reader(io.StringIO(out)))
    status, out, _ = run("answer", question.replace("_", "-"), parquet)
    assert (status, question in out) == (0, True)


def test_arguments_of_a_question_are_options(run: Run, parquet: Path) -> None:
    status, out, _ = run(
        *("answer", "search_stats", parquet, "--format", "json", "--aggregate-by", "none"),
        *("--time-window", "lifetime", "--min-sample-size", "2", "--filter", "era_id=2012"),
        *("--pool", "core=0.5", "--sort-ascending"),
    )
    document = json.loads(out)
    assert status == 0
    assert document["arguments"]["era_id"] == "2012"
    assert document["arguments"]["time_windows"] == ["lifetime"]
    assert "submittable_yield:core" in document["tables"]["groups"][0]


def test_evidence_and_comparisons_are_printed(run: Run, parquet: Path) -> None:
    status, out, _ = run("evidence", parquet, "--format", "json", "--min-sample-size", "5")
    assert status == 0
    jsonschema.validate(json.loads(out), json.loads(schemas()["evidence-1.json"]))
    assert run("evidence", parquet)[0] == 0
    status, out, _ = run("compare", parquet, parquet, "--format", "json")
    assert status == 0
    jsonschema.validate(json.loads(out), json.loads(schemas()["comparison-1.json"]))
    assert "None of 7 yields differs" in run("compare", parquet, parquet)[1]


def test_a_page_is_written(run: Run, parquet: Path, tmp_path: Path) -> None:
    path = tmp_path / "page.html"
    status, out, err = run("page", parquet, "-o", path, "--min-sample-size", "5")
    assert (status, err) == (0, "")
    assert out.startswith(f"{path}: 0.")
    assert path.read_text(encoding="utf-8").startswith("<!DOCTYPE html>")
    assert run("page", parquet, "-o", path, "--filter", "era_id=1812")[0] == 2
    assert run("page", parquet, "-o", tmp_path / "nowhere" / "page.html")[0] == 1


def test_schemas_are_printed(run: Run) -> None:
    assert run("schema", "answer") == (0, schemas()["answer-1.json"], "")


def test_a_csv_file_with_columns_of_its_own_is_a_source(run: Run, tmp_path: Path) -> None:
    path = tmp_path / "own.csv"
    path.write_text("when,sr,used,ok\n1,0.5,a;b,yes\n2,0.7,a;c,no\n", encoding="utf-8")
    words = [
        *("--column", "timestamp=when", "--column", "sharpe=sr", "--column", "functions=used"),
        *("--column", "passed_thresholds=ok", "--constant", "returns=0.1"),
        *("--constant", "turnover=1", "--constant", "drawdown=0", "--constant", "correlation=0"),
    ]
    status, out, _ = run("answer", "correlation-patterns", path, "--format", "csv", *words)
    assert status == 0
    assert [row["function_b"] for row in csv.DictReader(io.StringIO(out))] == ["b", "c"]
    assert run("show", path, "--ending-now", *words)[0] == 0


def test_a_storage_of_optuna_is_a_source(run: Run, trials: str) -> None:
    status, out, _ = run("answer", "search-patterns", trials, "--passed", "0.5", "--format", "json")
    assert status == 0
    assert json.loads(out)["summary"]["total_evaluations"] == 12
    assert run("show", trials)[0] == 1
    assert "tuning" in run("show", trials, "--study", "tunning")[2]


def test_a_clients_data_folder_is_a_source(
    run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    import kestrune

    monkeypatch.setattr(kestrune, "__path__", [*kestrune.__path__, str(CLIENT / "kestrune")])
    from kestrune.search_tracking import Evaluation, SearchTracker

    with SearchTracker(tmp_path, "") as tracker:
        for row in records(30):
            tracker.record_evaluation(Evaluation(**row))
    kestrune_modules = [name for name in sys.modules if name.startswith("kestrune.")]
    status, out, _ = run("answer", "available-eras", tmp_path, "--format", "csv")
    for name in kestrune_modules:
        if name != "kestrune.search_analytics":
            sys.modules.pop(name)
    assert (status, out) == (0, "era_id\n2011\n2012\n")


def test_a_callable_is_a_source(run: Run, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    (tmp_path / "my_searches.py").write_text(
        "from kestrune_search_report import Snapshot\n"
        "from support.searches import records\n"
        "def made(): return Snapshot.from_records(records(30))\n"
        "def nothing(): return 3\n"
        "def fails(): raise RuntimeError('no luck')\n",
        encoding="utf-8",
    )
    monkeypatch.syspath_prepend(str(tmp_path))
    assert run("answer", "available-eras", "my_searches:made")[0] == 0
    assert run("answer", "available-eras", "my_searches:nothing")[0] == 1
    status, _, err = run("answer", "available-eras", "my_searches:fails")
    assert (status, err) == (1, "kestrune-search-report: RuntimeError: no luck\n")
    assert run("answer", "available-eras", "my_searches:other")[0] == 2
    assert run("answer", "available-eras", "no_searches:made")[0] == 2


@pytest.mark.parametrize(
    ("words", "status", "text"),
    [
        (["answer", "search-patern", "x"], 2, "Did you mean 'get_search_patterns'"),
        (["show", "nowhere"], 2, "'nowhere' is not there"),
        (["show", "."], 1, "no database of a client"),
        (["show", "sqlite:///nowhere.db"], 2, "there is no file nowhere.db"),
        (["show"], 2, "Missing argument"),
        (["tell"], 2, "No such command"),
        (["answer", "search-stats", "FILE", "--filter", "era=3"], 2, "Did you mean 'era_id'"),
        (["answer", "search-stats", "FILE", "--filter", "era_id"], 2, "NAME=VALUE"),
        (["answer", "search-stats", "FILE", "--filter", "era_id=2021"], 2, "there are: 2011, 2012"),
        (["answer", "search-stats", "FILE", "--top-n", "3"], 2, "nothing is called 'top_n'"),
        (["answer", "search-stats", "FILE", "--table", "pairs", "--format", "csv"], 2, "groups"),
        (["answer", "search-stats", "FILE", "--pool", "core=much"], 2, "no number"),
        (["answer", "search-stats", "FILE", "--pool", "core=0"], 1, "above 0"),
        (["answer", "search-stats", "FILE", "--passed", "3"], 2, "passed: says nothing"),
        (["answer", "search-stats", "FILE", "--column", "sharpe=sr"], 1, "nothing is called 'sr'"),
        (["answer", "search-stats", "FILE", "--constant", "returns=much"], 1, "returns"),
        (["schema", "answers"], 2, "Did you mean 'answer'"),
    ],
    ids=lambda value: "-".join(value) if isinstance(value, list) else None,
)
def test_errors_are_plain(
    run: Run,
    parquet: Path,
    tmp_path: Path,
    monkeypatch: pytest.MonkeyPatch,
    words: list[str],
    status: int,
    text: str,
) -> None:
    monkeypatch.chdir(tmp_path)
    found = run(*(str(parquet) if word == "FILE" else word for word in words))
    assert (found[0], found[1]) == (status, "")
    assert text in " ".join(found[2].split())
    assert "Traceback" not in found[2]
    assert not (tmp_path / "nowhere.db").exists()
