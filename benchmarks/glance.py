"""One part of a run in seconds, for whoever changes the extension; nothing is written.

Only the extension and the model take part, so that nothing but the extension has to be installed.
Times are the process's own: other programs that run meanwhile count as little as they can.
"""

from time import process_time

import by_kind
import contestants
import fresh
import show
from contestants import EXTENSION, MODEL
from kinds import DATA_CLASS, kinds
from operations import OPERATIONS
from settings import Settings
from supply import Supply
from timing import race
from workloads import NARROW, WIDE


class Glance:
    """The part of a run that is asked for, on the operations whose label contains `text`."""

    def __init__(self, settings: Settings, text: str) -> None:
        self._settings = settings
        self._text = text
        self._modules = {EXTENSION: contestants.extension(), MODEL: contestants.model()}

    def fresh(self) -> None:
        """Race on fresh records, the collector on and off, and in repeated calls."""
        settings = self._settings
        print(show.FRESH_HEADING)
        supplies: dict[str, Supply] = {}
        for operation in OPERATIONS:
            if self._text not in operation.label:
                continue
            name = operation.workload
            if name not in supplies:
                workload = next(one for one in (NARROW, WIDE) if one.name == name)
                supplies[name] = Supply(workload.records(settings.records))
            supply = supplies[name]
            fresh.require_same(operation, supply, self._modules)
            line = fresh.measure(
                operation, supply, self._modules, settings.fresh_rounds, process_time
            )
            records = supply.records(DATA_CLASS)
            calls = {
                name: operation.call(module, records) for name, module in self._modules.items()
            }
            repeated = race(calls, settings.rounds, settings.turn_seconds, clock=process_time)
            print(show.fresh_row(line, repeated), flush=True)

    def kinds(self) -> None:
        """Race on fresh records of every kind."""
        print(show.KIND_HEADING)
        absent: dict[str, str] = {}
        every = kinds(absent)
        supply = Supply(NARROW.records(self._settings.kind_records))
        for operation in by_kind.ASKED:
            if self._text not in operation.label:
                continue
            rounds = self._settings.kind_rounds
            lines = by_kind.measure(operation, supply, self._modules, every, rounds, process_time)
            for line in lines:
                print(show.kind_row(line, lines), flush=True)
        for name, reason in absent.items():
            print(f"  left out: {name} ({reason})")
