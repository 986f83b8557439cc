"""One part of a run in seconds, for whoever changes the extension; nothing is written.

Only the extension and the model take part, so that nothing but the extension has to be installed.
Times are the process's own: other programs that run meanwhile count as little as they can.
"""

from collections.abc import Mapping
from time import process_time

import by_kind
import contestants
import fresh
from contestants import EXTENSION, MODEL
from kinds import KINDS
from operations import OPERATIONS
from settings import Settings
from supply import Supply
from timing import Call, Race, Spread, race
from workloads import NARROW, WIDE

_HEADING = "{:<48}{:>22}{:>15}{:>10}{:>11}{:>11}{:>12}{:>20}".format(
    "times faster than the model:",
    "fresh (quartiles)",
    "collector off",
    "repeated",
    "fresh, ms",
    "repeated",
    "fresh/rep.",
    "collector: ext model",
)
_KINDS_HEADING = "{:<48}{:<30}{:>22}{:>8}{:>11}".format(
    "times faster than the model:", "", "fresh (quartiles)", "share", "fresh, ms"
)


class Glance:
    """The part of a run that is asked for, on the operations whose label contains `text`."""

    def __init__(self, settings: Settings, text: str) -> None:
        self._settings = settings
        self._modules = {EXTENSION: contestants.extension(), MODEL: contestants.model()}
        self._supplies: dict[str, Supply] = {}
        self._operations = [operation for operation in OPERATIONS if text in operation.label]

    def fresh(self) -> None:
        """Race on fresh records, the collector on and off, and in repeated calls."""
        print(_HEADING)
        for operation in self._operations:
            supply = self._supply(operation.workload)
            line = fresh.measure(
                operation, supply, self._modules, self._settings.rounds, process_time
            )
            records = self._supply(operation.workload).records(fresh.DATA_CLASS)
            calls = {
                name: operation.call(module, records) for name, module in self._modules.items()
            }
            print(_fresh_row(line, self._repeated(calls)), flush=True)

    def kinds(self) -> None:
        """Race on fresh records of every kind."""
        print(_KINDS_HEADING)
        for operation in self._operations:
            if operation.method not in by_kind.ASKED or operation.note == "filtered":
                continue
            supply = self._supply(operation.workload)
            lines = by_kind.measure(
                operation, supply, self._modules, KINDS, self._settings.rounds, process_time
            )
            for line in lines:
                print(
                    f"{line.label:<48}{line.kind:<30}{_spread(line.over_model):>22}"
                    f"{by_kind.share(line, lines):8.2f}"
                    f"{line.race.time(EXTENSION).median * 1e3:11.3f}"
                )

    def _repeated(self, calls: Mapping[str, Call]) -> Race:
        return race(calls, self._settings.rounds, self._settings.turn_seconds, clock=process_time)

    def _supply(self, workload: str) -> Supply:
        if workload not in self._supplies:
            made = next(one for one in (NARROW, WIDE) if one.name == workload)
            self._supplies[workload] = Supply(made.records(self._settings.records))
        return self._supplies[workload]


def _spread(spread: Spread) -> str:
    return f"{spread.median:.2f} ({spread.low:.2f}-{spread.high:.2f})"


def _fresh_row(line: fresh.Fresh, repeated: Race) -> str:
    first, again = line.on.time(EXTENSION).median, repeated.time(EXTENSION).median
    shares = "".join(f"{line.collecting(name):7.0%}" for name in (EXTENSION, MODEL))
    return (
        f"{line.label:<48}{_spread(line.over_model):>22}"
        f"{line.over_model_uncollected.median:15.2f}{repeated.ratio(MODEL, EXTENSION).median:10.2f}"
        f"{first * 1e3:11.3f}{again * 1e3:11.3f}{first / again:12.2f}{shares:>20}"
    )
