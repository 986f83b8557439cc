"""RESULTS.md: the figures of one run as tables, ratios first."""

from collections.abc import Iterable
from pathlib import Path

import demands
import machine
from contestants import CYTHON, EXTENSION, FLOOR, MODEL
from frames.contest import CONVERTED, LIBRARIES
from imports import STANDARD
from memory import Need
from results import Results
from side_by_side import Line
from tables import mark, milliseconds, ratio, table

_INTRODUCTION = """\
# How fast it is

Written by `make bench`: one run, all contestants in turn on the same records, their answers
compared first. A ratio is the median over the rounds, with the quartiles in brackets; each round
compares times that were taken next to each other. *Extension* is `kestrune.search_analytics`;
*model* the same behaviour in plain Python (`tests/model/`); *Cython* the model compiled with it,
unchanged; *read floor* loops in C++ that read what the question has to read of the records,
through the interpreter's general calls, and do nothing else (`benchmarks/floor/`; they are
checked to read the attributes that the model reads, in its order). The records are dataclasses
decoded from JSON, as the example tracker returns them: *narrow* ones use 1 or 2 functions and
1 feature, *wide* ones 1 to 5 functions and 1 to 4 features. Unless said otherwise there are
{records} of them. The tracker's fetch is in no figure but its own. What is demanded of a figure
stands after it; **!** marks what is not met.
"""

_OPERATIONS = """\
## Where it must stand

More is better against the model and Cython, less against the floor.
"""

_FRAMES = """\
## Data-frame libraries

How many times longer the libraries take than the extension: from the records on, and from a
frame on that is ready. They do what they can express, on all cores, and are spared what the
extension does besides (result records, the caller's hooks).
"""

_OTHERS = """\
## Other records

Narrow records with slots or with a Python property for each attribute, and what the search demo
recorded.
"""

_GROWTH = """\
## Growth

Microseconds per record, narrow records; the last column compares the largest number with
{records}. The floor grows, too: fewer of the records are in the machine's caches.
"""

_MEMORY = """\
## Memory

Bytes per record beyond the records, at the peak of a call on {records} narrow ones; *result* is
what the answer itself keeps of that. Without the result, it must be less than {most}.
"""

_DATABASES = """\
## Yield analysis over a database

The floor is a bare loop that sends the same queries through the same connection: two for each
record. *Fetch* is the example tracker handing out the same records.
"""

_IMPORT = """\
## Import

In fresh interpreters: the extension, and the standard modules that it imports.
"""


def write(file: Path, results: Results) -> None:
    """Write the report of a run."""
    file.write_text("\n".join(_parts(results)))


def _parts(results: Results) -> Iterable[str]:
    count = results.operations[0].records
    yield _INTRODUCTION.format(records=count)
    yield table(("", ""), machine.facts(results.load))
    yield "![Times in terms of the extension's](results.svg)\n"
    yield _OPERATIONS
    yield _operations(results.operations)
    yield _not_met(results)
    yield _FRAMES
    yield _frames(results.frames)
    yield _OTHERS
    yield _operations(results.shapes + results.demo)
    yield _GROWTH.format(records=count)
    yield _growth(results, count)
    if results.memory:
        yield _MEMORY.format(records=results.memory[0].records, most=demands.MEMORY_AT_MOST)
        yield _memory(results.memory)
    yield _DATABASES
    yield _databases(results)
    yield _IMPORT
    yield _imports(results)


def _not_met(results: Results) -> str:
    missed = list(demands.missed(results))
    if not missed:
        return "All demands of this page are met.\n"
    return "Not met, on all of this page:\n\n" + "".join(f"- {text}\n" for text in missed)


def _operations(lines: Iterable[Line]) -> str:
    return table(
        ("question", "faster than model", "than Cython", "times the floor", "ms", "records"),
        (
            (
                line.label,
                ratio(line.over_model, line.faster, line.misses_model),
                ratio(line.ratio(CYTHON, EXTENSION)),
                ratio(line.over_floor, line.floors, line.misses_floor),
                milliseconds(line),
                str(line.records),
            )
            for line in lines
        ),
    )


def _frames(lines: Iterable[Line]) -> str:
    head = [name + more for name in LIBRARIES for more in ("", CONVERTED)]
    rows = []
    for line in lines:
        row = [line.label]
        for library in LIBRARIES:
            row.append(
                ratio(line.ratio(library, EXTENSION), missed=demands.is_behind(line, library))
            )
            row.append(ratio(line.ratio(library + CONVERTED, EXTENSION)))
        rows.append([*row, milliseconds(line)])
    return table(("question", *head, "extension, ms"), rows)


def _growth(results: Results, usual: int) -> str:
    sizes = sorted({line.records for line in results.growth})
    lines = {(line.label, line.records): line for line in results.growth}
    rows = []
    for label in dict.fromkeys(line.label for line in results.growth):
        for name in (EXTENSION, FLOOR, MODEL):
            grown = demands.growth(results, usual, name).get(label)
            rows.append(
                (
                    label,
                    name,
                    *(_microseconds(lines[label, size], name) for size in sizes),
                    "" if grown is None else _grown(grown, name),
                )
            )
    return table(("question", "contestant", *map(str, sizes), "growth"), rows)


def _microseconds(line: Line, name: str) -> str:
    if name not in line.race.seconds:
        return ""
    return f"{line.race.time(name).median / line.records * 1e6:.3f}"


def _grown(value: float, name: str) -> str:
    if name != EXTENSION:
        return f"{value:.2f}"
    return f"{value:.2f} / {demands.GROWTH_AT_MOST:g}{mark(value > demands.GROWTH_AT_MOST)}"


def _memory(needs: list[Need]) -> str:
    names = list(dict.fromkeys(need.contestant for need in needs))
    head = [f"{name}{part}" for name in names for part in ("", ", result")]
    rows: dict[str, list[str]] = {}
    for need in needs:
        row = rows.setdefault(need.question, [need.question])
        row.append(f"{need.peak:.0f}{mark(demands.needs_too_much(need))}")
        row.append(f"{need.result:.0f}")
    return table(("question", *head), rows.values())


def _databases(results: Results) -> str:
    return table(
        ("database", "times the floor", "faster than model", "ms", "floor", "fetch", "records"),
        (
            (
                fetch.database,
                ratio(line.over_floor, line.floors, line.misses_floor),
                ratio(line.over_model),
                milliseconds(line),
                milliseconds(line, FLOOR),
                f"{fetch.seconds.median * 1e3:.2f}",
                str(fetch.records),
            )
            for line, fetch in zip(results.databases, results.fetches, strict=True)
        ),
    )


def _imports(results: Results) -> str:
    race = results.imports
    rows = []
    for name in race.seconds:
        spread = race.ratio(name, STANDARD) if name != STANDARD else None
        demand = demands.IMPORT_AT_MOST if name == EXTENSION else None
        missed = spread is not None and demand is not None and spread.median > demand
        rows.append((name, ratio(spread, demand, missed), f"{race.time(name).median * 1e3:.2f}"))
    return table(("import", "times the standard modules", "ms"), rows)
