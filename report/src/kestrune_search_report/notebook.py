"""Results as tables in IPython and Jupyter: `%load_ext kestrune_search_report`.

Formatters are registered for the module's result classes and this package's own; nothing is
added to the classes. A table shows its first 20 rows, and so does the plain text beside it: the
module's own texts can be megabytes.
"""

from __future__ import annotations

import io
from collections.abc import Callable
from html import escape
from typing import Any

import kestrune.search_analytics as search_analytics

from kestrune_search_report.answers import Answer, answer_of
from kestrune_search_report.evidence.gather import Evidence
from kestrune_search_report.layout import is_number, shown_columns, title, written
from kestrune_search_report.report import Report
from kestrune_search_report.table import Table

ROWS = 20

_QUESTION_OF: dict[type[Any], str] = {
    search_analytics.SearchStatsResult: "get_search_stats",
    search_analytics.SuggestionsResult: "get_suggestions",
    search_analytics.SearchPatternsResult: "get_search_patterns",
    search_analytics.SearchVelocityResult: "get_search_velocity",
    search_analytics.YieldAnalysisResult: "get_yield_analysis",
    search_analytics.CorrelationPatternsResult: "get_correlation_patterns",
}


def load_ipython_extension(shell: Any) -> None:
    """Register the formatters; what `%load_ext` calls."""
    for kind in (*_QUESTION_OF, Answer, Table, Evidence, Report):
        shell.display_formatter.formatters["text/html"].for_type(kind, html)
        shell.display_formatter.formatters["text/plain"].for_type(kind, _print_plain)


def unload_ipython_extension(shell: Any) -> None:
    """Take the formatters back; what `%unload_ext` calls."""
    for kind in (*_QUESTION_OF, Answer, Table, Evidence, Report):
        shell.display_formatter.formatters["text/html"].pop(kind, None)
        shell.display_formatter.formatters["text/plain"].pop(kind, None)


def html(value: Any) -> str:
    """Return a result, an answer, a table, evidence or a report as HTML."""
    if isinstance(value, Table):
        return _table(value)
    if isinstance(value, Evidence):
        items = "".join(f"<li>{escape(finding.text)}</li>" for finding in value.findings)
        figures = "".join(_table(table) for table in value.tables.values())
        return f"<ul>{items}</ul><p><em>{escape(value.assumptions)}</em></p>{figures}"
    if isinstance(value, Report):
        warned = "".join(f"<p>Warning: {escape(one.text)}</p>" for one in value.caveats)
        answers = "".join(html(answer) for answer in value.answers.values())
        return warned + html(value.evidence) + answers
    answer = value if isinstance(value, Answer) else answer_of(_QUESTION_OF[type(value)], value)
    told = zip(answer.summary.columns, *answer.summary.rows, strict=True)
    words = [f"{title(one)}: {written(one, cell)}" for one, cell in told] if answer.figures else []
    tables = [table for table in answer.tables.values() if table.name != "rationale"]
    return (
        f"<p><b>{answer.question}</b></p><p>{escape('; '.join(words))}</p>"
        f"{''.join(_table(table) for table in tables)}"
    )


def _table(table: Table) -> str:
    columns = shown_columns(table)
    places = [table.columns.index(column) for column in columns]
    head = "".join(
        f'<th title="{escape(column.meaning)}">{escape(title(column))}</th>' for column in columns
    )
    lines: list[str] = []
    for row in table.rows[:ROWS]:
        cells = [
            f"<td{' align=right' if is_number(column) else ''}>"
            f"{escape(written(column, row[place]))}</td>"
            for column, place in zip(columns, places, strict=True)
        ]
        lines.append(f"<tr>{''.join(cells)}</tr>")
    more = len(table.rows) - ROWS
    note = f"<p>and {more} more rows</p>" if more > 0 else ""
    caption = f"<caption>{escape(table.name)}</caption>"
    return (
        f"<table>{caption}<thead><tr>{head}</tr></thead><tbody>{''.join(lines)}</tbody></table>"
        f"{note}"
    )


def _print_plain(value: Any, printer: Any, _: bool) -> None:
    printer.text(plain(value))


def plain(value: Any) -> str:
    """Return the same as a text of 100 columns."""
    # Only a notebook without HTML shows it, and the terminal's tables are heavy to import.
    from rich.console import Console

    from kestrune_search_report import terminal

    text = io.StringIO()
    console = Console(file=text, width=100, no_color=True, highlight=False)
    printers: dict[type[Any], Callable[..., None]] = {
        Table: terminal.print_table,
        Evidence: terminal.print_evidence,
        Report: terminal.print_report,
        Answer: terminal.print_answer,
    }
    if type(value) in _QUESTION_OF:
        value = answer_of(_QUESTION_OF[type(value)], value)
    printers[type(value)](console, value, ROWS)
    return text.getvalue().strip("\n")
