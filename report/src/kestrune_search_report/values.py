"""Values as sources hold them (texts of a CSV file, cells of a frame) made into an evaluation's."""

from __future__ import annotations

import json
import math
from collections.abc import Callable
from datetime import date, datetime, timezone
from typing import Any

from kestrune_search_report.fields import Kind
from kestrune_search_report.narrowing import is_iterable, is_mapping, is_set

_TRUE = frozenset({"true", "t", "yes", "y", "1", "1.0"})
_FALSE = frozenset({"false", "f", "no", "n", "0", "0.0"})


def entry(holder: Any, name: str, default: Any = None) -> Any:
    """Return an entry of a mapping, an attribute of anything else, or a default."""
    if is_mapping(holder):
        return holder.get(name, default)
    return getattr(holder, name, default)


def is_blank(value: Any) -> bool:
    """Whether a cell holds nothing: None, an empty text, NaT or another library's own missing."""
    if value is None or (isinstance(value, str) and not value.strip()):
        return True
    # NaT is a datetime that equals nothing; pandas.NA cannot even say so.
    return type(value).__name__ in {"NaTType", "NAType"}


def _is_nan(value: Any) -> bool:
    return isinstance(value, float) and math.isnan(value)


def _plain(value: Any) -> Any:
    """Return Python's own number for a numpy scalar, anything else as it is."""
    item = getattr(value, "item", None)
    return item() if callable(item) and getattr(value, "shape", None) == () else value


def _text(value: Any) -> str | None:
    return None if _is_nan(value) else str(value)


def _number(value: Any) -> float:
    if isinstance(value, bool):
        raise TypeError("a truth value is no number")
    return float(value)


def _integer(value: Any) -> int | None:
    if _is_nan(value):
        return None
    number = _number(value)
    if number != int(number):
        raise ValueError(f"{value!r} is no whole number")
    return int(number)


def _flag(value: Any) -> bool | None:
    if _is_nan(value):
        return None
    word = str(value).strip().casefold()
    if word in _TRUE:
        return True
    if word in _FALSE:
        return False
    raise ValueError(f"{value!r} is neither true nor false")


def _time(value: Any) -> float:
    if isinstance(value, str):
        try:
            return float(value)
        except ValueError:
            # Up to Python 3.10 fromisoformat does not know the Z of UTC.
            value = datetime.fromisoformat(value.strip().replace("Z", "+00:00"))
    if isinstance(value, datetime):
        aware = value if value.tzinfo is not None else value.replace(tzinfo=timezone.utc)
        return aware.timestamp()
    if isinstance(value, date):
        return datetime(value.year, value.month, value.day, tzinfo=timezone.utc).timestamp()
    return _number(value)


def _names(value: Any) -> list[Any] | None:
    if _is_nan(value):
        return None
    if isinstance(value, str):
        text = value.strip()
        if text.startswith("["):
            return _names(json.loads(text))
        return [name.strip() for name in text.split(";") if name.strip()]
    if is_mapping(value) or not is_iterable(value):
        raise TypeError(f"{value!r} is no list of names")
    given = sorted(value) if is_set(value) else list(value)
    return [dict(item) if is_mapping(item) else item for item in given]


def _mapping(value: Any) -> dict[str, Any] | None:
    if _is_nan(value):
        return None
    loaded = json.loads(value) if isinstance(value, str) else value
    if not is_mapping(loaded):
        raise TypeError(f"{value!r} is no mapping")
    return {str(key): item for key, item in loaded.items() if item is not None}


_CONVERTERS: dict[Kind, Callable[[Any], Any]] = {
    "text": _text,
    "number": _number,
    "integer": _integer,
    "flag": _flag,
    "time": _time,
    "names": _names,
    "mapping": _mapping,
    "any": lambda value: value,
}


def converted(kind: Kind, value: Any) -> Any:
    """Return a cell as a value of a kind; None for a cell that holds nothing.

    Texts are read as a CSV file writes them: numbers and truth values, ISO dates (UTC where
    they name no zone), names between semicolons or as a JSON list, mappings as JSON objects.
    A number may be NaN. Raises `TypeError` or `ValueError` for what cannot be read so.
    """
    value = _plain(value)
    return None if is_blank(value) else _CONVERTERS[kind](value)
