"""The first parts of RESULTS.md: fresh records, on the newest interpreter and on each."""

from collections.abc import Iterable, Sequence

import by_kind
import demands
from by_kind import KindLine
from contestants import CYTHON, EXTENSION, MODEL
from demands import EVERY_ROW, Version
from fresh import Fresh
from results import Results
from tables import mark, median, milliseconds, ratio, table


def newest(results: Results) -> str:
    """How each operation fares on one interpreter."""
    version = results.version
    rows = []
    for line, repeated in zip(results.fresh, results.operations, strict=True):
        first, again = (race.time(EXTENSION).median for race in (line.on, repeated.race))
        rows.append(
            (
                line.label,
                ratio(
                    line.ratio(MODEL),
                    demands.faster(line.label, version),
                    demands.is_slow(line, version),
                ),
                ratio(line.ratio(CYTHON)),
                _uncollected(line, version),
                ratio(repeated.over_model),
                milliseconds(line.on),
                milliseconds(repeated.race),
                f"{first / again:.2f}",
            )
        )
    head = (
        "question",
        "faster than model",
        "than Cython",
        "than model, collector off",
        "than model, repeated call",
        "ms",
        "ms, repeated",
        "fresh / repeated",
    )
    return table(head, rows)


def _uncollected(line: Fresh, version: Version) -> str:
    return ratio(
        line.ratio_uncollected(MODEL),
        demands.faster_uncollected(line.label, version),
        demands.is_slow_uncollected(line, version),
    )


def versions(runs: Sequence[Results]) -> str:
    """How each operation fares on each interpreter, the collector on."""
    rows = []
    for label in _labels(runs):
        row = [label]
        for results in runs:
            line = _line(results.fresh, label)
            row.append(
                median(
                    line.ratio(MODEL),
                    demands.faster(label, results.version),
                    demands.is_slow(line, results.version),
                )
            )
        rows.append(row)
    return table(("question", *_names(runs)), rows)


def times(runs: Sequence[Results]) -> str:
    """Milliseconds of the extension's first call and of a repeated one, on each interpreter."""
    rows = []
    for label in _labels(runs):
        row = [label]
        for results in runs:
            repeated = next(line for line in results.operations if line.label == label)
            fresh = _line(results.fresh, label)
            row.append(f"{milliseconds(fresh.on)}, {milliseconds(repeated.race)}")
        rows.append(row)
    return table(("question", *_names(runs)), rows)


def collector(results: Results) -> str:
    """What share of each contestant's time the collector takes."""
    names = list(results.fresh[0].on.seconds)
    rows = [
        (
            line.label,
            *(f"{line.collecting(name):.0%}" for name in names),
            ratio(line.ratio(MODEL)),
            ratio(line.ratio_uncollected(MODEL)),
        )
        for line in results.fresh
    ]
    return table(("question", *names, "faster than model, on", "off"), rows)


def stretches(runs: Sequence[Results]) -> str:
    """What the collector costs where it has most to do, and what it leaves, on each interpreter."""
    rows = []
    for name in (EXTENSION, MODEL, CYTHON):
        row = [f"{name}, {EVERY_ROW.rpartition(', ')[2]}: on, in terms of off"]
        for results in runs:
            line = _line(results.fresh, EVERY_ROW)
            if name not in line.on.seconds:
                row.append("")
                continue
            demand = demands.STRETCH_AT_MOST if name == EXTENSION else None
            missed = name == EXTENSION and demands.collects_too_much(line)
            row.append(median(line.stretch(name), demand, missed))
        rows.append(row)
    for label in _labels(runs):
        if not label.endswith("filtered"):
            row = [f"{label}: faster than model, collector off"]
            for results in runs:
                line = _line(results.fresh, label)
                demand = demands.faster_uncollected(label, results.version)
                missed = demands.is_slow_uncollected(line, results.version)
                row.append(median(line.ratio_uncollected(MODEL), demand, missed))
            rows.append(row)
    return table(("", *_names(runs)), rows)


def kinds(results: Results) -> str:
    """How each kind of records fares on one interpreter, and its share of the data class's."""
    questions = [operation.label for operation in by_kind.ASKED]
    rows: dict[str, list[str]] = {}
    for line in results.kinds:
        rows.setdefault(line.kind, [line.kind]).append(_kind(line, results))
    return table(("kind", *questions), rows.values())


def _kind(line: KindLine, results: Results) -> str:
    share = by_kind.share(line, results.kinds)
    missed = mark(demands.falls_short(line, results))
    return f"{line.over_model.median:.2f}, {share:.0%}{missed}"


def _labels(runs: Sequence[Results]) -> Iterable[str]:
    return [line.label for line in runs[0].fresh]


def _line(lines: Iterable[Fresh], label: str) -> Fresh:
    return next(line for line in lines if line.label == label)


def _names(runs: Sequence[Results]) -> Iterable[str]:
    return [results.name for results in runs]
