"""How each kind of records fares: the extension against the model, on fresh records of the kind."""

from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from time import perf_counter
from types import ModuleType

import fresh
from contestants import EXTENSION, MODEL
from kinds import DATA_CLASS, Kind
from operations import QUESTIONS, Operation
from supply import Supply
from timing import Clock, Race, Spread
from workloads import NARROW

# Suggestions read what statistics do.
ASKED = tuple(
    Operation(question.method, NARROW.name)
    for question in QUESTIONS
    if question.method != "get_suggestions"
)


@dataclass
class KindLine:
    """The first calls of one question on records of one kind."""

    label: str
    kind: str
    records: int
    race: Race

    @property
    def over_model(self) -> Spread:
        """How many times longer the model takes than the extension."""
        return self.race.ratio(MODEL, EXTENSION)


def measure(
    operation: Operation,
    supply: Supply,
    modules: Mapping[str, ModuleType],
    kinds: Sequence[Kind],
    rounds: int,
    clock: Clock = perf_counter,
) -> list[KindLine]:
    """Check that all kinds get one answer from all modules, then race them all."""
    fresh.require_same(operation, supply, modules, kinds)
    lines = [KindLine(operation.label, kind.name, len(supply), Race()) for kind in kinds]
    fresh.run_turns(
        [
            (
                line.race.seconds.setdefault(name, []),
                fresh.preparing(operation, module, supply, kind),
                True,
            )
            for line, kind in zip(lines, kinds, strict=True)
            for name, module in modules.items()
        ],
        rounds,
        clock,
    )
    return lines


def share(line: KindLine, lines: Sequence[KindLine]) -> float:
    """The ratio to the model, in terms of the data class's for the same question."""
    usual = next(
        other for other in lines if other.label == line.label and other.kind == DATA_CLASS.name
    )
    return line.over_model.median / usual.over_model.median
