"""Answers, evidence and comparisons as tables in a terminal."""

from __future__ import annotations

from collections.abc import Iterable

from rich import box
from rich.console import Console
from rich.table import Table as RichTable
from rich.text import Text

from kestrune_search_report.answers import Answer
from kestrune_search_report.comparison import Comparison
from kestrune_search_report.evidence.findings import Finding
from kestrune_search_report.evidence.gather import Evidence
from kestrune_search_report.layout import is_number, shown_columns, title, written
from kestrune_search_report.report import Report
from kestrune_search_report.table import Table

ROWS = 10


def print_table(console: Console, table: Table, rows: int | None = ROWS) -> None:
    """Print the first `rows` rows, all for None, and say how many more there are."""
    columns = shown_columns(table)
    places = [table.columns.index(column) for column in columns]
    shown = RichTable(box=box.SIMPLE_HEAD, title=Text(table.name), title_justify="left")
    for column in columns:
        shown.add_column(
            Text(title(column)), justify="right" if is_number(column) else "left", overflow="fold"
        )
    for row in table.rows[:rows]:
        # As texts: a name may look like markup.
        cells = zip(columns, places, strict=True)
        shown.add_row(*(Text(written(column, row[place])) for column, place in cells))
    if not table.rows:
        console.print(Text(f"{table.name}: nothing"))
        return
    console.print(shown)
    if rows is not None and len(table.rows) > rows:
        console.print(Text(f"  and {len(table.rows) - rows} more rows"))


def print_answer(console: Console, answer: Answer, rows: int | None = ROWS) -> None:
    """Print an answer: its summary as words, then its tables."""
    console.print()
    console.print(Text(answer.question, style="bold"))
    columns = answer.summary.columns
    told = zip(columns, *answer.summary.rows, strict=True) if answer.summary.rows else ()
    words = [f"{title(column)}: {written(column, value)}" for column, value in told]
    if words:
        console.print(Text("; ".join(words)))
    for table in answer.tables.values():
        # One entry for each evaluation: programs read it.
        if table.name != "rationale" or rows is None:
            print_table(console, table, rows)


def print_findings(console: Console, findings: Iterable[Finding], assumptions: str) -> None:
    """Print what can be told from chance, and what the tests take for granted."""
    for finding in findings:
        mark = Text("! " if finding.claims else "- ", style="bold yellow" if finding.claims else "")
        console.print(mark + Text(finding.text, style=""))
    console.print(Text(assumptions, style="dim"))


def print_evidence(console: Console, evidence: Evidence, rows: int | None = ROWS) -> None:
    """Print the findings and the tables behind them."""
    print_findings(console, evidence.findings, evidence.assumptions)
    for table in evidence.tables.values():
        print_table(console, table, rows)


def print_comparison(console: Console, comparison: Comparison, rows: int | None = None) -> None:
    """Print two searches side by side."""
    console.print(Text(f"a: {comparison.name_a}\nb: {comparison.name_b}"))
    print_findings(console, comparison.findings, comparison.assumptions)
    print_table(console, comparison.table, rows)


def print_report(console: Console, report: Report, rows: int | None = ROWS) -> None:
    """Print everything: warnings, evidence in words, then all nine answers."""
    snapshot = report.snapshot
    pools = ", ".join(
        f"{pool.name} below {pool.is_correlation_threshold:g}" for pool in snapshot.pools
    )
    console.print(Text(f"{snapshot.name}: {len(snapshot.evaluations)} evaluations", style="bold"))
    console.print(Text(f"Signal pools, by correlation: {pools}"))
    for caveat in report.caveats:
        console.print(Text(f"Warning: {caveat.text}", style="yellow"))
    console.print()
    console.print(Text("What can be told from chance", style="bold"))
    print_findings(console, report.evidence.findings, report.evidence.assumptions)
    for answer in report.answers.values():
        print_answer(console, answer, rows)
