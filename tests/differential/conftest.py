"""How many generated cases a run compares, and which."""

from __future__ import annotations

import os

import pytest

CASES = int(os.environ.get("DIFFERENTIAL_CASES", "6000"))
"""Generated cases of one run, over all kinds."""

FIRST_SEED = int(os.environ.get("DIFFERENTIAL_SEED", "0"))


@pytest.fixture(scope="session")
def case_total() -> int:
    """How many generated cases this run shall compare (`DIFFERENTIAL_CASES`)."""
    return CASES


@pytest.fixture(scope="session")
def first_seed() -> int:
    """The first seed of every kind (`DIFFERENTIAL_SEED`)."""
    return FIRST_SEED
