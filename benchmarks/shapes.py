"""Records of other makes, with the values of dataclass records."""

from collections.abc import Iterable
from dataclasses import fields, make_dataclass
from typing import Any

from kestrune.search_tracking import Evaluation

_NAMES = tuple(field.name for field in fields(Evaluation))

SlotEvaluation: Any = make_dataclass("SlotEvaluation", [(n, object) for n in _NAMES], slots=True)
"""A dataclass whose attributes are slots."""


class PropertyEvaluation:
    """A record that answers through a Python property for each attribute."""

    def __init__(self, *values: Any) -> None:
        self._values = dict(zip(_NAMES, values, strict=True))


def _property(name: str) -> property:
    return property(lambda record: record._values[name])


for _name in _NAMES:
    setattr(PropertyEvaluation, _name, _property(_name))

SHAPES = {"slots": SlotEvaluation, "properties": PropertyEvaluation}


def reshaped(records: Iterable[Evaluation], shape: Any) -> list[Any]:
    """Return the same records in another shape; they share their values with `records`."""
    return [shape(*(getattr(record, name) for name in _NAMES)) for record in records]
