"""What the libraries are asked: the settings, and the answers in a form that can be compared.

A table is a list of rows of a key and numbers. The libraries add in an order of their own, so
the last bits of sums may differ from the extension's; everything else must not.
"""

import math
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass
from typing import Any

from workloads import POOLS

from frames.columns import MEASURES, SEPARATOR

MIN_SAMPLE_SIZE = 100
TOP_PAIRS = 20
VELOCITY_MINUTES = (60, 360, 1440)
# By window, how many seconds it looks back. Without an era filter, the era's is the lifetime's.
WINDOWS: dict[str, float | None] = {"lifetime": None, "week": 604800.0, "day": 86400.0}
_SHOWN_WINDOWS = ("lifetime", "lifetime", "week", "day")
_NUMBERS = ("n", *MEASURES, "yield", "score", *(pool.name for pool in POOLS))

Row = tuple[tuple[Any, ...], tuple[float, ...]]
Table = list[Row]


@dataclass(frozen=True)
class Answerer:
    """How one library answers one question.

    `convert(records)` makes its frame, `ask(frame, now, **arguments)` its answer, and
    `table(answer)` the rows to compare.
    """

    convert: Callable[[list[Any]], Any]
    ask: Callable[..., Any]
    table: Callable[[Any], Table]


def stats_table(rows: Iterable[Mapping[str, Any]]) -> Table:
    """Rows of columns "<window>_<number>", beside the two sides of the key."""
    return [
        (
            tuple(tuple(row[side].split(SEPARATOR)) for side in ("functions", "features")),
            tuple(
                float(row[f"{window}_{number}"]) for window in _SHOWN_WINDOWS for number in _NUMBERS
            ),
        )
        for row in rows
    ]


def patterns_table(depths: Iterable[Any], families: Iterable[Any]) -> Table:
    """Rows of (depth or family, total, passed, rate)."""
    return [
        ((kind, str(name)), (int(total), int(passed), float(rate)))
        for kind, part in (("depth", depths), ("family", families))
        for name, total, passed, rate in part
    ]


def velocity_table(windows: Iterable[tuple[int, int]]) -> Table:
    """(total, passed) of each of VELOCITY_MINUTES; rates are per hour."""
    return [
        ((minutes,), (total, passed, total / (minutes / 60.0), passed / (minutes / 60.0)))
        for minutes, (total, passed) in zip(VELOCITY_MINUTES, windows, strict=True)
    ]


def pairs_table(rows: Iterable[tuple[str, str, int, int, float]]) -> Table:
    """Rows of (function, function, total, passed, lift)."""
    return [((a, b), (int(total), int(good), float(lift))) for a, b, total, good, lift in rows]


def _expected_stats(result: Any) -> Table:
    return [
        (
            tuple(tuple(sorted(side)) for side in row.group_key),
            tuple(
                float(number)
                for window in row.windows
                for number in (
                    window.evaluation_count,
                    *(getattr(window, name) for name in MEASURES),
                    window.yield_rate,
                    window.composite_score,
                    *window.submittable_yield.values(),
                )
            ),
        )
        for row in result.rows
    ]


# By method: the extension's result as a table.
EXPECTED: dict[str, Callable[[Any], Table]] = {
    "get_search_stats": _expected_stats,
    "get_search_patterns": lambda result: patterns_table(
        ((b.depth, b.total, b.passed, b.yield_rate) for b in result.depth_distribution),
        ((f.function_family, f.total, f.passed, f.yield_rate) for f in result.family_yield_rates),
    ),
    "get_search_velocity": lambda result: velocity_table(
        (window.total_evaluations, window.total_passed) for window in result.windows
    ),
    "get_correlation_patterns": lambda result: pairs_table(
        (p.function_a, p.function_b, p.total_cooccurrences, p.passed_cooccurrences, p.lift)
        for p in result.pairs
    ),
}


def same_tables(one: Table, other: Table) -> bool:
    """Whether two tables hold the same keys and, but for rounding, the same numbers."""
    left, right = sorted(one), sorted(other)
    return len(left) == len(right) and all(
        a_key == b_key
        and len(a) == len(b)
        and all(math.isclose(x, y, rel_tol=1e-9, abs_tol=1e-9) for x, y in zip(a, b, strict=True))
        for (a_key, a), (b_key, b) in zip(left, right, strict=True)
    )
