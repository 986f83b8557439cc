"""RESULTS.md: the figures of the runs on all interpreters as tables, ratios first."""

from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path

import demands
import report_fresh
from contestants import CYTHON, EXTENSION, FLOOR, MODEL
from imports import STANDARD
from memory import Need
from results import Results
from side_by_side import Line
from tables import mark, median, milliseconds, ratio, table

_INTRODUCTION = """\
# How fast it is

Written by `make bench`: one run on each interpreter, all contestants in turn, their answers
compared first. A ratio is the median over the rounds, with the quartiles in brackets; each round
compares times that were taken soon after each other. *Extension* is `kestrune.search_analytics`;
*model* the same behaviour in plain Python (`tests/model/`); *Cython* the model compiled with it,
unchanged; *read floor* loops in C++ that read what the question has to read of the records,
through the interpreter's general calls, and do nothing else (`benchmarks/floor/`; they are
checked to read the attributes that the model reads, in its order). The records are data classes
with the values that the example tracker decodes from JSON: *narrow* ones use 1 or 2 functions and
1 feature, *wide* ones 1 to 5 functions and 1 to 4 features. Unless said otherwise there are
{records} of them.

*Fresh* records are what a caller has who fetches for each call: before each call new ones are
made, all garbage is collected, and memory larger than the last cache is read; turns are in random
order. *Repeated* calls find the same records again, hashed and partly in the caches. The tracker's
fetch is in no figure but its own. What is demanded of a figure stands after it; **!** marks what is
not met.
"""

_NEWEST = """\
## Fresh records, CPython {name}

How many times longer others take than the extension; the collector on, unless said otherwise.
"""

_VERSIONS = """\
## Fresh records, each CPython

How many times faster than the model on the same interpreter; the collector on.
"""

_WHERE = """\
## Interpreters and machine
"""

_TIMES = """\
## Times

Milliseconds of the extension on fresh records, and of a repeated call.
"""

_KINDS = """\
## Kinds of records

How many times faster than the model, both on the same fresh records of a kind, and what part that
is of the data class's ratio; {records} narrow records, the collector on. {demand} A record whose
`vars()` was asked has a dictionary of its own; where kinds are mixed, the next record's is random:
data class and `SimpleNamespace`, and `__slots__` as third. The last three are data classes whose
function and feature items are dictionaries with a key that is no string, dictionaries of objects'
attributes, and tuples of dictionaries instead of lists.
"""

_COLLECTOR = """\
## The garbage collector

Its share of the time of each contestant, on fresh records, CPython {name}: what a call is quicker
with the collector off. Small shares may be noise, and negative.
"""

_STRETCHES = """\
On each interpreter, what the collector costs where most objects are made, and what is left of the
ratio to the model when it is off for all:
"""

_FLOOR = """\
## Read floor

How many times longer the extension takes than the read floor, in repeated calls; less is better.
"""

_FRAMES = """\
## Data-frame libraries

How many times longer the libraries take than the extension, CPython {name}: from fresh records on,
with the collector on and off, and, in repeated calls, from a frame on that is ready. They do what
they can express, on all cores, and are spared what the extension does besides (result records, the
caller's hooks).
"""

_OTHERS = """\
## Other records

Narrow records with a Python property for each attribute, and what the search demo recorded;
repeated calls, CPython {name}.
"""

_GROWTH = """\
## Growth

Microseconds per record, narrow records, repeated calls, CPython {name}; the last column compares
the largest number with {records}. The floor grows, too: fewer of the records are in the machine's
caches.
"""

_MEMORY = """\
## Memory

Bytes per record beyond the records, at the peak of a call on {records} narrow ones, CPython {name};
*result* is what the answer itself keeps of that. Without the result, it must be less than {most}.
"""

_DATABASES = """\
## Yield analysis over a database

The floor is a bare loop that sends the same queries through the same connection: two for each
record. *Fetch* is the example tracker handing out the same records. CPython {name}.
"""

_IMPORT = """\
## Import

In fresh interpreters, CPython {name}: the extension, and the standard modules that it imports.
"""


def write(file: Path, runs: Sequence[Results], outdated: Mapping[str, str]) -> None:
    """Write the report of runs, the newest interpreter's first.

    `outdated` are left out: by name, why.
    """
    file.write_text("\n".join(_parts(runs, outdated)))


def _parts(runs: Sequence[Results], outdated: Mapping[str, str]) -> Iterable[str]:
    first = runs[0]
    count = first.fresh[0].records
    yield _INTRODUCTION.format(records=count)
    yield _NEWEST.format(name=first.name)
    yield report_fresh.newest(first)
    yield "![Times in terms of the extension's](results.svg)\n"
    yield _VERSIONS
    yield report_fresh.versions(runs)
    yield _not_met(runs)
    yield _WHERE
    yield _interpreters(runs, outdated)
    yield table(("", ""), first.machine)
    yield _TIMES
    yield report_fresh.times(runs)
    yield _KINDS.format(records=first.kinds[0].records, demand=_share_demanded(runs))
    for results in runs:
        yield f"CPython {results.name}:\n"
        yield report_fresh.kinds(results)
    yield _COLLECTOR.format(name=first.name)
    yield report_fresh.collector(first)
    yield _STRETCHES
    yield report_fresh.stretches(runs)
    yield _FLOOR
    yield _floors(runs)
    yield from _side_parts(runs)


