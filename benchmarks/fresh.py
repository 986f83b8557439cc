"""What a caller pays who fetches for each call: the first call on records just made.

In every round each contestant has its turn, once with the garbage collector on and once with it
off, in random order. Each turn finds the same state: what the turn before left has been collected,
its own records are made, no garbage is left of that, and the caches hold something else.
"""

import gc
import random
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from functools import partial
from time import perf_counter
from types import ModuleType
from typing import Any

import agreement
from contestants import EXTENSION, MODEL
from kinds import DATA_CLASS, Kind
from operations import Operation
from supply import Supply
from timing import Call, Clock, Race, Spread, collector

Prepare = Callable[[], Call]
"""Makes records, and returns a call on them."""

Turn = tuple[list[float], Prepare, bool]
"""Where its seconds go, what prepares it, and whether the collector works."""

# More than the caches hold. It is written, or all of its pages would be one page of zeros.
_ELSEWHERE = bytearray(b"\0") * (128 * 2**20)


@dataclass
class Fresh:
    """The first calls of one question, with the collector on and off."""

    label: str
    records: int
    on: Race
    off: Race

    @property
    def over_model(self) -> Spread:
        """How many times longer the model takes than the extension."""
        return self.on.ratio(MODEL, EXTENSION)

    @property
    def over_model_uncollected(self) -> Spread:
        """The same with the collector off for both."""
        return self.off.ratio(MODEL, EXTENSION)

    def collecting(self, name: str) -> float:
        """The collector's share of a contestant's time."""
        return 1.0 - 1.0 / self.stretch(name).median

    def stretch(self, name: str) -> Spread:
        """How many times longer a contestant takes with the collector on."""
        pairs = zip(self.on.seconds[name], self.off.seconds[name], strict=True)
        return Spread.of([on / off for on, off in pairs])


def measure(
    operation: Operation,
    supply: Supply,
    modules: Mapping[str, ModuleType],
    rounds: int,
    clock: Clock = perf_counter,
) -> Fresh:
    """Check that the modules agree on a question, then race them on fresh records."""
    require_same_of_kinds(operation, supply, modules, [DATA_CLASS])
    on, off = Race(), Race()
    turns = [
        (race, name, preparing(operation, module, supply, DATA_CLASS))
        for race in (on, off)
        for name, module in modules.items()
    ]
    run_turns(
        [(race.seconds.setdefault(name, []), prepare, race is on) for race, name, prepare in turns],
        rounds,
        clock,
    )
    return Fresh(operation.label, len(supply), on, off)


def preparing(operation: Operation, module: ModuleType, supply: Supply, kind: Kind) -> Prepare:
    """Return what makes records of a kind and a module's call on them."""
    return lambda: operation.call(module, supply.records(kind))


def require_same_of_kinds(
    operation: Operation, supply: Supply, modules: Mapping[str, ModuleType], kinds: Sequence[Kind]
) -> None:
    """Raise DisagreementError unless all modules give one answer, whatever the kind."""
    prepares = {
        f"{name} ({kind.name})": preparing(operation, module, supply, kind)
        for kind in kinds
        for name, module in modules.items()
    }
    calls = {name: partial(_prepared, prepare) for name, prepare in prepares.items()}
    agreement.require_same(operation.label, calls)


def _prepared(prepare: Prepare) -> Any:
    return prepare()()


def run_turns(
    turns: Sequence[Turn], rounds: int, clock: Clock = perf_counter, seed: int = 1
) -> None:
    """Give each of `turns` its turn in each of `rounds` rounds, in random order."""
    rng = random.Random(seed)
    order = list(turns)
    gc.collect()
    # What the benchmark itself holds is no caller's.
    gc.freeze()
    try:
        for _ in range(rounds):
            rng.shuffle(order)
            for seconds, prepare, collects in order:
                seconds.append(_turn(prepare, collects, clock))
    finally:
        gc.unfreeze()


def _turn(prepare: Prepare, collects: bool, clock: Clock) -> float:
    gc.collect()
    call = prepare()
    gc.collect()
    _ELSEWHERE.find(b"\1")
    with collector(collects):
        started = clock()
        answer = call()
        seconds = clock() - started
    del answer, call
    return seconds
