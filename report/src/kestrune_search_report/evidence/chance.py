"""What chance alone does to shares: exact tests with all margins held, and many looks at once."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from importlib import import_module
from typing import Any

# Of searches that are nothing but noise, so many make a report claim anything at all, at most.
LEVEL = 0.025
# The claims that a report can make, and the part of LEVEL that each may spend: most goes to those
# that look at hundreds of parts and have little left for each.
CLAIMS = {
    "pairs": 0.4,
    "groups": 0.25,
    "families": 0.2,
    "depths": 0.05,
    "trend": 0.05,
    "luck": 0.05,
}


@dataclass(frozen=True)
class Stratum:
    """Evaluations of one kind: how many there are and passed, and the same of a part of them."""

    total: int
    passed: int
    part_total: int
    part_passed: int


def against_rest(
    passed: Sequence[int], total: Sequence[int], all_passed: int, all_total: int
) -> list[float]:
    """Return how likely chance alone makes each part differ from the rest by as much or more.

    Fisher's exact test, both sides: twice the smaller of the two one-sided probabilities.
    """
    import numpy as np

    hypergeom: Any = import_module("scipy.stats").hypergeom
    k, n = np.asarray(passed), np.asarray(total)
    below = hypergeom.cdf(k, all_total, all_passed, n)
    above = hypergeom.sf(k - 1, all_total, all_passed, n)
    doubled: Any = np.minimum(1.0, 2 * np.minimum(below, above))
    return [float(value) for value in doubled]


def held_still(strata: Sequence[Stratum]) -> float:
    """Return how likely chance alone makes a part pass so much more or less often, mix held still.

    Within each stratum the passes are dealt out at random over part and rest. The exact
    distribution of the part's passes in all, both sides; one stratum is `against_rest`.
    """
    import numpy as np

    hypergeom: Any = import_module("scipy.stats").hypergeom
    chances: Any = np.ones(1)
    observed, least = 0, 0
    for one in strata:
        low = max(0, one.part_total + one.passed - one.total)
        high = min(one.part_total, one.passed)
        counts = np.arange(low, high + 1)
        each = hypergeom.pmf(counts, one.total, one.passed, one.part_total)
        chances = np.convolve(chances, each)
        observed += one.part_passed
        least += low
    place = observed - least
    below, above = float(chances[: place + 1].sum()), float(chances[place:].sum())
    return min(1.0, 2 * min(below, above))


def corrected(p_values: Sequence[float], claim: str | None = None) -> list[float]:
    """Return p-values corrected for how many there are and for the other claims of a report.

    Benjamini and Hochberg's, as scipy has it, over the claim's part of LEVEL; at most 1. What is
    told apart has one of at most LEVEL. None stands for a claim that is made alone.
    """
    if not p_values:
        return []
    stats: Any = import_module("scipy.stats")
    part = 1.0 if claim is None else CLAIMS[claim]
    return [min(1.0, float(value) / part) for value in stats.false_discovery_control(p_values)]
