"""What the luckiest of many tries shows that have no skill."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from importlib import import_module
from typing import Any


@dataclass(frozen=True)
class Luck:
    """The best of many Sharpe ratios beside what the luckiest of as many tries would show.

    All but `tries` and `p_value` have the unit of the Sharpe ratios. `centre` and `spread` are
    those of tries without skill, `expected` is what the luckiest of them shows in half of all
    such searches, `ceiling` what it stays below in 95 of 100.
    """

    tries: int
    best: float
    centre: float
    spread: float
    expected: float
    ceiling: float
    p_value: float
    """How likely the luckiest of as many tries without skill is as good as the best."""


def luckiest(sharpes: Sequence[float], years: float | None = None) -> Luck | None:
    """Return the luck among Sharpe ratios; None where fewer than 20 of them are finite.

    With `years`, over which each was measured, a try without skill has a normal Sharpe ratio
    around 0 with the spread 1 / sqrt(years). Without, the spread is the standard deviation of the
    ratios themselves, around their median but no lower than 0: skill that is in them, and tails
    longer than the normal ones, make luck look larger, not smaller. (The spread of their middle
    half would not see them, but of few ratios it is known too badly.)
    """
    import numpy as np

    stats: Any = import_module("scipy.stats")

    found = np.asarray([value for value in sharpes if math.isfinite(value)], dtype=float)
    if len(found) < 20:
        return None
    if years is not None:
        centre, spread = 0.0, 1 / math.sqrt(years)
    else:
        centre = max(0.0, float(np.median(found)))
        spread = float(found.std(ddof=1))
    if spread == 0:
        return None
    tries, best = len(found), float(found.max())
    null: Any = stats.norm(centre, spread)
    return Luck(
        tries=tries,
        best=best,
        centre=centre,
        spread=spread,
        expected=float(null.ppf(0.5 ** (1 / tries))),
        ceiling=float(null.ppf(0.95 ** (1 / tries))),
        p_value=-math.expm1(tries * float(null.logcdf(best))),
    )
