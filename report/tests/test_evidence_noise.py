"""How often evidence claims something of noise, and how often it finds what is planted."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import pytest
from numpy.typing import NDArray

from kestrune_search_report.evidence.chance import (
    LEVEL,
    Stratum,
    against_rest,
    corrected,
    held_still,
)
from kestrune_search_report.evidence.luck import luckiest

SEEDS = range(200)
COUNT = 4000
BASE = 0.2
Flags = NDArray[np.bool_]


@dataclass
class Parts:
    """Parts of a search that are tested against the rest: how many there are, how many passed."""

    totals: list[int]
    passes: list[int]


@dataclass
class Search:
    """Counts of all that a report looks at, by claim, and what else it looks at."""

    parts: dict[str, Parts]
    strata: list[Stratum]
    sharpes: list[float]
    passed: int


def counted(uses: Flags, passed: Flags) -> Parts:
    """Return the counts of parts, each a row of `uses`."""
    return Parts(uses.sum(axis=1).tolist(), (uses & passed).sum(axis=1).tolist())


def pairs_of(functions: Flags, passed: Flags) -> Parts:
    """Return the counts of the 400 most frequent pairs of functions."""
    used = functions.astype(float)
    totals, passes = used @ used.T, (used * passed) @ used.T
    above = np.triu_indices(len(used), 1)
    frequent = np.argsort(-totals[above], kind="stable")[:400]
    return Parts(
        totals[above][frequent].astype(int).tolist(), passes[above][frequent].astype(int).tolist()
    )


def search(seed: int) -> Search:
    """Return 4000 evaluations of pure noise: 30 functions of 10 families, 4 eras, 120 groups."""
    chance = np.random.default_rng(seed)
    passed = chance.random(COUNT) < BASE
    functions = chance.random((30, COUNT)) < 0.22
    kinds = chance.geometric(0.05, COUNT)
    groups = kinds == np.arange(1, 120)[:, None]
    depths = chance.integers(1, 6, COUNT) == np.arange(1, 6)[:, None]
    era, recent = chance.integers(0, 4, COUNT), chance.random(COUNT) < 0.1
    strata = []
    for inside in era == np.arange(4)[:, None]:
        part = inside & recent
        counts = (inside, inside & passed, part, part & passed)
        strata.append(Stratum(*(int(one.sum()) for one in counts)))
    return Search(
        {
            "pairs": pairs_of(functions, passed),
            "families": counted(functions.reshape(10, 3, COUNT).any(axis=1), passed),
            "groups": counted(groups[groups.sum(axis=1) >= 20], passed),
            "depths": counted(depths, passed),
        },
        strata,
        chance.standard_normal(COUNT).tolist(),
        int(passed.sum()),
    )


def told_apart(claim: str, parts: Parts, passed: int) -> bool:
    """Whether a report tells any of the parts apart from the rest.

    Only those that are two standard deviations off are tested exactly, for time's sake: the
    others cannot be told apart.
    """
    passes, totals = np.array(parts.passes), np.array(parts.totals)
    share = passed / COUNT
    variance = totals * share * (1 - share) * (1 - totals / COUNT)
    off = (passes - totals * share) ** 2 > 4 * variance
    p_values = np.ones(len(totals))
    p_values[off] = against_rest(passes[off], totals[off], passed, COUNT)
    return any(q <= LEVEL for q in corrected(p_values.tolist(), claim))


def claims(made: Search) -> bool:
    """Whether a report on the search claims anything at all."""
    luck = luckiest(made.sharpes)
    assert luck is not None
    return (
        any(told_apart(claim, parts, made.passed) for claim, parts in made.parts.items())
        or corrected([held_still(made.strata)], "trend")[0] <= LEVEL
        or corrected([luck.p_value], "luck")[0] <= LEVEL
    )


def test_noise_is_hardly_ever_called_a_finding() -> None:
    wrong = [seed for seed in SEEDS if claims(search(seed))]
    assert len(wrong) <= 0.05 * len(SEEDS), wrong


@pytest.mark.parametrize(("claim", "looks"), [("pairs", 400), ("families", 10), ("groups", 60)])
def test_what_is_planted_is_found(claim: str, looks: int) -> None:
    found = 0
    for seed in SEEDS:
        chance = np.random.default_rng(seed)
        # 200 of 4000 pass twice as often; the others looked at show nothing at all.
        planted = int(chance.binomial(200, 2 * BASE))
        passed = planted + int(chance.binomial(COUNT - 200, BASE))
        p_values = against_rest([planted], [200], passed, COUNT) + [1.0] * (looks - 1)
        found += corrected(p_values, claim)[0] <= LEVEL
    assert found >= 0.95 * len(SEEDS), claim
