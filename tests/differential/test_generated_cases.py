"""The module answers generated calls exactly as the plain-Python model does."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.cases import KINDS, compare_drawn, compare_seed, shares, subject
from differential.sources import Drawn
from hypothesis import HealthCheck, Phase, given, settings
from hypothesis import strategies as st
from support.children import run_child

Count = Callable[[str, int], None]

SHOWN = 3

# The first seeds of the process decide nothing but hash values: 0 switches randomisation off.
HASH_SEEDS = ("0", "1", "2", "7", "4242")


@pytest.mark.parametrize("kind", list(KINDS))
def test_seeded_cases_agree(
    kind: str, case_total: int, first_seed: int, count_cases: Count
) -> None:
    module = subject()
    cases = shares(case_total)[kind]
    differences = []
    for seed in range(first_seed, first_seed + cases):
        difference = compare_seed(kind, seed, module)
        if difference is not None:
            differences.append(str(difference))
    count_cases("seeded cases", cases)
    assert not differences, "\n".join(
        [f"{len(differences)} of {cases} cases differ; the first:", *differences[:SHOWN]]
    )


@pytest.mark.parametrize("kind", list(KINDS))
def test_drawn_cases_agree(kind: str, case_total: int, count_cases: Count) -> None:
    """The same cases drawn by hypothesis, which shrinks what it finds."""
    module = subject()

    @settings(
        max_examples=max(8, min(400, case_total // 500)),
        deadline=None,
        database=None,
        derandomize=True,
        phases=(Phase.generate, Phase.shrink),
        suppress_health_check=list(HealthCheck),
    )
    @given(st.data())
    def agree(data: Any) -> None:
        difference = compare_drawn(kind, Drawn(data), module)
        count_cases("drawn cases", 1)
        assert difference is None, str(difference)

    agree()


@pytest.mark.parametrize("hash_seed", HASH_SEEDS)
def test_cases_agree_under_hash_seed(
    hash_seed: str, case_total: int, first_seed: int, count_cases: Count
) -> None:
    """Sets iterate in another order under each seed; ties must follow the model's."""
    cases = max(500, case_total // 20)
    outcome = run_child(
        f"""
        from differential.run_cases import run
        from differential.cases import KINDS
        raise SystemExit(1 if run({cases}, {first_seed}, list(KINDS)) else 0)
        """,
        check=False,
        timeout=600.0,
        PYTHONHASHSEED=hash_seed,
    )
    assert outcome.returncode == 0, outcome.stdout[-4000:] + outcome.stderr[-2000:]
    count_cases("cases under five hash seeds", cases)
