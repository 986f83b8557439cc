"""How well a share is known: Wilson's interval."""

from __future__ import annotations

from collections.abc import Sequence
from importlib import import_module
from typing import Any

LEVEL = 0.95


def wilson(
    passed: Sequence[int], total: Sequence[int], level: float = LEVEL
) -> tuple[list[float], list[float]]:
    """Return the lower and the upper ends of the intervals of passed / total; 0 and 1 over nothing.

    The figures of scipy's `binomtest(...).proportion_ci(level, "wilson")`, which takes a
    thousand times as long for each, since it tests as well.
    """
    import numpy as np

    special: Any = import_module("scipy.special")

    k: Any = np.asarray(passed, dtype=float)
    n: Any = np.asarray(total, dtype=float)
    known = n > 0
    n = np.where(known, n, 1.0)
    z: float = float(special.ndtri(0.5 + level / 2))
    share = np.where(known, k / n, 0.5)
    middle = (share + z * z / (2 * n)) / (1 + z * z / n)
    reach = z / (1 + z * z / n) * np.sqrt(share * (1 - share) / n + z * z / (4 * n * n))
    # At the ends the formula is exact, and its rounding is not.
    low = np.where(known & (k > 0), middle - reach, 0.0)
    high = np.where(known & (k < n), middle + reach, 1.0)
    return low.tolist(), high.tolist()
