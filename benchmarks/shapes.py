"""Records of other makes, with the values of data-class records."""

from collections.abc import Iterable
from typing import Any

from kestrune.search_tracking import Evaluation
from kinds import NAMES, PropertyEvaluation, SlotEvaluation

SHAPES = {"slots": SlotEvaluation, "properties": PropertyEvaluation}


def reshaped(records: Iterable[Evaluation], shape: Any) -> list[Any]:
    """Return the same records in another shape; they share their values with `records`."""
    return [shape(*(getattr(record, name) for name in NAMES)) for record in records]
