"""Whatever prints or walks tracebacks takes the functions in them for ordinary ones."""

from __future__ import annotations

import inspect
import io
import logging
import pdb
import traceback
from pathlib import Path
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.outcome import traceback_entries
from support.parts import pool

ROOT = Path(__file__).resolve().parents[2]

TOOLS = """
import logging, pdb, sys, traceback
from types import SimpleNamespace
import kestrune.search_analytics as search_analytics

def broken(**_):
    raise ValueError("broken")

tracker = SimpleNamespace(get_evaluation_history=broken)
engine = search_analytics.SearchAnalytics(
    tracker, [SimpleNamespace(name="a", is_correlation_threshold=0.5)]
)
"""


def test_an_error_that_nobody_caught_is_printed_with_its_functions(tmp_path):
    source = f"{TOOLS}\nimport os; os.chdir({str(tmp_path)!r})\nengine.get_search_patterns()"
    outcome = run_child(source, check=False)
    assert outcome.returncode == 1
    assert outcome.stderr.count("  File ") == 4
    for name, file in (
        ("get_search_patterns", "analytics/search_patterns.cpp"),
        ("_fetch_evaluations", "engine/fetch.cpp"),
    ):
        assert f'File "search_analytics/{file}", line ' in outcome.stderr
        assert f", in {name}\n" in outcome.stderr


def test_the_line_itself_is_printed_where_the_sources_are():
    source = f"{TOOLS}\nimport os; os.chdir({str(ROOT)!r})\nengine.get_search_patterns()"
    assert '    "_fetch_evaluations",\n' in run_child(source, check=False).stderr


def hostile(**_):
    raise LookupError


@pytest.fixture
def error():
    """What a tracker raises that an operation asks."""
    tracker = SimpleNamespace(get_evaluation_history=hostile)
    engine = search_analytics.SearchAnalytics(tracker, [pool()])
    with pytest.raises(LookupError) as caught:
        engine.get_search_patterns()
    return caught.value


def test_tools_that_print_tracebacks_name_the_functions(error):
    printed = "".join(traceback.format_exception(error))
    summary = traceback.TracebackException.from_exception(error, capture_locals=True)
    logged = io.StringIO()
    handler = logging.StreamHandler(logged)
    handler.handle(
        logging.LogRecord(
            "a", 40, "b", 1, "what", (), (type(error), error, error.__traceback__), None
        )
    )
    for text in (printed, "".join(summary.format()), logged.getvalue()):
        assert ", in get_search_patterns\n" in text
        assert ", in _fetch_evaluations\n" in text


def test_inspect_reads_the_frames(error, monkeypatch):
    # It remembers files by the names of modules. From 3.15 on it does not expect of a package that
    # it has none, where another of that name had one.
    monkeypatch.setattr(inspect, "_filesbymodname", {})
    found = [info.function for info in inspect.getinnerframes(error.__traceback__, context=3)]
    assert found[-3:] == ["get_search_patterns", "_fetch_evaluations", "hostile"]
    frame = traceback_entries(error)[-2].tb_frame
    assert frame.f_globals is vars(search_analytics)
    assert inspect.getargvalues(frame).args == []


def test_a_debugger_walks_the_frames(error):
    said = io.StringIO()
    commands = io.StringIO("where\nup\np __name__\nlocals()\nlist\nup\ndown\nq\n")
    debugger = pdb.Pdb(stdin=commands, stdout=said, nosigint=True, readrc=False)
    debugger.use_rawinput = False
    debugger.reset()
    debugger.interaction(None, error.__traceback__)
    assert "get_search_patterns()" in said.getvalue()
    assert "'kestrune.search_analytics'" in said.getvalue()


def test_frames_can_be_cleared(error):
    traceback.clear_frames(error.__traceback__)
    names = [entry.tb_frame.f_code.co_name for entry in traceback_entries(error)]
    assert names[-3:] == ["get_search_patterns", "_fetch_evaluations", "hostile"]


@pytest.mark.parametrize("style", ["long", "short", "line", "native"])
@pytest.mark.parametrize("folder", [ROOT, ROOT / "tests"], ids=["with sources", "without"])
def test_reports_of_tests_name_the_functions(error, style, folder, monkeypatch):
    monkeypatch.chdir(folder)
    report = str(pytest.ExceptionInfo.from_exception(error).getrepr(style=style, showlocals=True))
    assert ("fetch.cpp" in report) is (style != "line")
    assert "LookupError" in report
