"""What a candidate would have earned: from its value to positions, profit and statistics."""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from demo import rolling
from demo.prices import Matrix, Prices

Series = NDArray[np.float64]

DAYS_PER_YEAR = 252
COST = 0.0005  # of the amount traded


@dataclass(frozen=True)
class Performance:
    """Daily results over some days, as shares of the capital."""

    gross: Series
    net: Series
    traded: Series

    def column_stats(self) -> dict[str, float]:
        """Return sharpe, returns and drawdown, before and after costs, by profit column."""
        columns = {"gross_returns": self.gross, "net_returns": self.net}
        return {
            f"{column}_{name}": statistic(profit)
            for column, profit in columns.items()
            for name, statistic in _STATISTICS.items()
        }


def sharpe(profit: Series) -> float:
    """Mean over standard deviation of the daily profit, per year."""
    deviation = float(profit.std())
    return (
        float(profit.mean()) / deviation * DAYS_PER_YEAR**0.5 if deviation > rolling.TINY else 0.0
    )


def returns(profit: Series) -> float:
    """Mean profit per year."""
    return float(profit.mean()) * DAYS_PER_YEAR


def drawdown(profit: Series) -> float:
    """Deepest fall of the summed profit below its earlier peak; not negative."""
    wealth = np.cumsum(profit)
    return float((np.maximum.accumulate(np.maximum(wealth, 0.0)) - wealth).max())


_STATISTICS = {"sharpe": sharpe, "returns": returns, "drawdown": drawdown}


def signal_positions(value: Matrix) -> Matrix:
    """Positions of a signal: as much bought as sold, one unit of capital in all."""
    centred = value - value.mean(axis=1, keepdims=True)
    return rolling.ratio(centred, _gross(centred))


def strategy_positions(value: Matrix, prices: Prices) -> Matrix:
    """Positions of a strategy: with the direction of the value, less where it is stormy."""
    daily = rolling.delta(np.log(prices.close), 1)
    calm = rolling.ratio(np.full_like(daily, 0.01), rolling.deviation(daily, 60))
    sized = np.clip(rolling.zscore(value, 250), -2.0, 2.0) * calm
    return rolling.ratio(sized, np.maximum(_gross(sized), 1.0))


def hold(positions: Matrix, days: int) -> Matrix:
    """Positions that are only changed every `days` days."""
    return positions[np.arange(len(positions)) // days * days]


def trade(positions: Matrix, prices: Prices, days: slice) -> Performance:
    """Return the results of holding each day's positions over the day after it.

    Positions are known at the close of their day; `days` are the days of the results.
    """
    daily = prices.close[days] / prices.close[days.start - 1 : days.stop - 1] - 1.0
    held = positions[days.start - 1 : days.stop - 1]
    before = positions[days.start - 2 : days.stop - 2]
    gross = (held * daily).sum(axis=1)
    traded = np.abs(held - before).sum(axis=1)
    return Performance(gross, gross - COST * traded, traded)


def mutual_information(positions: Matrix, prices: Prices, days: slice) -> float:
    """Return what positions tell about the next day's profit, in nats, by thirds of each."""
    daily = prices.close[days] / prices.close[days.start - 1 : days.stop - 1] - 1.0
    held = positions[days.start - 1 : days.stop - 1]
    joint = np.bincount(_thirds(held) * 3 + _thirds(daily), minlength=9).reshape(3, 3)
    share = joint / joint.sum()
    expected = share.sum(axis=1, keepdims=True) * share.sum(axis=0, keepdims=True)
    seen = share > 0.0
    return float((share[seen] * np.log(share[seen] / expected[seen])).sum())


def _thirds(x: Matrix) -> NDArray[np.int64]:
    flat = x.ravel()
    return np.searchsorted(np.quantile(flat, (1 / 3, 2 / 3)), flat).astype(np.int64)


def _gross(positions: Matrix) -> Matrix:
    return np.broadcast_to(np.abs(positions).sum(axis=1, keepdims=True), positions.shape)
