"""Results in IPython: small tables, in a real shell's formatters, and classes left alone."""

from __future__ import annotations

import json
from collections.abc import Iterator
from typing import Any

import pytest
from IPython.core.interactiveshell import InteractiveShell

from kestrune_search_report import QUESTIONS, Questions, Snapshot, collect
from support.searches import POOLS, records
from support.trackers import ListTracker


@pytest.fixture
def shell() -> Iterator[Any]:
    made = InteractiveShell.instance()
    made.run_line_magic("load_ext", "kestrune_search_report")
    yield made
    made.run_line_magic("unload_ext", "kestrune_search_report")
    InteractiveShell.clear_instance()


def shown(shell: Any, value: Any) -> dict[str, str]:
    data, _ = shell.display_formatter.format(value)
    return dict(data)


def test_a_notebook_of_all_nine_is_small(shell: Any) -> None:
    tracker = ListTracker(records(6000))
    try:
        snapshot = Snapshot.of(tracker, pools=POOLS)
    finally:
        tracker.close()
    cells = [shown(shell, getattr(snapshot.engine, question)()) for question in QUESTIONS]
    assert len(json.dumps(cells)) < 200_000
    tables = [cell["text/html"] for cell in cells if "text/html" in cell]
    assert len(tables) == 6
    assert all("<table>" in text for text in tables)
    assert len(repr(snapshot.engine.get_yield_analysis())) > 2_000_000


def test_answers_and_reports_are_shown_too(shell: Any, snapshot: Snapshot) -> None:
    report = collect(snapshot, min_sample_size=3)
    for value in (
        report,
        report.evidence,
        report.answers["get_search_stats"],
        report.answers["get_available_eras"].table,
    ):
        found = shown(shell, value)
        assert "<table>" in found["text/html"]
        assert "2011" in found["text/plain"] or "groups" in found["text/plain"]
    assert len(json.dumps(shown(shell, report))) < 200_000


def test_names_are_escaped(shell: Any) -> None:
    rows = [{**row, "era_id": "<b>&"} for row in records(20)]
    answer = Questions(Snapshot.from_records(rows)).get_available_eras()
    assert "&lt;b&gt;&amp;" in shown(shell, answer)["text/html"]


def test_unloading_gives_the_old_texts_back(snapshot: Snapshot) -> None:
    made = InteractiveShell.instance()
    result = snapshot.engine.get_search_velocity()
    before = shown(made, result)
    made.run_line_magic("load_ext", "kestrune_search_report")
    assert shown(made, result) != before
    made.run_line_magic("unload_ext", "kestrune_search_report")
    assert shown(made, result) == before
    InteractiveShell.clear_instance()


def test_texts_of_snapshots_and_tables_are_short(snapshot: Snapshot) -> None:
    assert repr(snapshot) == "<Snapshot made up: 300 evaluations>"
    answer = Questions(snapshot).get_yield_analysis()
    assert len(repr(answer)) < 600
