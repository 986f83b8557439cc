"""What a run of the tests says of itself: its hash seed, and how many generated cases it compared.

Several processes may share a run. Only the one that prints has the whole of it, as reports.
"""

from __future__ import annotations

import os
from collections import Counter
from collections.abc import Callable

import pytest

_COUNTED = "compared: "


def _hash_seed() -> str:
    return os.environ.get("PYTHONHASHSEED", "random")


def pytest_report_header() -> str:
    """Say how strings are hashed: in what order sets iterate."""
    return f"hash seed: PYTHONHASHSEED={_hash_seed()}"


@pytest.fixture
def count_cases(record_property: Callable[[str, object], None]) -> Callable[[str, int], None]:
    """Adds so many compared cases under a heading of the closing summary."""
    return lambda heading, cases: record_property(f"{_COUNTED}{heading}", cases)


def pytest_terminal_summary(terminalreporter: pytest.TerminalReporter) -> None:
    """Print the number of compared cases by heading; if tests failed, the hash seed again."""
    stats = terminalreporter.stats
    compared: Counter[str] = Counter()
    for report in (*stats.get("passed", ()), *stats.get("failed", ())):
        for name, cases in report.user_properties:
            if name.startswith(_COUNTED):
                compared[name.removeprefix(_COUNTED)] += cases
    if compared:
        terminalreporter.section("differential cases")
        for heading, cases in compared.items():
            terminalreporter.write_line(f"{cases:8} {heading}")
        terminalreporter.write_line(f"{compared.total():8} compared with the model in all")
    if stats.get("failed") or stats.get("error"):
        terminalreporter.section("hash seed")
        terminalreporter.write_line(f"These tests ran under PYTHONHASHSEED={_hash_seed()}")
