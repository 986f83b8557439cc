"""The search itself: candidates are composed, evaluated, checked against a pool, submitted."""

from collections import defaultdict
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import Any

import numpy as np
from kestrune.search_tracking import Evaluation

from demo import clock, judging, performance
from demo.candidates import MAX_DEPTH, Call, Computer, Tree, compose, metadata, vary
from demo.functions import TIMED
from demo.pools import THRESHOLDS, Pool
from demo.prices import ERAS, UNIVERSES, Era, Prices

HOLD_DAYS = (1, 5, 10)
STRATEGY_SHARE = 0.4
VARIATION_SHARE = 0.4
SUBMITTED_SHARE = 0.85
_DEPTH_SHARES = (0.25, 0.3, 0.25, 0.2)


@dataclass(frozen=True)
class Plan:
    """What is to be evaluated, on what, and for which pool of signals."""

    eval_type: str
    era: Era
    universe: str
    hold_days: int
    pool_config: dict[str, Any]
    tree: Tree


class Search:
    """A search of `count` candidates; the same seed finds the same ones.

    `end` is the moment (seconds since the epoch) at which the search clock ends.
    """

    def __init__(
        self, prices: Prices, era_config: Mapping[str, Any], seed: int, count: int, end: float
    ) -> None:
        self._rng = np.random.default_rng(seed)
        self._count = count
        self._end = end
        self._pool_configs = list(era_config["signal_pools"])
        self._prices = {name: prices.of(tickers) for name, tickers in UNIVERSES.items()}
        self._computers = {name: Computer(prices) for name, prices in self._prices.items()}
        self._pools: dict[tuple[str, str, str], Pool] = defaultdict(Pool)

    def run(self) -> Iterator[tuple[Evaluation, list[judging.Verdict]]]:
        """Evaluate one candidate after the other: its record, and the fate of its submission."""
        for position in range(self._count):
            age = clock.age(position, self._count)
            yield self._evaluate(self._plan(position / self._count), position, age)

    def _plan(self, progress: float) -> Plan:
        """Choose what to try when this share of the search is done."""
        rng = self._rng
        # The search moves through the eras, with looks back and ahead.
        closeness = np.exp(-((np.arange(len(ERAS)) - 3.2 * progress) ** 2))
        era = ERAS[int(rng.choice(len(ERAS), p=closeness / closeness.sum()))]
        universe = list(UNIVERSES)[int(rng.integers(len(UNIVERSES)))]
        hold_days = HOLD_DAYS[int(rng.integers(len(HOLD_DAYS)))]
        pool_config = self._pool_configs[int(rng.integers(len(self._pool_configs)))]
        signals = self._pool("signal", era, pool_config).trees
        bases = [tree for tree in signals if tree.depth < MAX_DEPTH]
        eval_type = "strategy" if bases and rng.random() < STRATEGY_SHARE else "signal"
        if eval_type == "strategy":
            # A strategy decides when to follow a signal that the pool has accepted.
            base = bases[int(rng.integers(len(bases)))]
            tree: Tree = Call(TIMED, (base, compose(rng, int(rng.integers(1, MAX_DEPTH)))))
        elif signals and rng.random() < VARIATION_SHARE:
            tree = vary(rng, signals[int(rng.integers(len(signals)))])
        else:
            tree = compose(rng, 1 + int(rng.choice(MAX_DEPTH, p=_DEPTH_SHARES)))
        return Plan(eval_type, era, universe, hold_days, pool_config, tree)

    def _pool(self, eval_type: str, era: Era, pool_config: dict[str, Any]) -> Pool:
        return self._pools[eval_type, era.era_id, pool_config["name"]]

    def _evaluate(
        self, plan: Plan, position: int, age: float
    ) -> tuple[Evaluation, list[judging.Verdict]]:
        prices = self._prices[plan.universe]
        days = prices.days(plan.era.first, plan.era.last)
        later_days = slice(days.stop, prices.days(plan.era.first, plan.era.judged_until).stop)
        positions = self._positions(plan, prices)
        result = performance.trade(positions, prices, days)
        later_profit = performance.trade(positions, prices, later_days).net
        measure = performance.mutual_information(positions, prices, days)
        pool = self._pool(plan.eval_type, plan.era, plan.pool_config)
        evaluation = _record(plan, result, pool.correlation(result.net), measure)
        evaluation.eval_id = f"{plan.eval_type}-{position + 1:06d}"
        evaluation.timestamp = self._end - age
        if not evaluation.passed_thresholds:
            return evaluation, []

        later_correlation = pool.later_correlation(later_profit)
        pool.add(plan.tree, result.net, later_profit)
        evaluation.submitted = self._rng.random() < SUBMITTED_SHARE
        if not evaluation.submitted:
            return evaluation, []
        agent = int(self._rng.integers(judging.AGENTS))
        evaluation.agent_is_pnl_mi = judging.reported(self._rng, agent, measure)
        fate = [judging.PENDING]
        if age > judging.JUDGED_AFTER_SECONDS:
            claim = evaluation.agent_is_pnl_mi
            fate.append(
                judging.judge(later_profit, later_correlation, plan.pool_config, claim, measure)
            )
        return evaluation, fate

    def _positions(self, plan: Plan, prices: Prices) -> np.ndarray:
        value = self._computers[plan.universe].compute(plan.tree)
        if plan.eval_type == "signal":
            positions = performance.signal_positions(value)
        else:
            positions = performance.strategy_positions(value, prices)
        return performance.hold(positions, plan.hold_days)


def _record(
    plan: Plan, result: performance.Performance, correlation: float, measure: float
) -> Evaluation:
    """Return the record of a candidate, checked against the thresholds of its pool."""
    stats = result.column_stats()
    sharpe, drawdown = stats["gross_returns_sharpe"], stats["gross_returns_drawdown"]
    turnover = float(result.traded.mean())
    failures = THRESHOLDS[plan.eval_type].failures(sharpe, turnover, drawdown)
    reason = "thresholds" if failures else None
    limit = plan.pool_config["is_correlation_threshold"]
    if not failures and correlation >= limit:
        reason = "correlation"
        failures = [f"correlation {correlation:.2f}, pool allows {limit:.2f}"]
    functions, features = metadata(plan.tree)
    pool = plan.pool_config["name"]
    is_strategy = plan.eval_type == "strategy"
    return Evaluation(
        eval_id="",
        eval_type=plan.eval_type,
        era_id=plan.era.era_id,
        timestamp=0.0,
        named_universe=plan.universe,
        metaparameters={"hold_days": plan.hold_days},
        passed_thresholds=not failures,
        sharpe=sharpe,
        returns=stats["gross_returns_returns"],
        turnover=turnover,
        drawdown=drawdown,
        correlation=correlation,
        per_column_stats=stats,
        function_metadata=functions,
        functions=[item["function_name"] for item in functions],
        feature_metadata=features,
        features=[item["feature_name"] for item in features],
        tree_depth=plan.tree.depth,
        strategy_pool_id="timed_signals" if is_strategy else None,
        signal_pool_id=None if is_strategy else pool,
        strategy_signal_pool=pool if is_strategy else None,
        is_correlation=correlation,
        is_pnl_mi=measure,
        agent_is_pnl_mi=measure,
        failure_reason=reason,
        failure_detail="; ".join(failures) or None,
    )
