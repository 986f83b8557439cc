"""Counts the generated cases that a run has compared, and says so at its end."""

from __future__ import annotations

import os
from collections.abc import Callable

import pytest

CASES = int(os.environ.get("DIFFERENTIAL_CASES", "6000"))
"""Generated cases of one run, over all kinds."""

FIRST_SEED = int(os.environ.get("DIFFERENTIAL_SEED", "0"))

compared: dict[str, int] = {}


@pytest.fixture
def count_cases() -> Callable[[str, int], None]:
    """Adds so many compared cases under a heading of the closing summary."""

    def add(heading: str, cases: int = 1) -> None:
        compared[heading] = compared.get(heading, 0) + cases

    return add


@pytest.fixture(scope="session")
def case_total() -> int:
    """How many generated cases this run shall compare (`DIFFERENTIAL_CASES`)."""
    return CASES


@pytest.fixture(scope="session")
def first_seed() -> int:
    """The first seed of every kind (`DIFFERENTIAL_SEED`)."""
    return FIRST_SEED


def pytest_terminal_summary(terminalreporter: pytest.TerminalReporter) -> None:
    """Print the number of compared cases by heading."""
    if not compared:
        return
    terminalreporter.section("differential cases")
    for heading, cases in compared.items():
        terminalreporter.write_line(f"{cases:8} {heading}")
    terminalreporter.write_line(f"{sum(compared.values()):8} compared with the model in all")
