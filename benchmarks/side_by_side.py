"""One question, put to all contestants: the answers are compared, then the times."""

from collections.abc import Callable, Mapping
from dataclasses import dataclass
from time import perf_counter
from types import ModuleType
from typing import Any

import agreement
from contestants import EXTENSION, FLOOR, MODEL
from operations import Operation
from timing import Race, Spread, race

_began = perf_counter()


@dataclass
class Line:
    """What a race of repeated calls found out; `floors` is how many times its floor the extension
    may take."""

    label: str
    records: int
    race: Race
    floors: float | None = None

    def ratio(self, slower: str, faster: str) -> Spread | None:
        """How many times longer one takes than the other, if both took part."""
        if slower in self.race.seconds and faster in self.race.seconds:
            return self.race.ratio(slower, faster)
        return None

    @property
    def over_model(self) -> Spread | None:
        return self.ratio(MODEL, EXTENSION)

    @property
    def over_floor(self) -> Spread | None:
        return self.ratio(EXTENSION, FLOOR)

    @property
    def misses_floor(self) -> bool:
        """Whether the extension takes more times its floor than it may."""
        spread = self.over_floor
        return self.floors is not None and spread is not None and spread.median > self.floors


def announce(part: str) -> None:
    """Print the name of the part that begins, and for how long the run has gone on."""
    print(f"\n{part} (after {perf_counter() - _began:.0f} s)", flush=True)


def report_progress(line: Line) -> None:
    """Print what a race found out."""
    parts = [f"  {line.label:<58}"]
    if EXTENSION in line.race.seconds:
        parts.append(f"{line.race.time(EXTENSION).median * 1e3:9.3f} ms")
    for what, spread, is_missed in (
        ("model", line.over_model, False),
        ("floor", line.over_floor, line.misses_floor),
    ):
        if spread is not None:
            mark = "!" if is_missed else " "
            parts.append(
                f"{what} {spread.median:6.2f}{mark} ({spread.low:.2f} to {spread.high:.2f})"
            )
    print("  ".join(parts), flush=True)


def compare(
    operation: Operation,
    records: list[Any],
    modules: Mapping[str, ModuleType],
    floor: ModuleType,
    rounds: int,
    turn_seconds: float,
) -> Line:
    """Check that the modules agree on a question, then race them and the read floor."""
    calls = {name: operation.call(module, records) for name, module in modules.items()}
    agreement.require_same(operation.label, calls)
    calls[FLOOR] = operation.floor_call(floor, records)
    return run_race(operation, len(records), calls, rounds, turn_seconds)


def run_race(
    operation: Operation,
    records: int,
    calls: Mapping[str, Callable[[], Any]],
    rounds: int,
    turn_seconds: float,
) -> Line:
    """Race calls that are known to agree, and print what came of it."""
    line = Line(operation.label, records, race(calls, rounds, turn_seconds), operation.floors)
    report_progress(line)
    return line
