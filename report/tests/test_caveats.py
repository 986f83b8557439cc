"""Warnings: what the answers do not say."""

from __future__ import annotations

from typing import Any

import pytest

from kestrune_search_report import Snapshot, collect
from kestrune_search_report.selection import QUESTION_LIMIT, selected
from support.searches import POOLS, records, simple


def warned(rows: list[dict[str, Any]], **arguments: Any) -> dict[str, str]:
    """Return the warnings of a report, by what they are about."""
    found = collect(Snapshot.from_records(rows, pools=POOLS), **arguments).caveats
    return {caveat.about: caveat.text for caveat in found}


def test_a_search_without_faults_has_no_warnings() -> None:
    assert warned(records(1500)) == {}


def test_what_a_question_leaves_out_is_said() -> None:
    text = warned(simple(QUESTION_LIMIT + 7))["cut"]
    assert "7 older ones are left out" in text
    assert "may be left out" in warned(simple(QUESTION_LIMIT))["cut"]
    assert "cut" not in warned(simple(QUESTION_LIMIT - 1))


def test_a_young_search_fills_its_windows() -> None:
    text = warned(records(1500, days=0.5))["young"]
    assert "12 hours ago: last_24h and last_week and the recent window hold all" in text


def test_an_old_search_has_empty_windows() -> None:
    text = warned(simple(timestamp=1_700_000_000))["old"]
    assert "last_24h and last_week and the recent window hold nothing" in text


def test_time_stamps_ahead_are_said() -> None:
    assert "60 evaluations" in warned(simple(timestamp=4e9))["future"]


def test_a_minimum_that_hides_all_groups_names_one_that_does_not() -> None:
    rows = records(300)
    text = warned(rows, min_sample_size=100)["samples"]
    assert text.startswith("min_sample_size=100 hides all")
    size, shown = [int(word) for word in text.split(". ")[1].split() if word.isdigit()]
    found = collect(Snapshot.from_records(rows), min_sample_size=size)
    assert found.answers["get_search_stats"].figures["groups_shown"] == shown
    assert shown >= 10


def test_numbers_that_are_none_are_counted() -> None:
    rows = simple()
    rows[0]["sharpe"] = rows[1]["sharpe"] = float("nan")
    assert "sharpe is no finite number in 2" in warned(rows)["numbers"]


@pytest.mark.parametrize(("passed", "word"), [(True, "All"), (False, "None")], ids=str)
def test_a_yield_of_all_or_nothing_is_said(passed: bool, word: str) -> None:
    assert warned(simple(passed_thresholds=passed))["sameness"].startswith(word)


def test_pools_that_nobody_gave_are_said() -> None:
    found = collect(Snapshot.from_records(records(300))).caveats
    assert "pools" in {caveat.about for caveat in found}


def test_no_evaluations_are_said(snapshot: Snapshot) -> None:
    report = collect(
        snapshot,
        era_id="2011",
        function_subfamily="rank",
        feature_subfamily="volume",
        strategy_pool_id="p1",
        eval_type="signal",
    )
    assert [caveat.about for caveat in report.caveats] == ["empty"]


@pytest.mark.parametrize(
    "filters",
    [
        {},
        {"function_family": "trend", "feature_subfamily": "close"},
        {"signal_pool_id": "alpha", "eval_type": "strategy"},
        {"signal_pool_id": "alpha"},
        {"metaparameters": {"hold": 1}, "function_subfamily": "rank"},
    ],
    ids=lambda filters: "-".join(filters) or "none",
)
def test_what_a_question_sees_is_what_is_selected(
    snapshot: Snapshot, filters: dict[str, Any]
) -> None:
    seen = snapshot.engine.get_yield_analysis(**filters).usefulness_rationale
    assert [one["eval_id"] for one in seen] == [one.eval_id for one in selected(snapshot, filters)]
