"""The filters that a tracker honours, over the evaluations of a snapshot."""

from __future__ import annotations

import json
from collections.abc import Iterable
from typing import Any

from kestrune_search_report.errors import FilterError
from kestrune_search_report.evaluation import Evaluation

EQUALITIES = (
    "era_id",
    "eval_type",
    "named_universe",
    "strategy_pool_id",
)
SIGNAL_POOLS = ("signal_pool_id", "strategy_signal_pool")


def canonical(value: Any) -> str:
    """Return one text for all values that mean the same in JSON."""
    return json.dumps(value, sort_keys=True, separators=(",", ":"), default=repr)


def kept(
    evaluations: Iterable[Evaluation],
    known: frozenset[str],
    passed_only: bool,
    filters: dict[str, Any],
) -> list[Evaluation]:
    """Return the evaluations that pass every filter that is not None, in their order.

    Where both signal pools are asked for, a signal has to be in the first or a strategy built
    on the second, since no evaluation has both. Raises `FilterError` for a filter on a field
    that is not among `known`: it could only be ignored.
    """
    _demand(known, filters)
    for name in EQUALITIES:
        if (wanted := filters.get(name)) is not None:
            evaluations = [one for one in evaluations if getattr(one, name) == wanted]
    if (wanted := filters.get("metaparameters")) is not None:
        text = canonical(wanted)
        evaluations = [one for one in evaluations if canonical(one.metaparameters) == text]
    pools = [(name, filters[name]) for name in SIGNAL_POOLS if filters.get(name) is not None]
    if pools:
        evaluations = [
            one for one in evaluations if any(getattr(one, name) == pool for name, pool in pools)
        ]
    if passed_only:
        evaluations = [one for one in evaluations if one.passed_thresholds]
    return list(evaluations)


def _demand(known: frozenset[str], filters: dict[str, Any]) -> None:
    asked = {name for name, wanted in filters.items() if wanted is not None}
    pools = asked & set(SIGNAL_POOLS)
    # One of the two will do: a search of signals alone has no strategies built on pools.
    lacking = sorted(asked - set(SIGNAL_POOLS) - known)
    if pools and not pools & known:
        lacking += sorted(pools)
    if lacking:
        raise FilterError(
            f"no record has {' or '.join(lacking)}, so that filter cannot be honoured."
        )
