"""RESULTS.md: the figures of one run as tables, ratios first."""

from collections.abc import Callable, Iterable
from pathlib import Path

import machine
from contestants import CYTHON, EXTENSION, FLOOR, MODEL
from frames.contest import CONVERTED, LIBRARIES
from imports import STANDARD
from memory import Need
from results import Results
from side_by_side import Line
from timing import Spread

_INTRODUCTION = """\
# How fast it is

Written by `make bench`: one run, all contestants in turn on the same records, their answers
compared first. A ratio is the median over the rounds, with the quartiles in brackets; each round
compares times that were taken next to each other. *Extension* is `kestrune.search_analytics`;
*model* the same behaviour in plain Python (`tests/model/`); *Cython* the model compiled with it,
unchanged; *read floor* loops in C++ that only read what the question has to read of the records
(`benchmarks/floor/`). The records are dataclasses decoded from JSON, as the example tracker
returns them: *narrow* ones use 1 or 2 functions and 1 feature, *wide* ones 1 to 5 functions and
1 to 4 features. Unless said otherwise there are {records} of them. The tracker's fetch is in no
figure but its own.
"""

_DEMANDS = """\
More is better against the model and Cython, less against the floor; what is demanded stands after
each. **!** marks what is not met.
"""

_FRAMES = """\
How many times longer the libraries take than the extension: from the records on, and from a
frame on that is ready. They do what they can express, on all cores, and are spared what the
extension does besides (result records, the caller's hooks).
"""

_GROWTH = """\
Microseconds per record, narrow records; the last column compares the largest number with
{usual}. The read floor grows by what the machine's caches no longer hold.
"""

_MEMORY = """\
Bytes per record beyond the records, at the peak of a call on {records} narrow ones; *result* is
what the answer itself keeps of that.
"""

_DATABASES = """\
The floor is a bare loop that sends the same queries through the same connection: two for each
record. *Fetch* is the example tracker handing out the same records.
"""

_IMPORT = """\
In fresh interpreters: the extension, and the standard modules that it imports.
"""


def write(file: Path, results: Results) -> None:
    """Write the report of a run."""
    file.write_text("\n".join(_parts(results)))


def _parts(results: Results) -> Iterable[str]:
    count = results.operations[0].records
    yield _INTRODUCTION.format(records=count)
    yield _table(("", ""), machine.facts(results.load))
    yield "![Times in terms of the extension's](results.svg)\n"
    yield f"## Where it must stand\n\n{_DEMANDS}"
    yield _operations(results.operations)
    yield f"## Data-frame libraries\n\n{_FRAMES}"
    yield _frames(results.frames)
    yield "## Other records\n"
    yield _operations(results.shapes + results.demo)
    growing = _GROWTH.format(usual=count)
    yield f"## Growth\n\n{growing}"
    yield _growth(results.growth, count)
    if results.memory:
        yield f"## Memory\n\n{_MEMORY.format(records=results.memory[0].records)}"
        yield _memory(results.memory)
    yield f"## Yield analysis over a database\n\n{_DATABASES}"
    yield _databases(results)
    yield f"## Import\n\n{_IMPORT}"
    yield _imports(results)


def _table(head: Iterable[str], rows: Iterable[Iterable[str]]) -> str:
    head = tuple(head)
    lines = [head, ("---",) + ("--:",) * (len(head) - 1), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def _ratio(spread: Spread | None, demand: float | None = None, missed: bool = False) -> str:
    if spread is None:
        return ""
    text = f"{spread.median:.2f} ({spread.low:.2f} to {spread.high:.2f})"
    if demand is not None:
        text += f" / {demand:g}{' **!**' if missed else ''}"
    return text


def _milliseconds(line: Line, name: str = EXTENSION) -> str:
    return f"{line.race.time(name).median * 1e3:.2f}"


def _operations(lines: Iterable[Line]) -> str:
    head = (
        "question",
        "faster than model",
        "faster than Cython",
        "times the floor",
        "ms",
        "records",
    )
    return _table(
        head,
        (
            (
                line.label,
                _ratio(line.over_model, line.faster, line.misses_model),
                _ratio(line.ratio(CYTHON, EXTENSION)),
                _ratio(line.over_floor, line.floors, line.misses_floor),
                _milliseconds(line),
                str(line.records),
            )
            for line in lines
        ),
    )


def _frames(lines: Iterable[Line]) -> str:
    names = [name + more for name in LIBRARIES for more in ("", CONVERTED)]
    return _table(
        ("question", *names, "extension, ms"),
        (
            (
                line.label,
                *(_ratio(line.ratio(name, EXTENSION)) for name in names),
                _milliseconds(line),
            )
            for line in lines
        ),
    )


def _growth(lines: list[Line], usual: int) -> str:
    sizes = sorted({line.records for line in lines})
    by_place = {(line.label, line.records): line for line in lines}
    rows = []
    for label in dict.fromkeys(line.label for line in lines):
        for name in (EXTENSION, FLOOR, MODEL):
            costs = {
                size: by_place[label, size].race.time(name).median / size * 1e6
                for size in sizes
                if name in by_place[label, size].race.seconds
            }
            grown = ""
            if usual in costs and sizes[-1] in costs and sizes[-1] > usual:
                grown = f"{costs[sizes[-1]] / costs[usual]:.2f}"
            shown = (f"{costs[size]:.3f}" if size in costs else "" for size in sizes)
            rows.append((label, name, *shown, grown))
    return _table(("question", "contestant", *map(str, sizes), "growth"), rows)


def _memory(needs: list[Need]) -> str:
    names = list(dict.fromkeys(need.contestant for need in needs))
    by_place = {(need.question, need.contestant): need for need in needs}

    def cells(question: str, value: Callable[[Need], float]) -> list[str]:
        return [f"{value(by_place[question, name]):.0f}" for name in names]

    questions = dict.fromkeys(need.question for need in needs)
    return _table(
        ("question", *(f"{name}, peak" for name in names), *(f"{name}, result" for name in names)),
        (
            (question, *cells(question, lambda n: n.peak), *cells(question, lambda n: n.result))
            for question in questions
        ),
    )


def _databases(results: Results) -> str:
    head = (
        "database",
        "records",
        "times the floor",
        "faster than model",
        "ms",
        "floor, ms",
        "fetch, ms",
    )
    return _table(
        head,
        (
            (
                fetch.database,
                str(fetch.records),
                _ratio(line.over_floor, line.floors, line.misses_floor),
                _ratio(line.over_model),
                _milliseconds(line),
                _milliseconds(line, FLOOR),
                f"{fetch.seconds.median * 1e3:.2f}",
            )
            for line, fetch in zip(results.databases, results.fetches, strict=True)
        ),
    )


def _imports(results: Results) -> str:
    race = results.imports
    assert race is not None
    return _table(
        ("import", "ms", "times the standard modules / at most"),
        (
            (
                name,
                f"{race.time(name).median * 1e3:.2f}",
                _ratio(race.ratio(name, STANDARD), 1.5 if name == EXTENSION else None),
            )
            for name in race.seconds
        ),
    )
