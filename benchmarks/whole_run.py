"""All parts of a run on one interpreter, one after the other."""

import sys

import by_kind
import contestants
import databases
import fresh
import growth
import imports
import machine
import memory
import show
from frames import contest
from kinds import DATA_CLASS, kinds
from operations import OPERATIONS, QUESTIONS, Operation
from reads import require_same_reads
from results import Results
from settings import Settings
from shapes import PropertyEvaluation, reshaped
from side_by_side import announce, compare, run_race
from supply import Supply
from workloads import NARROW, WIDE

# Every so manyth record is enough to see what is read.
_FEW = 20


class WholeRun:
    """One run over all parts; `results` fills as it goes."""

    def __init__(self, settings: Settings) -> None:
        self.settings = settings
        self.results = Results(sys.version_info[:2], machine.sources())
        self.results.interpreter = machine.interpreter()
        self.modules = contestants.answering(self.results.absent)
        self.floor = contestants.floor()
        self.supplies = {
            workload.name: Supply(workload.records(settings.records)) for workload in (NARROW, WIDE)
        }

    def everything(self) -> Results:
        """Take all parts, the most telling first."""
        self.results.machine = machine.machine()
        for part in (
            self.operations,
            self.kinds,
            self.imports,
            self.memory,
            self.databases,
            self.properties,
            self.demo,
            self.frames,
            self.growth,
        ):
            part()
        return self.results

    def operations(self, text: str = "") -> None:
        """Race on the operations whose label contains `text`: first calls, then repeated ones."""
        announce(f"The operations, {self.settings.records} records")
        print(show.FRESH_HEADING)
        for operation in OPERATIONS:
            if text in operation.label:
                self._operation(operation)

    def _operation(self, operation: Operation) -> None:
        supply = self.supplies[operation.workload]
        fresh.require_same(operation, supply, self.modules)
        first = fresh.measure(operation, supply, self.modules, self.settings.fresh_rounds)
        self.results.fresh.append(first)
        records = supply.records(DATA_CLASS)
        require_same_reads(operation, records[::_FEW], self.modules[contestants.MODEL], self.floor)
        calls = {name: operation.call(module, records) for name, module in self.modules.items()}
        calls[contestants.FLOOR] = operation.floor_call(self.floor, records)
        repeated = run_race(
            operation, len(records), calls, self.settings.rounds, self.settings.turn_seconds
        )
        self.results.operations.append(repeated)
        print(show.fresh_row(first, repeated.race), flush=True)

    def kinds(self) -> None:
        announce("Kinds of records")
        print(show.KIND_HEADING)
        supply = Supply(NARROW.records(self.settings.kind_records))
        every = kinds(self.results.absent)
        modules = {name: self.modules[name] for name in (contestants.EXTENSION, contestants.MODEL)}
        for operation in by_kind.ASKED:
            lines = by_kind.measure(operation, supply, modules, every, self.settings.kind_rounds)
            self.results.kinds += lines
            for line in lines:
                print(show.kind_row(line, lines), flush=True)

    def frames(self) -> None:
        announce("Data frames")
        supplies = {
            workload.name: Supply(workload.records(self.settings.side_records))
            for workload in (NARROW, WIDE)
        }
        self.results.frames, self.results.converted = contest.measure(
            self.settings,
            self.modules[contestants.EXTENSION],
            supplies,
            self.results.absent,
        )

    def properties(self) -> None:
        announce("Records with properties")
        records = NARROW.records(self.settings.side_records)
        self._others("properties", reshaped(records, PropertyEvaluation))

    def demo(self) -> None:
        announce("The demo's records")
        try:
            import demo_records

            records = demo_records.records(self.settings.demo_evaluations)
        except ImportError as error:
            self.results.absent["the demo's records"] = str(error)
            return
        self._others("demo", records)

    def databases(self) -> None:
        announce("The yield analysis over a database")
        self.results.databases, self.results.fetches = databases.measure(
            self.settings, self.modules, self.floor, self.results.absent
        )

    def growth(self) -> None:
        announce("Growth")
        self.results.growth = growth.measure(self.settings, self.modules, self.floor)

    def memory(self) -> None:
        announce("Memory beyond the records")
        self.results.memory = memory.measure(self.settings.memory_records, self.modules)

    def imports(self) -> None:
        announce("Import")
        self.results.imports = imports.measure(self.settings.import_rounds)

    def _others(self, name: str, records: list) -> None:
        for question in QUESTIONS:
            line = compare(
                Operation(question.method, name),
                records,
                self.modules,
                self.floor,
                self.settings.side_rounds,
                self.settings.turn_seconds,
            )
            self.results.others.append(line)
