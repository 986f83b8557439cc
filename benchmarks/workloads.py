"""Evaluation records as the example tracker returns them, as many as wanted.

What a record holds is drawn once for DRAWN evaluations and decoded from JSON, as the tracker does.
Decoding takes long, so each evaluation is then kept as a pickle of its values, of which records are
made. A pickle keeps what is one object and what is two: a record's strings, floats, lists and
dictionaries are its own, and it takes as long to read as one that was decoded.
"""

import functools
import json
import pickle
import random
import time
from collections.abc import Iterator
from dataclasses import dataclass
from types import SimpleNamespace
from typing import Any

from kestrune.search_tracking import Evaluation
from kestrune.search_tracking.schema import EVALUATION_COLUMNS, JSON
from timing import collector

DRAWN = 10_000
DAYS = 21
# The search speeds up, so most records are recent: an eighth of them is from the last day.
PACE = 1.5

POOLS = (
    SimpleNamespace(name="core", is_correlation_threshold=0.5, os_correlation_threshold=0.6),
    SimpleNamespace(name="wide", is_correlation_threshold=0.7, os_correlation_threshold=0.8),
)

_LOADERS = tuple(kind.load for kind in EVALUATION_COLUMNS.values())


@dataclass(frozen=True)
class Catalogue:
    """So many names of a side ("function" or "feature"), in families and subfamilies."""

    side: str
    names: int
    subfamilies: int
    families: int

    def items(self) -> list[dict[str, str]]:
        """Return the entries, in the form that evaluation records carry."""
        return [
            {
                f"{self.side}_name": f"{self.side}_{i}_of_{self.names}",
                f"{self.side}_family": f"{self.side}_family_{i % self.families}",
                f"{self.side}_subfamily": f"{self.side}_subfamily_{i % self.subfamilies}",
            }
            for i in range(self.names)
        ]


@dataclass(frozen=True)
class Workload:
    """How many functions and features a record uses, at most, and of which there are."""

    name: str
    functions: Catalogue
    most_functions: int
    features: Catalogue
    most_features: int

    def rows(self, seed: int = 7) -> list[str]:
        """Return DRAWN rows of column values, each as JSON text."""
        rng = random.Random(f"{self.name} {seed}")
        functions, features = self.functions.items(), self.features.items()
        return [
            json.dumps(
                _row(
                    rng,
                    number,
                    _used(rng, functions, self.most_functions),
                    _used(rng, features, self.most_features),
                )
            )
            for number in range(DRAWN)
        ]

    def records(self, count: int) -> list[Evaluation]:
        """Return `count` records, newest first, the newest a second old."""
        # Nothing of it is garbage: looking for some takes longer than the rest.
        with collector(False):
            return list(self._restored(count, time.time() - 1.0))

    def _restored(self, count: int, newest: float) -> Iterator[Evaluation]:
        drawn = _decoded(self)
        for number in range(count):
            record = Evaluation(*pickle.loads(drawn[number % DRAWN]))
            record.timestamp = newest - DAYS * 86400.0 * (number / count) ** PACE
            record.eval_id = f"{record.eval_type}-{count - number:07d}"
            yield record


@functools.cache
def _decoded(workload: Workload) -> list[bytes]:
    """Return the values of DRAWN evaluations, each a pickle of what the tracker decodes."""
    return [
        pickle.dumps(
            tuple(
                None if value is None else load(value)
                for value, load in zip(json.loads(row), _LOADERS, strict=True)
            )
        )
        for row in workload.rows()
    ]


NARROW = Workload(
    "narrow",
    Catalogue("function", names=30, subfamilies=12, families=6),
    2,
    Catalogue("feature", names=12, subfamilies=5, families=4),
    1,
)
WIDE = Workload(
    "wide",
    Catalogue("function", names=60, subfamilies=30, families=10),
    5,
    Catalogue("feature", names=30, subfamilies=16, families=8),
    4,
)


def _used(rng: random.Random, items: list[dict[str, str]], most: int) -> list[dict[str, str]]:
    """Return 1 to `most` different items; the first of the list are the favourites."""
    count = rng.randint(1, most)
    chosen: dict[int, dict[str, str]] = {}
    while len(chosen) < count:
        place = int(len(items) * rng.random() ** 1.5)
        chosen[place] = items[place]
    return list(chosen.values())


def _statistics(rng: random.Random) -> dict[str, float]:
    return {
        "sharpe": rng.gauss(0.4, 0.8),
        "returns": rng.gauss(0.05, 0.1),
        "drawdown": rng.uniform(0.02, 0.5),
    }


def _row(
    rng: random.Random,
    number: int,
    functions: list[dict[str, str]],
    features: list[dict[str, str]],
) -> list[Any]:
    """Return the values of one row: the columns that hold JSON as their text."""
    is_strategy = rng.random() < 0.4
    pool = POOLS[rng.randrange(len(POOLS))].name
    gross, net = _statistics(rng), _statistics(rng)
    passed = rng.random() < 0.2
    submitted = passed and rng.random() < 0.85
    correlation, measure = rng.uniform(-0.2, 0.95), rng.uniform(0.0, 0.3)
    dishonest = submitted and rng.random() < 0.05
    fields: dict[str, Any] = {
        "eval_id": "",
        "eval_type": "strategy" if is_strategy else "signal",
        "era_id": f"era-{1 + number * 4 // DRAWN}",
        "timestamp": 0.0,
        "named_universe": rng.choice(("all", "large", "technology")),
        "metaparameters": {"hold_days": rng.choice((1, 5, 10))},
        "submitted": int(submitted),
        "passed_thresholds": int(passed),
        **gross,
        "turnover": rng.uniform(0.0, 1.2),
        "correlation": correlation,
        "per_column_stats": {
            f"{column}_{name}": value
            for column, values in (("gross_returns", gross), ("net_returns", net))
            for name, value in values.items()
        },
        "function_metadata": functions,
        "functions": [item["function_name"] for item in functions],
        "feature_metadata": features,
        "features": [item["feature_name"] for item in features],
        "tree_depth": rng.randint(1, 5),
        "strategy_pool_id": "timed_signals" if is_strategy else None,
        "signal_pool_id": None if is_strategy else pool,
        "strategy_signal_pool": pool if is_strategy else None,
        "is_correlation": correlation,
        "is_pnl_mi": measure,
        "agent_is_pnl_mi": measure * 1.3 if dishonest else measure,
        "failure_reason": None if passed else "thresholds",
        "failure_detail": None if passed else f"sharpe {gross['sharpe']:.2f} below 0.70",
    }
    return [
        json.dumps(value) if kind.load is JSON.load and value is not None else value
        for value, kind in ((fields.get(name), kind) for name, kind in EVALUATION_COLUMNS.items())
    ]
