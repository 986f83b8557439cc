"""Two searches side by side."""

from __future__ import annotations

from typing import Any

import pytest
import scipy.stats

from kestrune_search_report import ArgumentError, Snapshot, compare
from support.searches import records


def snapshot(seed: int, rate: float, trend: float | None = None) -> Snapshot:
    """Return a search that passes at a rate, with functions of the family "trend" at another."""

    def passes(chance: Any, functions: list[str]) -> bool:
        uses = {"momentum_20", "delta_5"} & set(functions)
        return bool(chance.random() < (trend if trend is not None and uses else rate))

    return Snapshot.from_records(records(1500, seed, passes=passes), name=f"search {seed}")


def test_equal_searches_differ_by_chance_alone() -> None:
    found = compare(snapshot(1, 0.2), snapshot(2, 0.2))
    assert [finding.claims for finding in found.findings] == [False]
    assert found.findings[0].text == "None of 5 yields differs by more than chance explains."
    assert found.table.column("part")[0] == "everything"


def test_a_family_that_passes_more_often_is_named() -> None:
    first, second = snapshot(1, 0.2), snapshot(2, 0.2, trend=0.4)
    found = compare(first, second)
    rows = {row["part"]: row for row in found.table.dicts()}
    assert rows["trend"]["told_apart"]
    assert rows["trend"]["difference"] > 0.1
    assert any(finding.text.startswith("trend: ") for finding in found.findings)
    row = rows["everything"]
    cells = [
        [row["passed_a"], row["total_a"] - row["passed_a"]],
        [row["passed_b"], row["total_b"] - row["passed_b"]],
    ]
    sides = [scipy.stats.fisher_exact(cells, side)[1] for side in ("less", "greater")]
    assert row["p_value"] == pytest.approx(2 * min(sides), rel=1e-12)
    assert row["total_a"] == len(first.evaluations)


def test_a_family_of_one_search_alone_is_not_tested() -> None:
    rows = records(50)
    for row in rows:
        row["function_metadata"] = [{"function_name": "new", "function_family": "new"}]
    found = compare(snapshot(1, 0.2), Snapshot.from_records(rows))
    new = {row["part"]: row for row in found.table.dicts()}["new"]
    assert (new["total_a"], new["total_b"]) == (0, 50)
    assert (new["p_value"], new["told_apart"]) == (None, False)


def test_filters_have_to_exist_in_both() -> None:
    first, second = snapshot(1, 0.2), snapshot(2, 0.2)
    assert compare(first, second, era_id="2011").filters == {"era_id": "2011"}
    with pytest.raises(ArgumentError, match="era_id"):
        compare(first, second, era_id="2010")
