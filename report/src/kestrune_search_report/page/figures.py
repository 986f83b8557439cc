"""The figures that the page shows and that no answer holds ready."""

from __future__ import annotations

import math
import time
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.evidence.findings import named
from kestrune_search_report.evidence.shares import wilson
from kestrune_search_report.page.views import View


def rows_of(view: View, table: str) -> list[dict[str, Any]]:
    """Return the rows of a table of evidence."""
    return list(view.report.evidence.tables[table].dicts())


def pair_rows(view: View) -> list[dict[str, Any]]:
    """Return the pairs to show: of a part of the search only those that occur often enough."""
    rows = rows_of(view, "pairs")
    least = 1 if view.whole is None else view.report.arguments["min_sample_size"]
    return [row for row in rows if row["total"] >= least]


def finding(view: View, about: str) -> str:
    """Return what the evidence says in words about one of its tables."""
    return next(one.text for one in view.report.evidence.findings if one.about == about)


@dataclass(frozen=True)
class Group:
    """One group over all time, best score first where there are several.

    `apart` is 1 where it passes more often than chance explains, -1 where less often, else 0.
    """

    functions: tuple[str, ...]
    features: tuple[str, ...]
    name: str
    total: int
    sharpe: float
    correlation: float
    turnover: float
    rate: float
    low: float
    high: float
    score: float
    apart: int


def groups(view: View) -> list[Group]:
    """Return the groups that are large enough, best score first; those without one last."""
    evidence = {
        (tuple(row["functions"]), tuple(row["features"])): row for row in rows_of(view, "groups")
    }
    found: list[Group] = []
    for row in view.report.answers["get_search_stats"].table.dicts():
        key = tuple(row["functions"]), tuple(row["features"])
        if row["window"] != "lifetime" or key not in evidence:
            continue
        share = evidence[key]
        apart = share["told_apart"] * (1 if share["rate"] > (share["rest_rate"] or 0) else -1)
        found.append(
            Group(
                *key,
                named(row),
                row["evaluation_count"],
                row["sharpe"],
                row["correlation"],
                row["turnover"],
                share["rate"],
                share["low"],
                share["high"],
                row["composite_score"],
                apart,
            )
        )
    known = [one for one in found if not math.isnan(one.score)]
    return sorted(known, key=lambda one: -one.score)


@dataclass(frozen=True)
class Overall:
    """How many evaluations got how far."""

    total: int
    passed: int
    rate: float
    low: float
    high: float
    submitted: int
    useful: int
    judged: int

    @classmethod
    def of(cls, view: View) -> Overall:
        """Return the figures of a view."""
        total = len(view.evaluations)
        passed = sum(bool(one.passed_thresholds) for one in view.evaluations)
        (low,), (high,) = wilson([passed], [total])
        found = view.report.answers["get_yield_analysis"].figures
        return cls(
            total,
            passed,
            passed / total if total else 0.0,
            low,
            high,
            sum(bool(one.submitted) for one in view.evaluations),
            found["useful_evaluations"],
            found["useful_evaluations"] + found["not_useful_evaluations"],
        )


@dataclass(frozen=True)
class Bin:
    """A stretch of time that ends `ago` lengths before now."""

    ago: int
    total: int
    passed: int
    low: float
    high: float


_LENGTHS = ((3600.0, "hour"), (86400.0, "day"), (604800.0, "week"), (2592000.0, "30 days"))
_MOST_BINS = 42


def bins(view: View) -> tuple[list[Bin], str]:
    """Return the evaluations by day, oldest first, and the name of the length.

    Hours where the search is of the last two days; weeks and months where it is long. What is
    older than 42 lengths of 30 days counts to the oldest.
    """
    now = time.time()
    stamps = [one.timestamp for one in view.evaluations if math.isfinite(one.timestamp)]
    if not stamps:
        return [], "day"
    span = max(now - min(stamps), 1.0)
    fitting = [one for one in _LENGTHS if span / one[0] <= _MOST_BINS] or [_LENGTHS[-1]]
    length, name = fitting[0]
    last = min(math.floor(span / length), _MOST_BINS)
    totals, passes = [0] * (last + 1), [0] * (last + 1)
    for one in view.evaluations:
        if math.isfinite(one.timestamp):
            place = min(max(math.floor((now - one.timestamp) / length), 0), last)
            totals[place] += 1
            passes[place] += bool(one.passed_thresholds)
    lows, highs = wilson(passes, totals)
    cells = zip(range(last + 1), totals, passes, lows, highs, strict=True)
    return [Bin(*cell) for cell in cells][::-1], name


def useful_by_setting(view: View) -> dict[tuple[str, str], tuple[int, int]]:
    """Return by era and type how many submissions were useful, and how many were judged."""
    found: dict[tuple[str, str], tuple[int, int]] = {}
    for one in view.evaluations:
        if one.submission is not None and one.submission.useful_flag is not None:
            key = str(one.era_id or ""), str(one.eval_type or "")
            useful, judged = found.get(key, (0, 0))
            found[key] = useful + bool(one.submission.useful_flag), judged + 1
    return found


def spread(values: Sequence[float], most: int) -> list[int]:
    """Return which of many values to write down so that about `most` are."""
    step = max(1, math.ceil(len(values) / most))
    return [place for place in range(len(values)) if place % step == 0]
