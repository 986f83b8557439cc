"""Whether the read floor reads what the model reads: the same attributes, in the same order."""

from types import ModuleType
from typing import Any

from agreement import DisagreementError, stopped_clock
from kestrune.search_tracking import Evaluation
from operations import Operation
from shapes import reshaped

_log: list[tuple[str, str]] = []


class LoggingEvaluation(Evaluation):
    """A record that logs which attributes are read of it."""

    def __getattribute__(self, name: str) -> Any:
        if not name.startswith("__"):
            _log.append((object.__getattribute__(self, "eval_id"), name))
        return object.__getattribute__(self, name)


def require_same_reads(
    operation: Operation, records: list[Evaluation], model: ModuleType, floor: ModuleType
) -> None:
    """Raise DisagreementError unless the floor reads of `records` just what the model does."""
    logging = reshaped(records, LoggingEvaluation)
    reads = []
    with stopped_clock():
        for call in (operation.call(model, logging), operation.floor_call(floor, logging)):
            _log.clear()
            call()
            reads.append(list(_log))
    if reads[0] != reads[1]:
        raise DisagreementError(
            f"{operation.label}: the read floor does not read what the model does"
        )
