"""Which evaluations a part is made of: those of a pair, a family, a group, a depth."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

from kestrune.search_analytics import AggregateBy

from kestrune_search_report.evaluation import Evaluation, items_of, name_at
from kestrune_search_report.evidence.chance import Stratum

Setting = tuple[str, str]


def names_of(evaluation: Evaluation, side: str, level: str) -> list[str]:
    """Return the distinct names of one side at a level, sorted, as texts."""
    return sorted({str(name_at(item, side, level)) for item in items_of(evaluation, side)})


def belongs(
    evaluation: Evaluation, table: str, label: tuple[Any, ...], aggregate_by: AggregateBy
) -> bool:
    """Whether an evaluation is part of what `label` names in a table of evidence."""
    if table == "depths":
        return bool(evaluation.tree_depth == label[0])
    if table == "pairs":
        return set(names_of(evaluation, "function", "name")).issuperset(label)
    if table == "families":
        return str(label[0]) in names_of(evaluation, "function", "family")
    levels = aggregate_by.value or ("function", "feature")
    for side_and_level, names in zip(levels, label, strict=True):
        side, _, level = side_and_level.partition("_")
        if names_of(evaluation, side, level or "name") != names:
            return False
    return True


def setting(evaluation: Evaluation) -> Setting:
    """Return the era and the type of an evaluation, "" where they are not known."""
    return (str(evaluation.era_id or ""), str(evaluation.eval_type or ""))


def strata(evaluations: Iterable[Evaluation], part: Iterable[bool]) -> dict[Setting, Stratum]:
    """Return the counts of each setting, and of the part of it that is chosen, sorted."""
    counts: dict[Setting, list[int]] = {}
    for one, chosen in zip(evaluations, part, strict=True):
        found = counts.setdefault(setting(one), [0, 0, 0, 0])
        passed = bool(one.passed_thresholds)
        for place, more in enumerate((1, passed, chosen, chosen and passed)):
            found[place] += more
    return {key: Stratum(*counts[key]) for key in sorted(counts)}
