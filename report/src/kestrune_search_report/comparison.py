"""Two searches side by side: which passes more often, and in which families."""

from __future__ import annotations

from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.asking import Questions
from kestrune_search_report.evidence.chance import LEVEL, against_rest, corrected
from kestrune_search_report.evidence.findings import ASSUMPTIONS, Finding, percent
from kestrune_search_report.evidence.shares import wilson
from kestrune_search_report.questions import columns
from kestrune_search_report.snapshot import Snapshot
from kestrune_search_report.table import Table, table

COLUMNS = columns(
    "part text what is compared: everything, or a function family",
    "total_a integer evaluations of the first search",
    "passed_a integer of those, passed",
    "rate_a number passed_a / total_a, 0 to 1",
    "low_a number lower end of the 95% Wilson interval of rate_a",
    "high_a number upper end of it",
    "total_b integer evaluations of the second search",
    "passed_b integer of those, passed",
    "rate_b number passed_b / total_b, 0 to 1",
    "low_b number lower end of the 95% Wilson interval of rate_b",
    "high_b number upper end of it",
    "difference number rate_b - rate_a",
    "p_value number how likely chance alone makes a difference as large; nothing if one has none",
    "q_value number the same, corrected for all parts that were compared",
    "told_apart flag whether the q_value is at most 0.025",
)
EVERYTHING = "everything"


@dataclass(frozen=True)
class Comparison:
    """Two searches, part by part: `table` has the figures, `findings` what they say."""

    name_a: str
    name_b: str
    filters: Mapping[str, Any]
    table: Table
    findings: tuple[Finding, ...]
    assumptions: str = ASSUMPTIONS

    def to_json(self) -> str:
        """Return the comparison as one line of JSON that `comparison-1.json` describes."""
        from kestrune_search_report.documents import comparison_json

        return comparison_json(self)


def compare(first: Snapshot, second: Snapshot, **filters: Any) -> Comparison:
    """Compare the yields of two searches; filters have to exist in both.

    Raises `ArgumentError` as the questions do.
    """
    counts = [_counts(snapshot, filters) for snapshot in (first, second)]
    parts = [EVERYTHING, *sorted((counts[0].keys() | counts[1].keys()) - {EVERYTHING})]
    rows: list[list[Any]] = []
    for part in parts:
        cells: list[Any] = [part]
        rates: list[float] = []
        for found in counts:
            passed, total = found.get(part, (0, 0))
            (low,), (high,) = wilson([passed], [total])
            rates.append(passed / total if total else 0.0)
            cells += [total, passed, rates[-1], low, high]
        rows.append([*cells, rates[1] - rates[0]])
    tested = [row for row in rows if row[1] and row[6]]
    p_values = [against_rest([r[2]], [r[1]], r[2] + r[7], r[1] + r[6])[0] for r in tested]
    for row, p, q in zip(tested, p_values, corrected(p_values), strict=True):
        row += [p, q, q <= LEVEL]
    for row in rows:
        row += [None, None, False][len(row) - len(COLUMNS) :] if len(row) < len(COLUMNS) else []
    made = table("comparison", COLUMNS, rows)
    findings = tuple(_finding(row) for row in made.dicts() if row["told_apart"])
    nothing = Finding(
        "comparison", False, f"None of {len(rows)} yields differs by more than chance explains."
    )
    return Comparison(first.name, second.name, filters, made, findings or (nothing,))


def _counts(snapshot: Snapshot, filters: Mapping[str, Any]) -> dict[str, tuple[int, int]]:
    patterns = Questions(snapshot).get_search_patterns(**filters).result
    families = {
        str(one.function_family): (one.passed, one.total) for one in patterns.family_yield_rates
    }
    return {EVERYTHING: (patterns.total_passed, patterns.total_evaluations), **families}


def _finding(row: Mapping[str, Any]) -> Finding:
    text = (
        f"{row['part']}: {percent(row['rate_a'])} of {row['total_a']} passed "
        f"({percent(row['low_a'])} to {percent(row['high_a'])}), then {percent(row['rate_b'])} of "
        f"{row['total_b']} ({percent(row['low_b'])} to {percent(row['high_b'])})."
    )
    return Finding("comparison", True, text)
