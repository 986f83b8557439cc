"""The command `kestrune-search-report`: everything in a terminal.

Results go to the standard output, warnings and progress to the standard error. The exit status
is 0 when all went well, 2 for wrong use and 1 for a failure.
"""

from __future__ import annotations

import json
import sys
from collections.abc import Callable, Generator, Mapping
from contextlib import contextmanager, suppress
from enum import Enum
from pathlib import Path
from typing import Annotated, Any

import typer
from rich.console import Console
from rich.progress import BarColumn, Progress, TextColumn

from kestrune_search_report.answers import Answer
from kestrune_search_report.asking import Questions, question_named
from kestrune_search_report.errors import ArgumentError, ReportError, not_among
from kestrune_search_report.report import collect
from kestrune_search_report.snapshot import Snapshot
from kestrune_search_report.sources import WHAT_A_SOURCE_IS, How, open_source

NAME = "kestrune-search-report"

app = typer.Typer(
    name=NAME,
    help="Show what a search tracker's records say, and what that is worth.",
    no_args_is_help=True,
    add_completion=False,
    pretty_exceptions_enable=False,
)


class Form(str, Enum):
    """The form in which an answer is printed."""

    TABLE = "table"
    JSON = "json"
    CSV = "csv"


class Shape(str, Enum):
    """The form in which evidence is printed."""

    TABLE = "table"
    JSON = "json"


Source = Annotated[str, typer.Argument(metavar="SOURCE", help=f"What to read: {WHAT_A_SOURCE_IS}.")]
Pools = Annotated[
    list[str] | None,
    typer.Option("--pool", metavar="NAME=THRESHOLD", help="A signal pool; may be repeated."),
]
Columns = Annotated[
    list[str] | None,
    typer.Option("--column", metavar="FIELD=COLUMN", help="Which column holds a field."),
]
Constants = Annotated[
    list[str] | None,
    typer.Option("--constant", metavar="FIELD=VALUE", help="What all evaluations share."),
]
Passed = Annotated[
    float | None, typer.Option(help="The value from which on an Optuna trial is good enough.")
]
Study = Annotated[str | None, typer.Option(help="The Optuna study, where there are several.")]
EndingNow = Annotated[
    bool, typer.Option("--ending-now", help="Move an old search in time so that it ends now.")
]
Filters = Annotated[
    list[str] | None,
    typer.Option("--filter", metavar="NAME=VALUE", help="era_id=2012, function_family=trend, ..."),
]
Aggregate = Annotated[str | None, typer.Option(help="How finely to group: function_feature, ...")]
MinSample = Annotated[int | None, typer.Option(help="Leave out groups with fewer evaluations.")]
Recent = Annotated[str | None, typer.Option(help="The recent window: 90m, 6h, 2d.")]
Column = Annotated[str | None, typer.Option(help="The profit column: net_returns, ...")]
Years = Annotated[
    float | None, typer.Option(help="Over how many years a Sharpe ratio was measured.")
]
Rows = Annotated[int, typer.Option(min=1, help="How many rows of a table are shown.")]


@app.command()
def show(
    source: Source,
    pool: Pools = None,
    column: Columns = None,
    constant: Constants = None,
    passed: Passed = None,
    study: Study = None,
    ending_now: EndingNow = False,
    filters: Filters = None,
    aggregate_by: Aggregate = None,
    min_sample_size: MinSample = None,
    recent_window: Recent = None,
    pnl_column: Column = None,
    sharpe_years: Years = None,
    rows: Rows = 10,
) -> None:
    """Show all nine answers, what they are worth, and what to mind."""
    from kestrune_search_report.terminal import print_report

    with failures():
        snapshot = _snapshot(source, pool, column, constant, passed, study, ending_now)
        options = _given(
            aggregate_by=aggregate_by,
            min_sample_size=min_sample_size,
            recent_window_minutes=recent_window,
            pnl_column=pnl_column,
            sharpe_years=sharpe_years,
        )
        with progress() as step:
            report = collect(snapshot, progress=step, **options, **_filters(filters))
        print_report(_output(), report, rows)


