"""All evidence on one search, or on a part of it that filters choose."""

from __future__ import annotations

import math
import time
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import asdict, dataclass
from typing import Any

from kestrune.search_analytics import AggregateBy

from kestrune_search_report.arguments import aggregation
from kestrune_search_report.asking import Questions
from kestrune_search_report.evaluation import Evaluation
from kestrune_search_report.evidence.chance import (
    LEVEL,
    Stratum,
    against_rest,
    corrected,
    held_still,
)
from kestrune_search_report.evidence.findings import (
    ASSUMPTIONS,
    Finding,
    about_luck,
    about_parts,
    about_trend,
)
from kestrune_search_report.evidence.luck import luckiest
from kestrune_search_report.evidence.membership import Setting, belongs, setting, strata
from kestrune_search_report.evidence.shapes import SHAPES
from kestrune_search_report.evidence.shares import wilson
from kestrune_search_report.selection import selected, sharpe_of
from kestrune_search_report.table import Table, table

# Pairs are chosen by how often they occur, which says nothing of how often they pass.
MAX_PAIRS = 400
_ALL_PAIRS = 1_000_000_000


@dataclass(frozen=True)
class Part:
    """A part of the evaluations: what it is called, how many passed, how many there are."""

    label: tuple[Any, ...]
    passed: int
    total: int


@dataclass(frozen=True)
class Evidence:
    """What can and cannot be told from chance.

    - `filters`: which evaluations it is about.
    - `findings`: one for each claim that could be made, in words.
    - `tables`: the figures, by name; `SHAPES` lists them.
    - `assumptions`: what the tests take for granted, one sentence to show beside them.
    """

    filters: Mapping[str, Any]
    findings: tuple[Finding, ...]
    tables: Mapping[str, Table]
    assumptions: str = ASSUMPTIONS

    @property
    def claims(self) -> list[Finding]:
        """The findings that claim something."""
        return [finding for finding in self.findings if finding.claims]

    def to_json(self) -> str:
        """Return the evidence as one line of JSON that `evidence-1.json` describes."""
        from kestrune_search_report.documents import evidence_json

        return evidence_json(self)


class _Scope:
    """The evaluations that parts are tested in."""

    def __init__(self, evaluations: Sequence[Evaluation], aggregate_by: AggregateBy) -> None:
        self.evaluations = evaluations
        self.total = len(evaluations)
        self.passed = sum(bool(one.passed_thresholds) for one in evaluations)
        self._aggregate_by = aggregate_by

    def held_still(self, name: str, label: tuple[Any, ...]) -> float:
        """Return the p-value of a part with the mix of eras and types held still."""
        part = (belongs(one, name, label, self._aggregate_by) for one in self.evaluations)
        return held_still(list(strata(self.evaluations, part).values()))


def weigh(
    questions: Questions,
    *,
    aggregate_by: Any = "function_family_feature_family",
    min_sample_size: int = 20,
    recent_window_minutes: Any = 1440,
    pnl_column: str | None = None,
    sharpe_years: float | None = None,
    max_pairs: int = MAX_PAIRS,
    **filters: Any,
) -> Evidence:
    """Weigh what a search shows against chance; the arguments mean what they do in questions.

    Pairs are the `max_pairs` most frequent. `sharpe_years` is over how many years each Sharpe
    ratio was measured, if they are per year: see `luckiest`. All claims together are wrong in at
    most 2.5 of 100 searches that are nothing but noise.
    """
    kept = questions.checked_filters(filters)
    scope = _Scope(selected(questions.snapshot, kept), aggregation(aggregate_by))
    patterns = questions.get_search_patterns(**kept).result
    stats = questions.get_search_stats(
        aggregate_by=aggregate_by,
        min_sample_size=min_sample_size,
        time_windows="lifetime",
        **kept,
    ).result
    pairs = _pairs(questions.get_correlation_patterns(top_n=_ALL_PAIRS, **kept).result.pairs)
    minutes = questions.get_yield_analysis(
        recent_window_minutes=recent_window_minutes, **kept
    ).result.recent_window_minutes
    cutoff = time.time() - minutes * 60
    recent = strata(scope.evaluations, (one.timestamp >= cutoff for one in scope.evaluations))
    tables = {
        "overall": _shares("overall", [Part((), scope.passed, scope.total)]),
        "settings": _settings(recent),
        "pairs": _tested("pairs", pairs[:max_pairs], scope),
        "families": _tested("families", _families(patterns), scope),
        "groups": _tested("groups", _groups(stats), scope),
        "depths": _tested("depths", _depths(patterns), scope),
        "trend": _trend(recent, minutes),
        "luck": _luck(scope.evaluations, pnl_column, sharpe_years),
    }
    findings = (
        about_parts(tables["pairs"], "most frequent pairs", max(0, len(pairs) - max_pairs)),
        about_parts(tables["groups"], "groups", stats.total_groups - stats.groups_shown),
        about_parts(tables["families"], "function families"),
        about_parts(tables["depths"], "depths"),
        about_trend(list(tables["trend"].dicts())),
        about_luck(list(tables["luck"].dicts())),
    )
    return Evidence(kept, findings, tables)


