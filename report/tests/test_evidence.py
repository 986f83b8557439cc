"""Evidence: figures agree with scipy's, words with figures, and chance is called chance."""

from __future__ import annotations

import json
import math
import random
from typing import Any

import jsonschema
import numpy as np
import pytest
import scipy.stats

from kestrune_search_report import Questions, Snapshot, collect, weigh
from kestrune_search_report.arguments import aggregation
from kestrune_search_report.documents import evidence_schema, report_schema
from kestrune_search_report.evidence.chance import (
    CLAIMS,
    Stratum,
    against_rest,
    corrected,
    held_still,
)
from kestrune_search_report.evidence.findings import ASSUMPTIONS
from kestrune_search_report.evidence.gather import trend_row
from kestrune_search_report.evidence.luck import luckiest
from kestrune_search_report.evidence.membership import belongs
from kestrune_search_report.evidence.shares import wilson
from support.searches import simple

CLOSE = {"rel": 1e-12, "abs": 1e-12}
COUNTS = [(0, 0), (0, 1), (1, 1), (3, 40), (40, 40), (654, 6000), (1, 10_000), (9_999, 10_000)]


def test_wilson_intervals_are_scipys() -> None:
    low, high = wilson([k for k, _ in COUNTS], [n for _, n in COUNTS])
    for (k, n), *ends in zip(COUNTS, low, high, strict=True):
        if n == 0:
            assert ends == [0.0, 1.0]
        else:
            expected = scipy.stats.binomtest(k, n).proportion_ci(0.95, "wilson")
            assert ends == pytest.approx(list(expected), **CLOSE)


@pytest.mark.parametrize("part", [(0, 10), (12, 60), (31, 60), (100, 400)], ids=str)
def test_the_test_against_the_rest_is_fishers(part: tuple[int, int]) -> None:
    (k, n), (K, N) = part, (100, 500)  # noqa: N806
    tables = [[k, n - k], [K - k, N - n - K + k]]
    sides = [scipy.stats.fisher_exact(tables, side)[1] for side in ("less", "greater")]
    expected = min(1.0, 2 * min(sides))
    assert against_rest([k], [n], K, N) == pytest.approx([expected], **CLOSE)
    assert held_still([Stratum(N, K, n, k)]) == pytest.approx(expected, **CLOSE)


def test_strata_add_up_like_random_deals() -> None:
    strata = [Stratum(30, 10, 12, 7), Stratum(20, 3, 9, 3), Stratum(8, 8, 3, 3)]
    deals = np.random.default_rng(5)
    sums = sum(
        deals.hypergeometric(one.passed, one.total - one.passed, one.part_total, 400_000)
        for one in strata
    )
    observed = sum(one.part_passed for one in strata)
    sides = float(np.mean(sums <= observed)), float(np.mean(sums >= observed))
    assert held_still(strata) == pytest.approx(min(1.0, 2 * min(sides)), abs=0.004)


def test_correction_is_scipys_and_counts_the_claims() -> None:
    p_values = [0.0001, 0.002, 0.3, 0.9, 0.004]
    alone = scipy.stats.false_discovery_control(p_values)
    assert corrected(p_values) == pytest.approx(alone.tolist(), **CLOSE)
    expected = np.minimum(1, alone / 0.2)
    assert corrected(p_values, "families") == pytest.approx(expected.tolist(), **CLOSE)
    assert sum(CLAIMS.values()) == pytest.approx(1.0)
    assert corrected([]) == []


def test_a_trend_of_nothing_but_the_mix_is_none() -> None:
    # Each era passes as ever; recently there is more of the better one.
    strata = [Stratum(1000, 100, 50, 5), Stratum(500, 200, 400, 160)]
    row = trend_row(strata)
    assert row is not None
    _, _, lifetime, recent, expected, mix, own, p_value, _, apart = row
    assert recent > 1.2 * lifetime
    assert expected == pytest.approx(recent)
    assert (mix, own) == pytest.approx((recent - lifetime, 0.0))
    assert p_value > 0.9
    assert not apart


def test_a_trend_within_each_era_is_told() -> None:
    row = trend_row([Stratum(1000, 200, 200, 80), Stratum(1000, 100, 200, 40)])
    assert row is not None
    assert row[-1] is True
    assert trend_row([Stratum(10, 2, 0, 0)]) is None


def test_luck_is_that_of_the_highest_of_normal_tries() -> None:
    chance = random.Random(3)
    sharpes = [chance.gauss(0, 1) for _ in range(2000)]
    found = luckiest(sharpes, years=1.0)
    assert found is not None
    assert found.best == max(sharpes)
    highest = np.random.default_rng(1).standard_normal((4000, 2000)).max(axis=1)
    assert found.expected == pytest.approx(float(np.median(highest)), abs=0.03)
    assert found.ceiling == pytest.approx(float(np.quantile(highest, 0.95)), abs=0.06)
    assert found.p_value == pytest.approx(float(np.mean(highest >= found.best)), abs=0.03)