@app.command()
def answer(
    question: Annotated[str, typer.Argument(help="search-stats, get_yield_analysis, ...")],
    source: Source,
    pool: Pools = None,
    column: Columns = None,
    constant: Constants = None,
    passed: Passed = None,
    study: Study = None,
    ending_now: EndingNow = False,
    filters: Filters = None,
    aggregate_by: Aggregate = None,
    eval_pool: Annotated[str | None, typer.Option(help="all, passed or submitted.")] = None,
    time_window: Annotated[
        list[str] | None, typer.Option(help="lifetime, era, last_week, last_24h; repeatable.")
    ] = None,
    window: Annotated[
        list[str] | None, typer.Option(help="A window of the velocity: 90m; repeatable.")
    ] = None,
    recent_window: Recent = None,
    pnl_column: Column = None,
    min_sample_size: MinSample = None,
    sort_ascending: Annotated[
        bool | None, typer.Option("--sort-ascending", help="Worst groups first.")
    ] = None,
    top_n: Annotated[int | None, typer.Option(help="How many groups or pairs.")] = None,
    form: Annotated[Form, typer.Option("--format", help="What to print.")] = Form.TABLE,
    table: Annotated[str | None, typer.Option(help="Which table, as CSV: depths, ...")] = None,
    rows: Rows = 50,
) -> None:
    """Print the answer to one question; CSV and JSON hold all rows and columns."""
    with failures():
        name = question_named(question)
        snapshot = _snapshot(source, pool, column, constant, passed, study, ending_now)
        options = _given(
            aggregate_by=aggregate_by,
            eval_pool=eval_pool,
            time_windows=time_window or None,
            windows=window or None,
            recent_window_minutes=recent_window,
            pnl_column=pnl_column,
            min_sample_size=min_sample_size,
            sort_ascending=sort_ascending,
            top_n=top_n,
        )
        found = Questions(snapshot).ask(name, **options, **_filters(filters))
        if form is Form.JSON:
            sys.stdout.write(found.to_json())
        elif form is Form.CSV:
            sys.stdout.write(_table(found, table).to_csv())
        else:
            from kestrune_search_report.terminal import print_answer

            print_answer(_output(), found, rows)


@app.command()
def evidence(
    source: Source,
    pool: Pools = None,
    column: Columns = None,
    constant: Constants = None,
    passed: Passed = None,
    study: Study = None,
    ending_now: EndingNow = False,
    filters: Filters = None,
    aggregate_by: Aggregate = None,
    min_sample_size: MinSample = None,
    recent_window: Recent = None,
    pnl_column: Column = None,
    sharpe_years: Years = None,
    form: Annotated[Shape, typer.Option("--format", help="What to print.")] = Shape.TABLE,
    rows: Rows = 10,
) -> None:
    """Print what can be told from chance, and what cannot."""
    from kestrune_search_report.evidence.gather import weigh

    with failures():
        snapshot = _snapshot(source, pool, column, constant, passed, study, ending_now)
        options = _given(
            aggregate_by=aggregate_by,
            min_sample_size=min_sample_size,
            recent_window_minutes=recent_window,
            pnl_column=pnl_column,
            sharpe_years=sharpe_years,
        )
        found = weigh(Questions(snapshot), **options, **_filters(filters))
        if form is Shape.JSON:
            sys.stdout.write(found.to_json())
        else:
            from kestrune_search_report.terminal import print_evidence

            print_evidence(_output(), found, rows)


@app.command()
def compare(
    first: Annotated[str, typer.Argument(metavar="A", help="The first source.")],
    second: Annotated[str, typer.Argument(metavar="B", help="The second source.")],
    pool: Pools = None,
    column: Columns = None,
    constant: Constants = None,
    passed: Passed = None,
    study: Study = None,
    filters: Filters = None,
    form: Annotated[Shape, typer.Option("--format", help="What to print.")] = Shape.TABLE,
) -> None:
    """Compare the yields of two searches, as a whole and by function family."""
    from kestrune_search_report.comparison import compare as compared

    with failures():
        both = [
            _snapshot(source, pool, column, constant, passed, study, False)
            for source in (first, second)
        ]
        found = compared(*both, **_filters(filters))
        if form is Shape.JSON:
            sys.stdout.write(found.to_json())
        else:
            from kestrune_search_report.terminal import print_comparison

            print_comparison(_output(), found)


