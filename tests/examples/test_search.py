"""The demo's search: real data, no look ahead, honest statistics, the same for the same seed."""

from __future__ import annotations

from itertools import pairwise
from typing import Any

import numpy as np
import pytest

ERA_CONFIG = {
    "signal_pools": [
        {"name": "core", "is_correlation_threshold": 0.7, "os_correlation_threshold": 0.8},
        {"name": "diverse", "is_correlation_threshold": 0.4, "os_correlation_threshold": 0.6},
    ]
}


@pytest.fixture
def prices(demo: Any) -> Any:
    """The shipped prices."""
    from demo.prices import load_prices

    return load_prices()


@pytest.fixture
def rng() -> np.random.Generator:
    """Random numbers, the same in every run."""
    return np.random.default_rng(5)


def run(prices: Any, seed: int, count: int = 200) -> list[Any]:
    """Return the records and fates of a search, its clock ending at 0."""
    from demo.searching import Search

    return list(Search(prices, ERA_CONFIG, seed=seed, count=count, end=0.0).run())


def test_prices_are_whole_and_plausible(prices: Any) -> None:
    assert prices.tickers == ("AAPL", "GOOG", "IBM", "MSFT")
    assert (len(prices.dates), prices.dates[0], prices.dates[-1]) == (
        2148,
        "2004-08-19",
        "2013-03-01",
    )
    assert (np.diff(prices.dates.astype("datetime64[D]")).astype(int) > 0).all()
    for name in ("open", "high", "low", "close", "volume"):
        matrix = getattr(prices, name)
        assert matrix.shape == (2148, 4)
        assert (matrix > 0.0).all()
    # Equal prices may differ by a rounding after the adjustment.
    assert (prices.high * (1 + 1e-12) >= np.maximum(prices.open, prices.close)).all()
    assert (prices.low * (1 - 1e-12) <= np.minimum(prices.open, prices.close)).all()
    # Splits are adjusted away: no day halves or doubles a price.
    assert np.abs(np.diff(np.log(prices.close), axis=0)).max() < 0.25


def test_every_era_is_followed_by_days_to_judge_on(prices: Any) -> None:
    from demo.prices import ERAS

    for era in ERAS:
        days = prices.days(era.first, era.last)
        later = prices.days(era.first, era.judged_until)
        assert days.start > 250
        assert later.stop - days.stop > 100
        assert prices.dates[days.start] >= era.first
        assert prices.dates[days.stop - 1] <= era.last


def test_the_library_is_wide_and_its_names_are_unique(demo: Any) -> None:
    from demo.features import FEATURES
    from demo.functions import FUNCTIONS, TIMED

    for library in ((*FUNCTIONS, TIMED), FEATURES):
        assert len({item.name for item in library}) == len(library)
        assert all(item.family and item.subfamily for item in library)
    assert len(FUNCTIONS) >= 20
    assert {"trend", "mean_reversion", "volatility", "cross_section", "smoothing"} <= {
        function.family for function in FUNCTIONS
    }
    assert {feature.family for feature in FEATURES} == {"price", "return", "volume", "range"}


def test_no_function_or_feature_looks_ahead(prices: Any) -> None:
    from demo.candidates import Call, Computer, Leaf
    from demo.features import FEATURES
    from demo.functions import FUNCTIONS, TIMED
    from demo.prices import Prices

    cut = 900
    names = ("dates", "open", "high", "low", "close", "volume")
    known = Prices(prices.tickers, *[getattr(prices, name)[:cut] for name in names])
    whole, part = Computer(prices), Computer(known)
    trees = [Leaf(feature) for feature in FEATURES]
    for function in (*FUNCTIONS, TIMED):
        trees.append(Call(function, tuple(map(Leaf, FEATURES[2 : 2 + function.arity]))))
    for tree in trees:
        values = whole.compute(tree)
        assert np.isfinite(values).all(), str(tree)
        np.testing.assert_allclose(values[:cut], part.compute(tree), 1e-9, 1e-9, err_msg=str(tree))


@pytest.mark.parametrize("depth", [1, 2, 3, 4])
def test_composed_candidates_have_the_depth_asked_for(
    demo: Any, rng: np.random.Generator, depth: int
) -> None:
    from demo.candidates import compose

    assert {compose(rng, depth).depth for _ in range(100)} == {depth}


def test_varied_candidates_stay_within_the_greatest_depth(
    demo: Any, rng: np.random.Generator
) -> None:
    from demo.candidates import MAX_DEPTH, compose, vary

    trees = [compose(rng, 1 + number % MAX_DEPTH) for number in range(400)]
    varied = [vary(rng, tree) for tree in trees]
    assert max(tree.depth for tree in varied) == MAX_DEPTH
    assert min(tree.depth for tree in varied) >= 1
    assert sum(str(a) != str(b) for a, b in zip(trees, varied, strict=True)) > 300


def test_a_day_is_earned_with_the_positions_of_the_day_before(prices: Any) -> None:
    from demo.performance import COST, trade

    positions = np.zeros_like(prices.close)
    positions[500, 0] = 1.0
    result = trade(positions, prices, slice(498, 505))
    gain = prices.close[501, 0] / prices.close[500, 0] - 1.0
    assert result.gross.tolist() == [0.0, 0.0, 0.0, gain, 0.0, 0.0, 0.0]
    assert result.traded.tolist() == [0.0, 0.0, 0.0, 1.0, 1.0, 0.0, 0.0]
    np.testing.assert_allclose(result.gross - result.net, COST * result.traded)


