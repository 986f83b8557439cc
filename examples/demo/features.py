"""The features that candidates are made of: what can be seen of an instrument each day."""

from collections.abc import Callable
from dataclasses import dataclass

import numpy as np

from demo import rolling
from demo.prices import Matrix, Prices


@dataclass(frozen=True)
class Feature:
    """A named matrix of the prices (days x instruments), with its place in the catalogue."""

    name: str
    family: str
    subfamily: str
    compute: Callable[[Prices], Matrix]

    @property
    def metadata(self) -> dict[str, str]:
        """The catalogue entry, in the form that evaluation records carry."""
        return {
            "feature_name": self.name,
            "feature_family": self.family,
            "feature_subfamily": self.subfamily,
        }


def _daily_return(prices: Prices) -> Matrix:
    return rolling.delta(np.log(prices.close), 1)


def _overnight_return(prices: Prices) -> Matrix:
    return np.log(prices.open / rolling.lag(prices.close, 1))


def _true_range(prices: Prices) -> Matrix:
    before = rolling.lag(prices.close, 1)
    return (np.maximum(prices.high, before) - np.minimum(prices.low, before)) / prices.close


def _close_in_range(prices: Prices) -> Matrix:
    return rolling.ratio(2.0 * prices.close - prices.high - prices.low, prices.high - prices.low)


FEATURES = (
    Feature("log_close", "price", "level", lambda p: np.log(p.close)),
    Feature("log_typical", "price", "level", lambda p: np.log((p.high + p.low + p.close) / 3.0)),
    Feature("daily_return", "return", "whole_day", _daily_return),
    Feature("absolute_return", "return", "whole_day", lambda p: np.abs(_daily_return(p))),
    Feature("overnight_return", "return", "part_of_day", _overnight_return),
    Feature("intraday_return", "return", "part_of_day", lambda p: np.log(p.close / p.open)),
    Feature("log_volume", "volume", "level", lambda p: np.log(p.volume)),
    Feature("log_turnover", "volume", "level", lambda p: np.log(p.volume * p.close)),
    Feature("volume_change", "volume", "change", lambda p: rolling.delta(np.log(p.volume), 1)),
    Feature("true_range", "range", "width", _true_range),
    Feature("high_low_range", "range", "width", lambda p: np.log(p.high / p.low)),
    Feature("close_in_range", "range", "place", _close_in_range),
)
