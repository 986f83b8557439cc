"""What a caller pays who fetches for each call: the first call on records just made.

In every round each contestant has its turn, once with the garbage collector on and once with it
off, in random order. Each turn finds the same state: what the turn before left has been collected,
its own records are made, no garbage is left of that, and the caches hold other memory.
"""

import functools
import gc
import random
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from time import perf_counter
from types import ModuleType
from typing import Any

import agreement
import machine
from contestants import EXTENSION, MODEL
from kinds import DATA_CLASS, Kind
from operations import Operation
from supply import Supply
from timing import Call, Clock, Race, Spread, collector

Prepare = Callable[[], Call]
"""Makes records, and returns a call on them."""

Turn = tuple[list[float], Prepare, bool]
"""Where its seconds go, what prepares it, and whether the collector works."""


@dataclass
class Fresh:
    """The first calls of one question, with the collector on and off."""

    label: str
    records: int
    on: Race
    off: Race

    def ratio(self, slower: str, faster: str = EXTENSION) -> Spread | None:
        """How many times longer one takes than the other, if both took part."""
        return self.on.ratio(slower, faster) if self._has(slower, faster) else None

    def ratio_uncollected(self, slower: str, faster: str = EXTENSION) -> Spread | None:
        """The same with the collector off for both."""
        return self.off.ratio(slower, faster) if self._has(slower, faster) else None

    @property
    def over_model(self) -> Spread | None:
        return self.ratio(MODEL)

    def stretch(self, name: str) -> Spread:
        """How many times longer a contestant takes with the collector on."""
        pairs = zip(self.on.seconds[name], self.off.seconds[name], strict=True)
        return Spread.of([on / off for on, off in pairs])

    def collecting(self, name: str) -> float:
        """The collector's share of a contestant's time."""
        return 1.0 - 1.0 / self.stretch(name).median

    def _has(self, *names: str) -> bool:
        return all(name in self.on.seconds for name in names)


def preparing(operation: Operation, module: ModuleType, supply: Supply, kind: Kind) -> Prepare:
    """Return what makes records of a kind and a module's call on them."""
    return lambda: operation.call(module, supply.records(kind))


def require_same(
    operation: Operation,
    supply: Supply,
    modules: Mapping[str, ModuleType],
    kinds: Sequence[Kind] = (DATA_CLASS,),
) -> None:
    """Raise DisagreementError unless all modules give one answer, whatever the kind."""
    calls = {
        f"{name} ({kind.name})": functools.partial(
            _prepared, preparing(operation, module, supply, kind)
        )
        for kind in kinds
        for name, module in modules.items()
    }
    agreement.require_same(operation.label, calls)


def _prepared(prepare: Prepare) -> Any:
    return prepare()()


def measure(
    operation: Operation,
    supply: Supply,
    modules: Mapping[str, ModuleType],
    rounds: int,
    clock: Clock = perf_counter,
) -> Fresh:
    """Race modules that are known to agree."""
    prepares = {
        name: preparing(operation, module, supply, DATA_CLASS) for name, module in modules.items()
    }
    return race(operation.label, len(supply), prepares, rounds, clock)


def race(
    label: str,
    records: int,
    prepares: Mapping[str, Prepare],
    rounds: int,
    clock: Clock = perf_counter,
) -> Fresh:
    """Race on fresh records, with the collector on and off."""
    result = Fresh(label, records, Race(), Race())
    run_turns(
        [
            (race.seconds.setdefault(name, []), prepare, race is result.on)
            for race in (result.on, result.off)
            for name, prepare in prepares.items()
        ],
        rounds,
        clock,
    )
    return result


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
    _elsewhere().find(b"\1")
    with collector(collects):
        started = clock()
        answer = call()
        seconds = clock() - started
    del answer, call
    return seconds


@functools.cache
def _elsewhere() -> bytearray:
    """Return more memory than the last cache holds."""
    # It is written, or all of its pages would be one page of zeros.
    return bytearray(b"\0") * int(1.25 * machine.last_cache())
