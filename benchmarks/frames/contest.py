"""The extension against the data-frame libraries, with and without the conversion of records."""

import importlib
import time
from collections.abc import Callable, Mapping
from types import ModuleType
from typing import Any

import agreement
import fresh
from contestants import EXTENSION
from fresh import Fresh, Prepare
from kinds import DATA_CLASS
from operations import OPERATIONS, Operation
from settings import Settings
from side_by_side import Line, run_race
from supply import Supply

from frames.questions import EXPECTED, Answerer, same_tables

# By library, the module that asks it.
LIBRARIES = {
    "pandas": "frames.pandas_frames",
    "polars": "frames.polars_frames",
    "DuckDB": "frames.duckdb_frames",
}

ASKED = tuple(
    operation
    for operation in OPERATIONS
    if operation.method in EXPECTED and operation.note != "filtered"
)

Answerers = Mapping[str, Mapping[str, Answerer]]
"""By library, and by method."""


def measure(
    settings: Settings,
    extension: ModuleType,
    supplies: Mapping[str, Supply],
    absent: dict[str, str],
) -> tuple[list[Fresh], list[Line]]:
    """Race on each question that the libraries can express; `supplies` are by workload.

    Returns the first calls on fresh records, which they convert, and repeated calls on frames that
    are ready, beside the extension's on records. Notes in `absent` which library is missing.
    """
    lines, converted = [], []
    libraries = _installed(absent)
    for operation in ASKED if libraries else ():
        supply = supplies[operation.workload]
        records = supply.records(DATA_CLASS)
        calls = {EXTENSION: operation.call(extension, records)} | {
            library: _asking(answerers[operation.method], operation, records)
            for library, answerers in libraries.items()
        }
        _require_same(operation, calls, libraries)
        converted.append(
            run_race(operation, len(records), calls, settings.side_rounds, settings.turn_seconds)
        )
        del records, calls
        prepares = {EXTENSION: fresh.preparing(operation, extension, supply, DATA_CLASS)} | {
            library: _converting(answerers[operation.method], operation, supply)
            for library, answerers in libraries.items()
        }
        lines.append(fresh.race(operation.label, len(supply), prepares, settings.side_rounds))
        for library in libraries:
            whole = lines[-1].ratio(library)
            ready = converted[-1].ratio(library, EXTENSION)
            print(f"    {library:<8}{whole.median:7.2f} times, {ready.median:.2f} converted")
    return lines, converted


def _installed(absent: dict[str, str]) -> Answerers:
    found = {}
    for library, module in LIBRARIES.items():
        try:
            found[library] = importlib.import_module(module).ANSWERERS
        except ImportError as error:
            absent[library] = str(error)
    return found


def _converting(answerer: Answerer, operation: Operation, supply: Supply) -> Prepare:
    """Return what makes records and a library's call from the records on."""

    def prepare() -> Callable[[], Any]:
        records = supply.records(DATA_CLASS)
        return lambda: answerer.ask(answerer.convert(records), time.time(), **operation.arguments)

    return prepare


def _asking(answerer: Answerer, operation: Operation, records: list[Any]) -> Callable[[], Any]:
    """Return a library's call from its frame on."""
    frame = answerer.convert(records)
    return lambda: answerer.ask(frame, time.time(), **operation.arguments)


def _require_same(
    operation: Operation, calls: Mapping[str, Callable[[], Any]], libraries: Answerers
) -> None:
    """Raise DisagreementError unless every library answers as the extension does."""
    with agreement.stopped_clock():
        expected = EXPECTED[operation.method](calls[EXTENSION]())
        for library, answerers in libraries.items():
            table = answerers[operation.method].table(calls[library]())
            if not same_tables(expected, table):
                raise agreement.DisagreementError(
                    f"{operation.label}: {library} does not answer as the extension does"
                )
