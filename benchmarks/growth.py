"""How the cost of each question grows with the number of records."""

from collections.abc import Mapping
from types import ModuleType

from contestants import EXTENSION
from operations import QUESTIONS
from settings import Settings
from side_by_side import Line, compare
from workloads import NARROW

# At so many records a call takes a second or more, and a few tell enough.
FEW_ROUNDS_FROM, FEW_ROUNDS = 100_000, 3


def measure(settings: Settings, modules: Mapping[str, ModuleType], floor: ModuleType) -> list[Line]:
    """Race on narrow records of every size; the largest without the slower contestants."""
    lines = []
    for size in settings.growth_sizes:
        records = NARROW.records(size)
        field = modules if size <= settings.model_up_to else {EXTENSION: modules[EXTENSION]}
        rounds = settings.side_rounds
        if size >= FEW_ROUNDS_FROM:
            rounds = min(rounds, FEW_ROUNDS)
        print(f"  {size} records", flush=True)
        lines += [
            compare(question, records, field, floor, rounds, settings.turn_seconds)
            for question in QUESTIONS
        ]
    return lines
