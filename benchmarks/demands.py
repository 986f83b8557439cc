"""What is demanded of the extension besides each operation's own ratios, and what is not met."""

from collections.abc import Iterator

from contestants import EXTENSION
from frames.contest import LIBRARIES
from imports import STANDARD
from memory import Need
from results import Results
from side_by_side import Line

# Time per record at the largest number of records, in terms of that at the usual number.
GROWTH_AT_MOST = 1.3
# Bytes a record, beyond the records and the result.
MEMORY_AT_MOST = 200
# Time of the import, in terms of that of the standard modules that are imported.
IMPORT_AT_MOST = 1.5


def growth(results: Results, usual: int, name: str = EXTENSION) -> dict[str, float]:
    """How much more a record costs at the most records than at the usual number, by question."""
    lines = {(line.label, line.records): line for line in results.growth}
    most = max((records for _, records in lines), default=usual)
    return {
        label: _cost(line, name) / _cost(lines[label, usual], name)
        for (label, records), line in lines.items()
        if records == most > usual and (label, usual) in lines and name in line.race.seconds
    }


def _cost(line: Line, name: str) -> float:
    return line.race.time(name).median / line.records


def is_behind(line: Line, library: str) -> bool:
    """Whether a library, conversion included, is faster than the extension."""
    ratio = line.ratio(library, EXTENSION)
    return ratio is not None and ratio.median < 1.0


def needs_too_much(need: Need) -> bool:
    """Whether a call holds more memory than groups and the result explain."""
    return need.contestant == EXTENSION and need.peak - need.result >= MEMORY_AT_MOST


def missed(results: Results) -> Iterator[str]:
    """Say what is not met, one line each."""
    for line in results.operations + results.databases:
        if line.misses_model:
            yield f"{line.label}: {line.over_model.median:.2f} x the model, not {line.faster:g}"
        if line.misses_floor:
            yield f"{line.label}: {line.over_floor.median:.2f} x the floor, not {line.floors:g}"
    for line in results.frames:
        for library in LIBRARIES:
            if is_behind(line, library):
                yield f"{line.label}: behind {library}"
    for label, ratio in growth(results, results.operations[0].records).items():
        if ratio > GROWTH_AT_MOST:
            yield f"{label}: a record costs {ratio:.2f} x as much among the most"
    for need in results.memory:
        if needs_too_much(need):
            yield f"{need.question}: {need.peak - need.result:.0f} bytes a record"
    ratio = results.imports.ratio(EXTENSION, STANDARD).median
    if ratio > IMPORT_AT_MOST:
        yield f"import: {ratio:.2f} x the standard modules, not {IMPORT_AT_MOST:g}"
