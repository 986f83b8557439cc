"""All parts of a run, one after the other."""

from typing import Any

import contestants
import databases
import demo_records
import growth
import imports
import machine
import memory
from frames import contest
from operations import OPERATIONS, QUESTIONS, Operation
from reads import require_same_reads
from results import Results
from settings import Settings
from shapes import SHAPES, reshaped
from side_by_side import Line, announce, compare
from workloads import NARROW, WIDE

# Every so manyth record is enough to see what is read.
_FEW = 20


class WholeRun:
    """One run over all parts; `results` fills as it goes."""

    def __init__(self, settings: Settings) -> None:
        self.settings = settings
        self.modules = contestants.answering()
        self.floor = contestants.floor()
        self.records = {
            workload.name: workload.records(settings.records) for workload in (NARROW, WIDE)
        }
        self.results = Results(load=machine.load())

    def everything(self) -> None:
        """Take all parts, the most telling first."""
        for part in (
            self.operations,
            self.imports,
            self.memory,
            self.databases,
            self.shapes,
            self.demo,
            self.frames,
            self.growth,
        ):
            part()

    def operations(self, text: str = "") -> None:
        """Race on the operations whose label contains `text`."""
        announce(f"The operations, {self.settings.records} records")
        model = self.modules[contestants.MODEL]
        for operation in OPERATIONS:
            if text in operation.label:
                records = self.records[operation.workload]
                require_same_reads(operation, records[::_FEW], model, self.floor)
                line = self._compare(operation, records, self.settings.rounds)
                self.results.operations.append(line)

    def frames(self) -> None:
        announce("Data frames")
        records = {name: self._some(name) for name in self.records}
        self.results.frames = contest.measure(
            self.settings, self.modules[contestants.EXTENSION], records
        )

    def shapes(self) -> None:
        for name, shape in SHAPES.items():
            announce(f"Records with {name}")
            records = reshaped(self._some(NARROW.name), shape)
            self.results.shapes += self._questions(name, records)

    def demo(self) -> None:
        announce("The demo's records")
        records = demo_records.records(self.settings.demo_evaluations)
        self.results.demo = self._questions("demo", records)

    def databases(self) -> None:
        announce("The yield analysis over a database")
        self.results.databases, self.results.fetches = databases.measure(
            self.settings, self.modules, self.floor
        )

    def growth(self) -> None:
        announce("Growth")
        self.results.growth = growth.measure(self.settings, self.modules, self.floor)

    def memory(self) -> None:
        announce("Memory beyond the records")
        self.results.memory = memory.measure(self.settings.memory_records)

    def imports(self) -> None:
        announce("Import")
        self.results.imports = imports.measure(self.settings.import_rounds)

    def _some(self, workload: str) -> list[Any]:
        return self.records[workload][: self.settings.side_records]

    def _questions(self, workload: str, records: list[Any]) -> list[Line]:
        return [
            self._compare(Operation(question.method, workload), records, self.settings.side_rounds)
            for question in QUESTIONS
        ]

    def _compare(self, operation: Operation, records: list[Any], rounds: int) -> Line:
        return compare(
            operation, records, self.modules, self.floor, rounds, self.settings.turn_seconds
        )
