"""What a reader of the answers has to know, and the answers do not say."""

from __future__ import annotations

import math
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.asking import Questions
from kestrune_search_report.evaluation import Evaluation
from kestrune_search_report.fields import MEASURES
from kestrune_search_report.selection import QUESTION_LIMIT, matching, selected

_WINDOWS = (("last_24h", 86_400.0), ("last_week", 604_800.0))


@dataclass(frozen=True)
class Caveat:
    """A warning: `about` is a short name that programs can tell it by."""

    about: str
    text: str


def caveats(
    questions: Questions,
    filters: Mapping[str, Any],
    *,
    aggregate_by: Any,
    min_sample_size: int,
    recent_window_minutes: float,
) -> tuple[Caveat, ...]:
    """Return what to warn of, with these arguments of the questions."""
    snapshot = questions.snapshot
    evaluations = selected(snapshot, filters)
    found = [Caveat("source", note) for note in snapshot.notes]
    if not evaluations:
        return (*found, Caveat("empty", "No evaluation passes the filters."))
    found += _cut(len(matching(snapshot, filters)))
    found += _ages(evaluations, recent_window_minutes)
    found += _samples(questions, filters, aggregate_by, min_sample_size)
    found += _numbers(evaluations)
    found += _sameness(evaluations)
    if any(math.isinf(pool.is_correlation_threshold) for pool in snapshot.pools):
        found.append(
            Caveat("pools", "A pool has no limit: what is submittable to it is all that passed.")
        )
    return tuple(found)


def _cut(there: int) -> list[Caveat]:
    if there < QUESTION_LIMIT:
        return []
    more = there - QUESTION_LIMIT
    older = f"{more} older ones are" if more else "older ones may be"
    text = f"A question reads the newest {QUESTION_LIMIT} evaluations; {older} left out."
    return [Caveat("cut", text)]


def _ages(evaluations: Sequence[Evaluation], recent_window_minutes: float) -> list[Caveat]:
    stamps = [one.timestamp for one in evaluations]
    now = time.time()
    span = now - min(stamps)
    found: list[Caveat] = []
    windows = (*_WINDOWS, ("the recent window", recent_window_minutes * 60))
    whole = [name for name, seconds in windows if span <= seconds]
    empty = [name for name, seconds in windows if now - max(stamps) > seconds]
    if whole:
        text = f"The search began {_length(span)} ago: {' and '.join(whole)} hold all of it."
        found.append(Caveat("young", text))
    if empty:
        text = (
            f"The newest evaluation is {_length(now - max(stamps))} old: "
            f"{' and '.join(empty)} hold nothing. `ending_now` moves a search to the present."
        )
        found.append(Caveat("old", text))
    if (ahead := sum(stamp > now + 60 for stamp in stamps)) > 0:
        text = f"{ahead} evaluations are stamped later than now; all windows hold them."
        found.append(Caveat("future", text))
    return found


def _length(seconds: float) -> str:
    for unit, length in (("days", 86_400.0), ("hours", 3600.0), ("minutes", 60.0)):
        if seconds >= 2 * length:
            return f"{seconds / length:.0f} {unit}"
    return f"{seconds:.0f} seconds"


def _samples(
    questions: Questions, filters: Mapping[str, Any], aggregate_by: Any, min_sample_size: int
) -> list[Caveat]:
    answer = questions.get_search_stats(
        aggregate_by=aggregate_by, min_sample_size=0, time_windows="lifetime", **filters
    )
    sizes = sorted((row.evaluation_count for row in answer.result.rows), reverse=True)
    if not sizes or sizes[0] >= min_sample_size:
        return []
    tenth = sizes[min(9, len(sizes) - 1)]
    shown = sum(size >= tenth for size in sizes)
    return [
        Caveat(
            "samples",
            f"min_sample_size={min_sample_size} hides all {len(sizes)} groups: the largest has "
            f"{sizes[0]} evaluations. {tenth} would show {shown} of them.",
        )
    ]


def _numbers(evaluations: Sequence[Evaluation]) -> list[Caveat]:
    found: list[Caveat] = []
    for name in MEASURES:
        odd = sum(not math.isfinite(getattr(one, name)) for one in evaluations)
        if odd:
            text = f"{name} is no finite number in {odd} evaluations: the means with them are none."
            found.append(Caveat("numbers", text))
    return found


def _sameness(evaluations: Sequence[Evaluation]) -> list[Caveat]:
    passed = sum(bool(one.passed_thresholds) for one in evaluations)
    if passed in {0, len(evaluations)}:
        many = "All" if passed else "None"
        return [Caveat("sameness", f"{many} of the evaluations passed: no yield differs.")]
    return []
