"""Pools of accepted candidates, and what a candidate has to show to get in."""

from dataclasses import dataclass, field

import numpy as np

from demo import rolling
from demo.candidates import Tree
from demo.performance import Series


@dataclass(frozen=True)
class Thresholds:
    """The least Sharpe ratio, and the most turnover and drawdown, of an accepted candidate."""

    sharpe: float
    turnover: float
    drawdown: float

    def failures(self, sharpe: float, turnover: float, drawdown: float) -> list[str]:
        """Return in words what is not good enough; nothing when all is."""
        return [
            text
            for failed, text in (
                (sharpe < self.sharpe, f"sharpe {sharpe:.2f} below {self.sharpe:.2f}"),
                (turnover > self.turnover, f"turnover {turnover:.2f} above {self.turnover:.2f}"),
                (drawdown > self.drawdown, f"drawdown {drawdown:.2f} above {self.drawdown:.2f}"),
            )
            if failed
        ]


# By evaluation type. A strategy takes a direction, so it may fall further than a signal.
THRESHOLDS = {
    "signal": Thresholds(sharpe=0.7, turnover=0.7, drawdown=0.30),
    "strategy": Thresholds(sharpe=0.8, turnover=0.7, drawdown=0.40),
}


@dataclass
class Pool:
    """The accepted candidates of one type in one era."""

    trees: list[Tree] = field(default_factory=list)
    _profits: list[Series] = field(default_factory=list)
    _later_profits: list[Series] = field(default_factory=list)

    def add(self, tree: Tree, profit: Series, later_profit: Series) -> None:
        """Take a member in, with its daily profit in the era and in the days after it."""
        self.trees.append(tree)
        self._profits.append(_unit(profit))
        self._later_profits.append(_unit(later_profit))

    def correlation(self, profit: Series) -> float:
        """Return the highest correlation of the profit to a member's; 0.0 with no members."""
        return _highest(self._profits, profit)

    def later_correlation(self, later_profit: Series) -> float:
        """Return the same over the days after the era."""
        return _highest(self._later_profits, later_profit)


def _unit(profit: Series) -> Series:
    centred = profit - profit.mean()
    length = float(np.sqrt((centred * centred).sum()))
    return centred / length if length > rolling.TINY else np.zeros_like(centred)


def _highest(members: list[Series], profit: Series) -> float:
    # One product after the other: the sums do not depend on how many members there are.
    unit = _unit(profit)
    return max((float((member * unit).sum()) for member in members), default=0.0)
