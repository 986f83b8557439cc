"""What is demanded of the extension, by version of CPython, and what is not met."""

from collections.abc import Iterator

import by_kind
from by_kind import KindLine
from contestants import EXTENSION, MODEL
from fresh import Fresh
from imports import STANDARD
from memory import Need
from operations import OPERATIONS
from results import Results
from side_by_side import Line

Version = tuple[int, int]

EVERY_ROW = "get_search_stats, wide, min_sample_size=0"

# At least so many times faster than the model on fresh records, the collector on: on CPython 3.11,
# and on later ones. On 3.10 half of what 3.11 needs.
_FASTER = {
    "get_search_stats, narrow": (14.0, 14.0),
    "get_search_stats, wide": (18.0, 11.0),
    EVERY_ROW: (9.0, 6.0),
    "get_suggestions, narrow": (12.0, 12.0),
    "get_search_patterns, narrow": (9.0, 9.0),
    "get_search_patterns, wide": (9.0, 9.0),
    "get_correlation_patterns, narrow": (12.0, 11.0),
    "get_correlation_patterns, wide": (11.0, 10.0),
    "get_search_velocity, narrow": (3.5, 3.5),
    "get_yield_analysis, narrow, no database": (5.0, 5.0),
    **{
        operation.label: (10.0, 10.0) if operation.workload == "narrow" else (9.0, 9.0)
        for operation in OPERATIONS
        if operation.note == "filtered"
    },
}
# The same with the collector off for all.
_FASTER_UNCOLLECTED: dict[tuple[str, Version], float] = {
    ("get_search_stats, wide", (3, 11)): 9.0,
    ("get_search_stats, wide", (3, 14)): 8.0,
}
# Time with the collector on, in terms of that with it off, where a row is made of every group.
STRETCH_AT_MOST = 1.15
# Time per record at the largest number of records, in terms of that at the usual number.
GROWTH_AT_MOST = 1.3
# Bytes a record, beyond the records and the result.
MEMORY_AT_MOST = 200
# Time of the import, in terms of that of the standard modules that are imported.
IMPORT_AT_MOST = 1.5


def faster(label: str, version: Version) -> float:
    """How many times faster than the model an operation must be on fresh records."""
    old, new = _FASTER[label]
    if version >= (3, 12):
        return new
    return old if version == (3, 11) else old / 2


def faster_uncollected(label: str, version: Version) -> float | None:
    """The same with the collector off for all, where something is demanded."""
    return _FASTER_UNCOLLECTED.get((label, version))


def share_at_least(version: Version) -> float | None:
    """What part of the data class's ratio to the model every kind of records must reach."""
    if version >= (3, 13):
        return 0.7
    return 0.6 if version >= (3, 11) else None


def is_slow(line: Fresh, version: Version) -> bool:
    """Whether the extension is not as much faster than the model as it must be."""
    return line.ratio(MODEL).median < faster(line.label, version)


def is_slow_uncollected(line: Fresh, version: Version) -> bool:
    demand = faster_uncollected(line.label, version)
    return demand is not None and line.ratio_uncollected(MODEL).median < demand


def collects_too_much(line: Fresh) -> bool:
    """Whether the collector takes more of the extension's time than it may."""
    return line.label == EVERY_ROW and line.stretch(EXTENSION).median > STRETCH_AT_MOST


def falls_short(line: KindLine, results: Results) -> bool:
    """Whether a kind of records is too far behind the data class."""
    demand = share_at_least(results.version)
    return demand is not None and by_kind.share(line, results.kinds) < demand


def growth(results: Results, name: str = EXTENSION) -> dict[str, float]:
    """How much more a record costs at the most records than at the usual number, by question."""
    usual = results.operations[0].records
    lines = {(line.label, line.records): line for line in results.growth}
    most = max((records for _, records in lines), default=usual)
    return {
        label: _cost(line, name) / _cost(lines[label, usual], name)
        for (label, records), line in lines.items()
        if records == most > usual and (label, usual) in lines and name in line.race.seconds
    }


def _cost(line: Line, name: str) -> float:
    return line.race.time(name).median / line.records


def is_behind(line: Fresh, library: str) -> bool:
    """Whether a library, conversion included, is faster than the extension."""
    ratio = line.ratio(library)
    return ratio is not None and ratio.median < 1.0


def needs_too_much(need: Need) -> bool:
    """Whether a call holds more memory than groups and the result explain."""
    return need.contestant == EXTENSION and need.peak - need.result >= MEMORY_AT_MOST


def missed(results: Results) -> Iterator[str]:
    """Say what is not met, one line each."""
    yield from _missed_on_fresh_records(results)
    for line in results.operations + results.databases:
        if line.misses_floor:
            yield f"{line.label}: {line.over_floor.median:.2f} x the floor, not {line.floors:g}"
    for line in results.frames:
        for library in line.on.seconds:
            if is_behind(line, library):
                yield f"{line.label}: behind {library}"
    for label, ratio in growth(results).items():
        if ratio > GROWTH_AT_MOST:
            yield f"{label}: a record costs {ratio:.2f} x as much among the most"
    for need in results.memory:
        if needs_too_much(need):
            yield f"{need.question}: {need.peak - need.result:.0f} bytes a record"
    ratio = results.imports.ratio(EXTENSION, STANDARD).median
    if ratio > IMPORT_AT_MOST:
        yield f"import: {ratio:.2f} x the standard modules, not {IMPORT_AT_MOST:g}"


def _missed_on_fresh_records(results: Results) -> Iterator[str]:
    version = results.version
    for line in results.fresh:
        if is_slow(line, version):
            demand = faster(line.label, version)
            yield f"{line.label}: {line.ratio(MODEL).median:.2f} x the model, not {demand:g}"
        if is_slow_uncollected(line, version):
            yield (
                f"{line.label}: {line.ratio_uncollected(MODEL).median:.2f} x the model with the "
                f"collector off, not {faster_uncollected(line.label, version):g}"
            )
        if collects_too_much(line):
            yield (
                f"{line.label}: {line.stretch(EXTENSION).median:.2f} x its time with the "
                f"collector off, not {STRETCH_AT_MOST:g}"
            )
    short: dict[str, list[str]] = {}
    for line in results.kinds:
        if falls_short(line, results):
            text = f"{line.kind} {by_kind.share(line, results.kinds):.0%}"
            short.setdefault(line.label, []).append(text)
    for label, kinds in short.items():
        yield (
            f"{label}, less than {share_at_least(version):.0%} of the data class's ratio: "
            f"{', '.join(kinds)}"
        )