def test_luck_takes_its_spread_from_the_search() -> None:
    chance = random.Random(4)
    sharpes = [chance.gauss(0, 2) for _ in range(3000)]
    found = luckiest([*sharpes, math.nan, 20.0])
    assert found is not None
    assert found.tries == 3001
    assert found.spread == pytest.approx(2.0, rel=0.06)
    assert found.p_value < 1e-9
    assert luckiest([1.0] * 100) is None
    assert luckiest(sharpes[:19]) is None


@pytest.mark.parametrize("tries", [20, 100, 1000])
def test_few_tries_are_not_called_lucky_too_often(tries: int) -> None:
    chance = np.random.default_rng(tries)
    p_values = []
    for _ in range(500):
        found = luckiest(chance.standard_normal(tries).tolist())
        assert found is not None
        p_values.append(found.p_value)
    assert np.mean(np.array(p_values) <= 0.02) <= 0.025


def test_evidence_of_a_search_is_as_the_schema_says(snapshot: Snapshot) -> None:
    report = collect(snapshot, min_sample_size=3)
    document = json.loads(report.evidence.to_json(), parse_constant=lambda word: pytest.fail(word))
    jsonschema.Draft202012Validator(evidence_schema()).validate(document)
    assert document["assumptions"] == ASSUMPTIONS
    assert [finding["about"] for finding in document["findings"]] == list(CLAIMS)
    whole = json.loads(report.to_json(), parse_constant=lambda word: pytest.fail(word))
    jsonschema.Draft202012Validator(report_schema()).validate(whole)


def test_parts_are_counted_as_the_answers_say(questions: Questions) -> None:
    evidence = weigh(questions, min_sample_size=3, era_id="2011")
    engine = questions.snapshot.engine
    patterns = engine.get_search_patterns(era_id="2011")
    families = {one.function_family: (one.total, one.passed) for one in patterns.family_yield_rates}
    rows = list(evidence.tables["families"].dicts())
    assert {row["function_family"]: (row["total"], row["passed"]) for row in rows} == families
    (overall,) = evidence.tables["overall"].dicts()
    assert (overall["total"], overall["passed"]) == (
        patterns.total_evaluations,
        patterns.total_passed,
    )
    pairs = engine.get_correlation_patterns(era_id="2011", top_n=1000).pairs
    assert len(evidence.tables["pairs"].rows) == len(pairs)
    assert evidence.filters == {"era_id": "2011"}


def planted(total: int, passed: int) -> dict[str, Any]:
    """Return evidence on 4000 evaluations of which `total` use one pair, `passed` passing."""
    rows = simple(4000)
    for place, row in enumerate(rows):
        row["functions"] = ["x", "y"] if place < total else [("x", "y", "z")[place % 3], "w"]
        row["passed_thresholds"] = place < passed if place < total else place % 5 == 0
    evidence = weigh(Questions(Snapshot.from_records(rows)), min_sample_size=10)
    return {finding.about: finding for finding in evidence.findings}


def test_what_is_told_apart_is_named_with_its_figures() -> None:
    found = planted(200, 90)["pairs"]
    assert found.claims
    assert "x with y passes in 45.0% of 200 (38.3% to 51.9%), the rest in 20.0%" in found.text
    none = planted(200, 40)["pairs"]
    assert not none.claims
    assert none.text.startswith("None of 4 most frequent pairs passes")


def test_what_the_mix_of_types_explains_is_no_claim() -> None:
    rows = simple(4000)
    for place, row in enumerate(rows):
        # Strategies alone use "timing", and pass half as often, with whatever function.
        strategy = place % 2 == 0
        row["eval_type"] = "strategy" if strategy else "signal"
        row["functions"] = ["timing", "w"] if strategy else ["w", "x"]
        row["features"] = ["close"]
        row["passed_thresholds"] = place % 20 in ((0, 2) if strategy else (1, 3, 5, 7))
    evidence = weigh(Questions(Snapshot.from_records(rows)))
    for about in ("pairs", "families", "groups"):
        found = {finding.about: finding for finding in evidence.findings}[about]
        assert not found.claims
        assert "is the mix of eras and types" in found.text
        assert "timing" in found.text
    timing = {row["function_family"]: row for row in evidence.tables["families"].dicts()}["timing"]
    assert timing["q_value"] < 1e-6
    assert timing["held_still"] == 1.0


@pytest.mark.parametrize("level", ["none", "function_feature", "function_subfamily_feature"])
def test_members_of_a_part_are_those_that_were_counted(snapshot: Snapshot, level: str) -> None:
    aggregate_by = aggregation(level)
    evidence = weigh(Questions(snapshot), aggregate_by=level, min_sample_size=1)
    for name in ("pairs", "families", "groups", "depths"):
        one = evidence.tables[name]
        assert one.rows
        for row in one.rows:
            label = row[: one.column_names.index("total")]
            members = [x for x in snapshot.evaluations if belongs(x, name, label, aggregate_by)]
            assert len(members) == row[len(label)], (name, label)


def test_no_evaluations_give_no_claims(questions: Questions) -> None:
    empty = weigh(
        questions,
        era_id="2011",
        function_subfamily="rank",
        feature_subfamily="volume",
        strategy_pool_id="p1",
        eval_type="signal",
    )
    assert empty.claims == []
    assert empty.tables["overall"].rows == ((0, 0, 0.0, 0.0, 1.0),)