def _pairs(pairs: Iterable[Any]) -> list[Part]:
    parts = [
        Part((one.function_a, one.function_b), one.passed_cooccurrences, one.total_cooccurrences)
        for one in pairs
    ]
    return sorted(parts, key=lambda part: (-part.total, part.label))


def _families(patterns: Any) -> list[Part]:
    parts = [
        Part((one.function_family,), one.passed, one.total) for one in patterns.family_yield_rates
    ]
    return sorted(parts, key=lambda part: (-part.total, str(part.label[0])))


def _depths(patterns: Any) -> list[Part]:
    return [Part((one.depth,), one.passed, one.total) for one in patterns.depth_distribution]


def _groups(stats: Any) -> list[Part]:
    parts: list[Part] = []
    for row in stats.rows:
        (window,) = row.windows
        label = tuple(sorted(map(str, side)) for side in row.group_key)
        # A share of whole numbers, so that it rounds back to the number that passed.
        passed = round(window.yield_rate * window.evaluation_count)
        parts.append(Part(label, passed, window.evaluation_count))
    return sorted(parts, key=lambda part: (-part.total, part.label))


def _share_cells(parts: Sequence[Part]) -> list[tuple[Any, ...]]:
    passed, total = [part.passed for part in parts], [part.total for part in parts]
    return [
        (part.total, part.passed, part.passed / part.total if part.total else 0.0, low, high)
        for part, low, high in zip(parts, *wilson(passed, total), strict=True)
    ]


def _shares(name: str, parts: Sequence[Part]) -> Table:
    cells = _share_cells(parts)
    rows = [(*part.label, *share) for part, share in zip(parts, cells, strict=True)]
    return table(name, SHAPES[name], rows)


def _tested(name: str, parts: Sequence[Part], scope: _Scope) -> Table:
    """Return parts with their tests against the rest of the scope."""
    if not parts:
        return table(name, SHAPES[name], [])
    counts = [part.passed for part in parts], [part.total for part in parts]
    p_values = against_rest(*counts, scope.passed, scope.total)
    rows: list[tuple[Any, ...]] = []
    for part, share, p, q in zip(
        parts, _share_cells(parts), p_values, corrected(p_values, name), strict=True
    ):
        others = scope.total - part.total
        rest = (scope.passed - part.passed) / others if others else None
        still = scope.held_still(name, part.label) if q <= LEVEL else None
        apart = still is not None and still <= LEVEL
        rows.append((*part.label, *share, rest, p, q, still, apart))
    return table(name, SHAPES[name], rows)


def _settings(strata_of: Mapping[Setting, Stratum]) -> Table:
    parts = [Part(key, one.passed, one.total) for key, one in strata_of.items()]
    rows = [
        (*part.label, *share, one.part_total, one.part_passed)
        for part, share, one in zip(parts, _share_cells(parts), strata_of.values(), strict=True)
    ]
    return table("settings", SHAPES["settings"], rows)


def trend_row(strata: Sequence[Stratum]) -> tuple[Any, ...] | None:
    """Return the trend of the yield with the mix held still; None where no part is recent, or all.

    From `recent_total` on, the columns of the table "trend".
    """
    total, recent = sum(one.total for one in strata), sum(one.part_total for one in strata)
    if recent in {0, total}:
        return None
    passed = sum(one.part_passed for one in strata)
    lifetime = sum(one.passed for one in strata) / total
    expected = math.fsum(one.part_total * one.passed / one.total for one in strata) / recent
    share = passed / recent
    p_value = held_still(strata)
    (q_value,) = corrected([p_value], "trend")
    effects = (lifetime, share, expected, expected - lifetime, share - expected)
    return (recent, passed, *effects, p_value, q_value, q_value <= LEVEL)


def _trend(strata_of: Mapping[Setting, Stratum], minutes: float) -> Table:
    row = trend_row(list(strata_of.values()))
    return table("trend", SHAPES["trend"], [] if row is None else [(minutes, *row)])


def _luck(evaluations: Iterable[Evaluation], pnl_column: str | None, years: float | None) -> Table:
    """Return the luck in each setting: eras differ in length and in how the market moved."""
    sharpes: dict[tuple[str, str], list[float]] = {}
    for one in evaluations:
        sharpes.setdefault(setting(one), []).append(sharpe_of(one, pnl_column))
    found = [(key, luck) for key in sorted(sharpes) if (luck := luckiest(sharpes[key], years))]
    q_values = corrected([luck.p_value for _, luck in found], "luck")
    rows = [
        (*key, *asdict(luck).values(), q, q <= LEVEL)
        for (key, luck), q in zip(found, q_values, strict=True)
    ]
    return table("luck", SHAPES["luck"], rows)
