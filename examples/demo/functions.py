"""The library of functions that a search composes candidates from."""

from collections.abc import Callable
from dataclasses import dataclass

import numpy as np

from demo import rolling
from demo.prices import Matrix


@dataclass(frozen=True)
class Function:
    """A function of one or two matrices (days x instruments) that gives a third."""

    name: str
    family: str
    subfamily: str
    apply: Callable[..., Matrix]
    arity: int = 1

    @property
    def metadata(self) -> dict[str, str]:
        """The catalogue entry, in the form that evaluation records carry."""
        return {
            "function_name": self.name,
            "function_family": self.family,
            "function_subfamily": self.subfamily,
        }


def _cross_demean(x: Matrix) -> Matrix:
    return x - x.mean(axis=1, keepdims=True)


def _cross_zscore(x: Matrix) -> Matrix:
    return rolling.ratio(_cross_demean(x), np.broadcast_to(x.std(axis=1, keepdims=True), x.shape))


def _cross_rank(x: Matrix) -> Matrix:
    below = (x[:, :, None] > x[:, None, :]).sum(axis=2)
    return below / (x.shape[1] - 1) - 0.5


def _downside(x: Matrix) -> Matrix:
    return np.sqrt(rolling.mean(np.minimum(rolling.delta(x, 1), 0.0) ** 2, 20))


def _standard(x: Matrix) -> Matrix:
    # What is to be combined has to be of like size first.
    return rolling.zscore(x, 60)


# Returns of a timed value: its direction, weighted by where the rule stands among its last days.
TIMED = Function(
    "timed_by", "timing", "weight", lambda x, y: _standard(x) * (rolling.rank(y, 60) + 0.5), 2
)

FUNCTIONS = (
    Function("momentum_20", "trend", "momentum", lambda x: rolling.delta(x, 20)),
    Function("momentum_120", "trend", "momentum", lambda x: rolling.delta(x, 120)),
    Function("average_gap_20", "trend", "moving_average", lambda x: x - rolling.mean(x, 20)),
    Function(
        "average_cross_10_50",
        "trend",
        "moving_average",
        lambda x: rolling.mean(x, 10) - rolling.mean(x, 50),
    ),
    Function("breakout_60", "trend", "channel", lambda x: rolling.channel(x, 60)),
    Function("reversal_zscore_10", "mean_reversion", "zscore", lambda x: -rolling.zscore(x, 10)),
    Function("reversal_zscore_40", "mean_reversion", "zscore", lambda x: -rolling.zscore(x, 40)),
    Function("reversal_5", "mean_reversion", "change", lambda x: -rolling.delta(x, 5)),
    Function("channel_fade_20", "mean_reversion", "channel", lambda x: -rolling.channel(x, 20)),
    Function("deviation_20", "volatility", "level", lambda x: rolling.deviation(x, 20)),
    Function("downside_20", "volatility", "level", _downside),
    Function(
        "deviation_ratio_5_60",
        "volatility",
        "ratio",
        lambda x: rolling.ratio(rolling.deviation(x, 5), rolling.deviation(x, 60)),
    ),
    Function(
        "per_deviation_20",
        "volatility",
        "scaling",
        lambda x: rolling.ratio(x, rolling.deviation(x, 20)),
    ),
    Function("cross_rank", "cross_section", "rank", _cross_rank),
    Function("cross_demean", "cross_section", "difference", _cross_demean),
    Function("cross_zscore", "cross_section", "difference", _cross_zscore),
    Function("mean_5", "smoothing", "simple", lambda x: rolling.mean(x, 5)),
    Function("mean_20", "smoothing", "simple", lambda x: rolling.mean(x, 20)),
    Function("exponential_3", "smoothing", "exponential", lambda x: rolling.exponential_mean(x, 3)),
    Function(
        "exponential_10", "smoothing", "exponential", lambda x: rolling.exponential_mean(x, 10)
    ),
    Function("median_5", "smoothing", "robust", lambda x: rolling.median(x, 5)),
    Function("delta_1", "change", "difference", lambda x: rolling.delta(x, 1)),
    Function("delta_5", "change", "difference", lambda x: rolling.delta(x, 5)),
    Function("rank_60", "change", "rank", lambda x: rolling.rank(x, 60)),
    Function("squash_60", "shape", "bounded", lambda x: np.tanh(rolling.zscore(x, 60))),
    Function("sign_60", "shape", "bounded", lambda x: np.sign(rolling.zscore(x, 60))),
    Function("sum", "combination", "linear", lambda x, y: _standard(x) + _standard(y), 2),
    Function("spread", "combination", "linear", lambda x, y: _standard(x) - _standard(y), 2),
    Function("product", "combination", "product", lambda x, y: _standard(x) * _standard(y), 2),
    Function(
        "correlation_20",
        "combination",
        "association",
        lambda x, y: rolling.correlation(x, y, 20),
        2,
    ),
)
