"""The extension against the data-frame libraries, with and without the conversion of records."""

import time
from collections.abc import Callable, Mapping
from types import ModuleType
from typing import Any

import agreement
from contestants import EXTENSION
from operations import OPERATIONS, Operation
from settings import Settings
from side_by_side import Line, run_race

from frames import duckdb_frames, pandas_frames, polars_frames
from frames.questions import EXPECTED, Answerer, same_tables

LIBRARIES: dict[str, dict[str, Answerer]] = {
    "pandas": pandas_frames.ANSWERERS,
    "polars": polars_frames.ANSWERERS,
    "DuckDB": duckdb_frames.ANSWERERS,
}
CONVERTED = " (converted)"
"""Marks a contestant that finds its frame ready."""

ASKED = tuple(
    operation
    for operation in OPERATIONS
    if operation.method in EXPECTED and operation.note != "filtered"
)


def measure(
    settings: Settings, extension: ModuleType, records: Mapping[str, list[Any]]
) -> list[Line]:
    """Race on each question that the libraries can express; `records` are by workload."""
    lines = []
    for operation in ASKED:
        of_workload = records[operation.workload]
        calls = {EXTENSION: operation.call(extension, of_workload)}
        for library, answerers in LIBRARIES.items():
            calls.update(_calls(library, answerers[operation.method], operation, of_workload))
        _require_same(operation, calls)
        lines.append(
            run_race(
                operation, len(of_workload), calls, settings.side_rounds, settings.turn_seconds
            )
        )
        for library in LIBRARIES:
            whole = lines[-1].ratio(library, EXTENSION)
            asked = lines[-1].ratio(library + CONVERTED, EXTENSION)
            print(f"    {library:<8}{whole.median:7.2f} times, {asked.median:.2f} converted")
    return lines


def _calls(
    library: str, answerer: Answerer, operation: Operation, records: list[Any]
) -> dict[str, Callable[[], Any]]:
    """Return a library's two calls: from the records on, and from its frame on."""
    frame = answerer.convert(records)

    def whole() -> Any:
        return answerer.ask(answerer.convert(records), time.time(), **operation.arguments)

    def converted() -> Any:
        return answerer.ask(frame, time.time(), **operation.arguments)

    return {library: whole, library + CONVERTED: converted}


def _require_same(operation: Operation, calls: Mapping[str, Callable[[], Any]]) -> None:
    """Raise DisagreementError unless every library answers as the extension does."""
    with agreement.stopped_clock():
        expected = EXPECTED[operation.method](calls[EXTENSION]())
        for library, answerers in LIBRARIES.items():
            for name in (library, library + CONVERTED):
                table = answerers[operation.method].table(calls[name]())
                if not same_tables(expected, table):
                    raise agreement.DisagreementError(
                        f"{operation.label}: {name} does not answer as the extension does"
                    )
