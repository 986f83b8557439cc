"""Arguments as people and programs write them, made into what the module takes; or refused."""

from __future__ import annotations

import math
import re
from collections.abc import Sequence
from datetime import timedelta
from enum import Enum
from typing import Any, TypeVar

from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow

from kestrune_search_report.errors import ArgumentError, not_among
from kestrune_search_report.narrowing import is_iterable, is_sequence

Member = TypeVar("Member", bound=Enum)

_LENGTH = re.compile(r"\s*(\d+(?:\.\d+)?)\s*([a-z]*)\s*", re.IGNORECASE)
_MINUTES = {
    **dict.fromkeys(("s", "sec", "second", "seconds"), 1 / 60),
    **dict.fromkeys(("", "m", "min", "minute", "minutes"), 1.0),
    **dict.fromkeys(("h", "hour", "hours"), 60.0),
    **dict.fromkeys(("d", "day", "days"), 1440.0),
    **dict.fromkeys(("w", "week", "weeks"), 10080.0),
}


def member(what: str, kind: type[Member], value: Any) -> Member:
    """Return a member of an enumeration: itself, or by its name in either case.

    Raises `ArgumentError` that lists the names.
    """
    if isinstance(value, kind):
        return value
    names = {one.name.casefold(): one for one in kind}
    word = str(value).casefold().replace("-", "_").replace(" ", "_")
    if isinstance(value, str) and word in names:
        return names[word]
    raise ArgumentError(not_among(what, value, list(names)))


def aggregation(value: Any) -> AggregateBy:
    """Return a grouping: a member, its name, or its pair of levels, ("function", "feature")."""
    if is_sequence(value):
        levels = tuple(value)
        for one in AggregateBy:
            if one.value == levels:
                return one
    return member("aggregate_by", AggregateBy, value)


def eval_pool(value: Any) -> EvalPool:
    """Return which evaluations to include: a member, or "all", "passed", "submitted"."""
    return member("eval_pool", EvalPool, value)


def time_windows(value: Any) -> list[TimeWindow] | None:
    """Return time windows: members or their names, one alone or several; None for all four."""
    if value is None:
        return None
    one_alone = isinstance(value, str | TimeWindow)
    given = [value] if one_alone else _several("time_windows", value)
    found = [member("time_windows", TimeWindow, one) for one in given]
    if len(set(found)) != len(found):
        raise ArgumentError("time_windows: one stands there twice.")
    return found


def minutes(what: str, value: Any) -> float:
    """Return a length in minutes: a number of them, a `timedelta`, or "90m", "1h", "2d", "1w"."""
    found = math.nan
    if isinstance(value, timedelta):
        found = value.total_seconds() / 60
    elif isinstance(value, str):
        parts = _LENGTH.fullmatch(value)
        if parts is not None and parts[2].casefold() in _MINUTES:
            found = float(parts[1]) * _MINUTES[parts[2].casefold()]
    elif isinstance(value, int | float) and not isinstance(value, bool):
        found = value
    if not (found > 0 and math.isfinite(found)):
        raise ArgumentError(
            f"{what}: {value!r} is no length of time above 0; write minutes as a number, or "
            '"90m", "1h", "2d", "1w".'
        )
    # A whole number of minutes stays one, as the module's own defaults are.
    return int(found) if found == int(found) else found


def windows(value: Any) -> list[float] | None:
    """Return lengths of windows in minutes, one alone or several; None for the usual three."""
    if value is None:
        return None
    one_alone = isinstance(value, str | int | float | timedelta)
    given = [value] if one_alone else _several("windows", value)
    return [minutes("windows", one) for one in given]


def whole(what: str, value: Any, least: int) -> int:
    """Return a whole number that is at least `least`."""
    if isinstance(value, bool) or not isinstance(value, int) or value < least:
        raise ArgumentError(f"{what}: {value!r} is no whole number from {least} on.")
    return value


def flag(what: str, value: Any) -> bool:
    """Return a truth value; nothing else stands for one."""
    if not isinstance(value, bool):
        raise ArgumentError(f"{what}: {value!r} is neither True nor False.")
    return value


def one_of(what: str, value: Any, known: Sequence[Any]) -> Any:
    """Return a value that is among those that there are; None stays None."""
    if value is not None and value not in known:
        raise ArgumentError(not_among(what, value, known))
    return value


def _several(what: str, value: Any) -> list[Any]:
    if not is_iterable(value):
        raise ArgumentError(f"{what}: {value!r} is no list.")
    given = list(value)
    if not given:
        raise ArgumentError(f"{what}: the list is empty; leave it out for the usual ones.")
    return given
