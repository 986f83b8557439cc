"""Statistics over the last days, for every day of a matrix (days x instruments).

No result looks ahead. The first days, which have fewer than `days` behind them, use those
that there are, so that no value is missing.
"""

import numpy as np
from numpy.lib.stride_tricks import sliding_window_view

from demo.prices import Matrix

# Below this a deviation is taken for rounding, and what would be divided by it for zero.
TINY = 1e-12


def mean(x: Matrix, days: int) -> Matrix:
    """Mean of the last `days` rows."""
    sums = np.cumsum(x, axis=0)
    sums[days:] -= sums[:-days].copy()
    return sums / np.minimum(np.arange(1, len(x) + 1), days)[:, None]


def deviation(x: Matrix, days: int) -> Matrix:
    """Standard deviation of the last `days` rows."""
    # Shifted by the first row, so that squares of large levels do not cancel.
    shifted = x - x[0]
    square = mean(shifted * shifted, days) - mean(shifted, days) ** 2
    return np.sqrt(np.maximum(square, 0.0))


def zscore(x: Matrix, days: int) -> Matrix:
    """Distance from the mean of the last `days` rows, in their standard deviations."""
    return ratio(x - mean(x, days), deviation(x, days))


def ratio(x: Matrix, y: Matrix) -> Matrix:
    """x / y, and zero where y is too small to divide by."""
    usable = np.abs(y) > TINY
    return np.where(usable, x / np.where(usable, y, 1.0), 0.0)


def lag(x: Matrix, days: int) -> Matrix:
    """The row of `days` ago; the first rows repeat the first."""
    return np.concatenate([np.repeat(x[:1], days, axis=0), x[:-days]])


def delta(x: Matrix, days: int) -> Matrix:
    """Change over `days` rows."""
    return x - lag(x, days)


def exponential_mean(x: Matrix, days: int) -> Matrix:
    """Mean with weights that halve every `days` rows, cut after six halvings."""
    weights = 0.5 ** (np.arange(6 * days) / days)
    sums = np.zeros_like(x)
    for age, weight in enumerate(weights[: len(x)]):
        sums[age:] += weight * x[: len(x) - age]
    totals = np.cumsum(weights)[np.minimum(np.arange(len(x)), len(weights) - 1)]
    return sums / totals[:, None]


def _windows(x: Matrix, days: int) -> np.ndarray:
    # Transposed, so that the days of a window lie side by side in memory.
    padded = np.ascontiguousarray(np.concatenate([np.repeat(x[:1], days - 1, axis=0), x]).T)
    return sliding_window_view(padded, days, axis=1)


def channel(x: Matrix, days: int) -> Matrix:
    """Place between the lowest (-1) and the highest (1) of the last `days` rows."""
    windows = _windows(x, days)
    low, high = windows.min(axis=2).T, windows.max(axis=2).T
    return ratio(2.0 * x - high - low, high - low)


def rank(x: Matrix, days: int) -> Matrix:
    """Share of the last `days` rows below today's value, from -0.5 to 0.5."""
    below = (_windows(x, days) < x.T[:, :, None]).sum(axis=2).T
    return below / (days - 1) - 0.5


def median(x: Matrix, days: int) -> Matrix:
    """Median of the last `days` rows."""
    return np.median(_windows(x, days), axis=2).T


def correlation(x: Matrix, y: Matrix, days: int) -> Matrix:
    """Correlation of x and y over the last `days` rows."""
    covariance = mean(x * y, days) - mean(x, days) * mean(y, days)
    return np.clip(ratio(covariance, deviation(x, days) * deviation(y, days)), -1.0, 1.0)