@app.command()
def page(
    source: Source,
    output: Annotated[
        Path, typer.Option("--output", "-o", help="The file to write.", dir_okay=False)
    ] = Path("report.html"),
    pool: Pools = None,
    column: Columns = None,
    constant: Constants = None,
    passed: Passed = None,
    study: Study = None,
    ending_now: EndingNow = False,
    filters: Filters = None,
    aggregate_by: Aggregate = None,
    min_sample_size: MinSample = None,
    recent_window: Recent = None,
    pnl_column: Column = None,
    sharpe_years: Years = None,
) -> None:
    """Write all of it as one page: a file to open in any browser, to print, to send."""
    from kestrune_search_report.page import page as made

    with failures():
        snapshot = _snapshot(source, pool, column, constant, passed, study, ending_now)
        options = _given(
            aggregate_by=aggregate_by,
            min_sample_size=min_sample_size,
            recent_window_minutes=recent_window,
            pnl_column=pnl_column,
            sharpe_years=sharpe_years,
        )
        with progress() as step:
            text = made(snapshot, filters=_filters(filters), progress=step, **options)
        output.write_text(text, encoding="utf-8")
        sys.stdout.write(f"{output}: {len(text.encode()) / 1e6:.1f} MB\n")


@app.command()
def schema(name: Annotated[str, typer.Argument(help="answer, evidence, report, ...")]) -> None:
    """Print the JSON Schema of a kind of document."""
    from kestrune_search_report.documents import schemas

    with failures():
        known = {file.partition("-")[0]: text for file, text in schemas().items()}
        if name not in known:
            raise ArgumentError(not_among("schema", name, list(known)))
        sys.stdout.write(known[name])


def main() -> None:
    """Run the command."""
    app()


@contextmanager
def failures() -> Generator[None]:
    """Turn errors into a line on the standard error and an exit status."""
    try:
        yield
    except ArgumentError as error:
        _complain(str(error))
        raise typer.Exit(2) from error
    except ReportError as error:
        _complain(str(error))
        raise typer.Exit(1) from error
    except Exception as error:
        # Of a tracker, a database, a file: none of them is ours to explain.
        _complain(f"{type(error).__name__}: {error}")
        raise typer.Exit(1) from error


@contextmanager
def progress() -> Generator[Callable[[str, int, int], None]]:
    """Show how far something is, where the standard error is a terminal."""
    console = Console(stderr=True)
    bars = (TextColumn("{task.description}"), BarColumn())
    with Progress(*bars, console=console, disable=not console.is_terminal, transient=True) as bar:
        task = bar.add_task("")
        yield lambda what, done, steps: bar.update(
            task, description=what, completed=done, total=steps
        )


def _complain(text: str) -> None:
    sys.stderr.write(f"{NAME}: {text}\n")


def _output() -> Console:
    return Console(highlight=False)


def _given(**options: Any) -> dict[str, Any]:
    return {name: value for name, value in options.items() if value is not None}


def _pairs(option: str, texts: list[str] | None) -> dict[str, str]:
    found: dict[str, str] = {}
    for text in texts or ():
        name, equals, value = text.partition("=")
        if not (name and equals):
            raise ArgumentError(f"--{option}: {text!r} is not of the form NAME=VALUE.")
        found[name] = value
    return found


def _filters(texts: list[str] | None) -> Mapping[str, Any]:
    found: dict[str, Any] = dict(_pairs("filter", texts))
    if "metaparameters" in found:
        # Any value that JSON can hold; a text may stand there without its quotes.
        with suppress(ValueError):
            found["metaparameters"] = json.loads(found["metaparameters"])
    return found


def _snapshot(
    source: str,
    pool: list[str] | None,
    column: list[str] | None,
    constant: list[str] | None,
    passed: float | None,
    study: str | None,
    ending_now: bool,
) -> Snapshot:
    pools: dict[str, float] = {}
    for name, text in _pairs("pool", pool).items():
        try:
            pools[name] = float(text)
        except ValueError as error:
            raise ArgumentError(f"--pool: {text!r} is no number.") from error
    with progress() as step:
        how = How(
            columns=_pairs("column", column),
            constants=_pairs("constant", constant),
            pools=pools,
            passed=passed,
            study=study,
            progress=lambda done, total: step("reading", done, total),
        )
        snapshot = open_source(source, how)
    return snapshot.ending_now() if ending_now else snapshot


def _table(found: Answer, name: str | None) -> Any:
    if name is None:
        return found.table
    tables = {"summary": found.summary, **found.tables}
    if name not in tables:
        raise ArgumentError(not_among(f"table of {found.question}", name, list(tables)))
    return tables[name]