@pytest.mark.parametrize(
    ("profit", "expected"),
    [([0.01, 0.02], 0.0), ([-0.01, -0.02], 0.03), ([0.05, -0.02, -0.01, 0.04, -0.01], 0.03)],
    ids=["rising", "falling", "mixed"],
)
def test_drawdown_is_the_deepest_fall_from_a_peak(
    demo: Any, profit: list[float], expected: float
) -> None:
    from demo.performance import drawdown

    assert drawdown(np.array(profit)) == pytest.approx(expected)


def test_sharpe_of_no_risk_is_zero(demo: Any) -> None:
    from demo.performance import sharpe

    assert sharpe(np.full(10, 0.001)) == 0.0
    assert sharpe(np.array([0.01, 0.03])) == pytest.approx(2 * 252**0.5)


def test_mutual_information_sees_what_positions_know(prices: Any, rng: np.random.Generator) -> None:
    from demo.performance import mutual_information

    days = slice(300, 1500)
    knowing = np.zeros_like(prices.close)
    knowing[:-1] = prices.close[1:] / prices.close[:-1] - 1.0
    assert mutual_information(knowing, prices, days) == pytest.approx(np.log(3.0), rel=1e-3)
    guessing = rng.normal(size=prices.close.shape)
    assert 0.0 <= mutual_information(guessing, prices, days) < 0.005


def test_signals_are_neutral_and_no_one_bets_more_than_the_capital(
    prices: Any, rng: np.random.Generator
) -> None:
    from demo.performance import signal_positions, strategy_positions

    value = rng.normal(size=prices.close.shape)
    signal = signal_positions(value)
    np.testing.assert_allclose(signal.sum(axis=1), 0.0, atol=1e-12)
    np.testing.assert_allclose(np.abs(signal).sum(axis=1), 1.0)
    assert np.abs(strategy_positions(value, prices)).sum(axis=1).max() <= 1.0 + 1e-12


def test_the_clock_runs_forward_and_keeps_clear_of_window_edges(demo: Any) -> None:
    from demo import clock

    ages = [clock.age(position, 6000) for position in range(6000)]
    assert all(older > younger for older, younger in pairwise(ages))
    assert 20 * 86400 < ages[0] <= 21 * 86400
    for window in (3600, 21600, 86400, 604800):
        assert not any(window - 300 < age <= window for age in ages)
        assert sum(age <= window for age in ages) >= 10


def test_the_same_seed_finds_the_same_candidates(prices: Any) -> None:
    assert run(prices, seed=1) == run(prices, seed=1)
    assert run(prices, seed=1) != run(prices, seed=2)


def test_records_carry_all_that_was_found(prices: Any) -> None:
    from demo.prices import ERAS, UNIVERSES

    records = [record for record, _ in run(prices, seed=1)]
    assert {record.era_id for record in records} == {era.era_id for era in ERAS}
    assert {record.named_universe for record in records} == set(UNIVERSES)
    assert {record.eval_type for record in records} == {"signal", "strategy"}
    assert {record.tree_depth for record in records} == {1, 2, 3, 4}
    for record in records:
        assert record.sharpe == record.per_column_stats["gross_returns_sharpe"]
        assert record.functions == [item["function_name"] for item in record.function_metadata]
        assert record.features == [item["feature_name"] for item in record.feature_metadata]
        assert (record.signal_pool_id is None) != (record.strategy_signal_pool is None)
        assert record.passed_thresholds == (record.failure_reason is None)
        assert record.passed_thresholds >= record.submitted


def test_only_submissions_have_a_fate_and_it_begins_pending(prices: Any) -> None:
    for record, fate in run(prices, seed=1):
        assert bool(fate) == record.submitted
        assert [verdict.status for verdict in fate[:1]] in ([], ["pending"])


def test_passing_candidates_stay_below_their_pools_threshold(prices: Any) -> None:
    limits = {pool["name"]: pool["is_correlation_threshold"] for pool in ERA_CONFIG["signal_pools"]}
    for record, _ in run(prices, seed=1):
        pool = record.signal_pool_id or record.strategy_signal_pool
        if record.passed_thresholds:
            assert record.correlation < limits[pool]


def test_only_dishonest_agents_report_another_measure(demo: Any, rng: np.random.Generator) -> None:
    from demo.judging import AGENTS, DISHONEST_AGENTS, reported

    for agent in range(AGENTS):
        measure = reported(rng, agent, 0.01)
        assert (measure > 0.01) == (agent in DISHONEST_AGENTS)
        assert agent in DISHONEST_AGENTS or measure == 0.01


@pytest.mark.parametrize(
    ("later", "correlation", "claim", "status", "reason"),
    [
        ([0.01, 0.02], 0.1, 1.0, "useful", None),
        ([-0.01, -0.02], 0.1, 1.0, "not_useful", None),
        ([0.01, 0.02], 0.8, 1.0, "rejected", "correlation 0.80 after the era, pool allows 0.80"),
        ([0.01, 0.02], 0.8, 1.3, "rejected", "tampering: reported measure 30% too high"),
        ([0.01, 0.02], 0.1, 1.2, "useful", None),
    ],
    ids=["useful", "not useful", "correlation", "tampering", "a little too high"],
)
def test_the_server_judges_by_the_days_after_and_by_its_own_measure(
    demo: Any, later: list[float], correlation: float, claim: float, status: str, reason: str | None
) -> None:
    from demo.judging import judge

    pool = ERA_CONFIG["signal_pools"][0]
    verdict = judge(np.array(later), correlation, pool, claim, 1.0)
    assert (verdict.status, verdict.rejection_reason) == (status, reason)