def _side_parts(runs: Sequence[Results]) -> Iterable[str]:
    """Each part from the newest interpreter that has it."""
    if with_frames := _newest(runs, "frames"):
        yield _FRAMES.format(name=with_frames.name)
        yield _frames(with_frames)
    yield _OTHERS.format(name=runs[0].name)
    yield _others(runs[0].others)
    yield _GROWTH.format(name=runs[0].name, records=runs[0].fresh[0].records)
    yield _growth(runs[0])
    if with_memory := _newest(runs, "memory"):
        needs = with_memory.memory
        yield _MEMORY.format(
            name=with_memory.name, records=needs[0].records, most=demands.MEMORY_AT_MOST
        )
        yield _memory(needs)
    most = max(len(results.databases) for results in runs)
    with_databases = next(results for results in runs if len(results.databases) == most)
    yield _DATABASES.format(name=with_databases.name)
    yield _databases(with_databases)
    yield _IMPORT.format(name=runs[0].name)
    yield _imports(runs[0])


def _newest(runs: Sequence[Results], part: str) -> Results | None:
    return next((results for results in runs if getattr(results, part)), None)


def _interpreters(runs: Sequence[Results], outdated: Mapping[str, str]) -> str:
    """How each interpreter was built, and what could not take part on it."""
    facts = table(
        ("", *(results.name for results in runs)),
        (
            (what, *(dict(results.interpreter)[what] for results in runs))
            for what, _ in runs[0].interpreter
        ),
    )
    absent = [
        f"- {results.name}, left out: {name} ({reason})\n"
        for results in runs
        for name, reason in results.absent.items()
    ]
    absent += [f"- {name}: {reason}\n" for name, reason in outdated.items()]
    return "\n".join([facts, *(["".join(absent)] if absent else [])])


def _share_demanded(runs: Sequence[Results]) -> str:
    parts = [
        f"{share:.0%} on {results.name}"
        for results in runs
        if (share := demands.share_at_least(results.version)) is not None
    ]
    return f"It must be at least {', '.join(parts)}." if parts else ""


def _not_met(runs: Sequence[Results]) -> str:
    texts = []
    for results in runs:
        missed = list(demands.missed(results))
        texts.append(
            f"Not met on CPython {results.name}, on all of this page:\n\n"
            if missed
            else f"All demands of this page are met on CPython {results.name}.\n"
        )
        texts += [f"- {text}\n" for text in missed]
        texts.append("\n")
    return "".join(texts[:-1])


def _floors(runs: Sequence[Results]) -> str:
    rows = []
    for line in runs[0].operations:
        lines = [
            next(other for other in results.operations if other.label == line.label)
            for results in runs
        ]
        rows.append(
            (line.label, *(median(one.over_floor, one.floors, one.misses_floor) for one in lines))
        )
    return table(("question", *(results.name for results in runs)), rows)


def _frames(results: Results) -> str:
    libraries = [name for name in results.frames[0].on.seconds if name != EXTENSION]
    parts = ("", ", collector off", ", converted")
    rows = []
    for line, converted in zip(results.frames, results.converted, strict=True):
        row = [line.label]
        for library in libraries:
            row.append(ratio(line.ratio(library), missed=demands.is_behind(line, library)))
            row.append(ratio(line.ratio_uncollected(library)))
            row.append(ratio(converted.ratio(library, EXTENSION)))
        rows.append([*row, milliseconds(line.on)])
    head = [name + part for name in libraries for part in parts]
    return table(("question", *head, "extension, ms"), rows)


def _others(lines: Iterable[Line]) -> str:
    return table(
        ("question", "faster than model", "than Cython", "times the floor", "ms", "records"),
        (
            (
                line.label,
                ratio(line.over_model),
                ratio(line.ratio(CYTHON, EXTENSION)),
                ratio(line.over_floor),
                milliseconds(line.race),
                str(line.records),
            )
            for line in lines
        ),
    )


def _growth(results: Results) -> str:
    sizes = sorted({line.records for line in results.growth})
    lines = {(line.label, line.records): line for line in results.growth}
    rows = []
    for label in dict.fromkeys(line.label for line in results.growth):
        for name in (EXTENSION, FLOOR, MODEL):
            grown = demands.growth(results, name).get(label)
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
                milliseconds(line.race),
                milliseconds(line.race, FLOOR),
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
