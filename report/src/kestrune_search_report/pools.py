"""Signal pools: how close to the members of a pool a candidate may come."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.errors import SourceError
from kestrune_search_report.narrowing import is_mapping
from kestrune_search_report.values import entry


@dataclass(frozen=True)
class Pool:
    """A signal pool; `is_correlation_threshold` is above 0, infinity for no limit at all."""

    name: str
    is_correlation_threshold: float
    os_correlation_threshold: float | None = None


# What passed is submittable where nobody said how close it may come.
NO_LIMIT = (Pool("any", math.inf),)

PoolsLike = Mapping[str, float] | Iterable[Any] | None


def pools_from(given: PoolsLike) -> tuple[Pool, ...]:
    """Return pools, given as {name: threshold}, as objects or as dictionaries; None: no limit.

    Raises `SourceError` for a pool without a name or without a threshold above 0.
    """
    if given is None:
        return NO_LIMIT
    if is_mapping(given):
        thresholds = given.items()
        pools = tuple(
            _pool({"name": name, "is_correlation_threshold": value}) for name, value in thresholds
        )
    else:
        pools = tuple(_pool(item) for item in given)
    if not pools:
        raise SourceError("pools: none is given; leave them out for one without a limit.")
    return pools


def _pool(item: Any) -> Pool:
    name, threshold = entry(item, "name"), entry(item, "is_correlation_threshold")
    if not isinstance(name, str):
        raise SourceError(f"pools: {item!r} has no name.")
    if isinstance(threshold, bool) or not isinstance(threshold, int | float) or not threshold > 0:
        raise SourceError(
            f"pools: {name!r} needs an is_correlation_threshold above 0, not {threshold!r}."
        )
    return Pool(name, threshold, entry(item, "os_correlation_threshold"))
