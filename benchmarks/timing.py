"""Timing side by side: in every round each contestant has its turn, in changing order."""

import gc
import random
import statistics
from collections.abc import Callable, Iterator, Mapping
from contextlib import contextmanager
from dataclasses import dataclass, field
from time import perf_counter
from typing import Any

Call = Callable[[], Any]
Clock = Callable[[], float]


@dataclass(frozen=True)
class Spread:
    """The median of some values, and the quartiles around it."""

    median: float
    low: float
    high: float

    @classmethod
    def of(cls, values: list[float]) -> "Spread":
        if len(values) == 1:
            return cls(values[0], values[0], values[0])
        low, median, high = statistics.quantiles(values, n=4, method="inclusive")
        return cls(median, low, high)


@dataclass
class Race:
    """The seconds per call of each contestant, round by round."""

    seconds: dict[str, list[float]] = field(default_factory=dict)

    def time(self, name: str) -> Spread:
        """Seconds per call."""
        return Spread.of(self.seconds[name])

    def ratio(self, slower: str, faster: str) -> Spread:
        """How many times longer one takes than the other, compared round by round."""
        return Spread.of(
            [a / b for a, b in zip(self.seconds[slower], self.seconds[faster], strict=True)]
        )


@contextmanager
def collector(works: bool) -> Iterator[None]:
    """Switch the garbage collector on or off, and back afterwards."""
    worked = gc.isenabled()
    (gc.enable if works else gc.disable)()
    try:
        yield
    finally:
        (gc.enable if worked else gc.disable)()


def race(
    calls: Mapping[str, Call],
    rounds: int,
    turn_seconds: float,
    seed: int = 1,
    clock: Clock = perf_counter,
) -> Race:
    """Time every call in each of `rounds` rounds.

    A turn repeats a call until `turn_seconds` are filled and counts the median; what a call
    returned is dropped outside its time. The garbage collector works as usual, but starts each
    turn with nothing to collect; the records stand outside of it.
    """
    rng = random.Random(seed)
    order = list(calls)
    result = Race({name: [] for name in order})
    gc.collect()
    gc.freeze()
    try:
        for _ in range(rounds):
            rng.shuffle(order)
            for name in order:
                result.seconds[name].append(_turn(calls[name], turn_seconds, clock))
    finally:
        gc.unfreeze()
    return result


def _turn(call: Call, turn_seconds: float, clock: Clock) -> float:
    gc.collect()
    times: list[float] = []
    spent = 0.0
    while spent < turn_seconds:
        started = clock()
        answer = call()
        times.append(clock() - started)
        spent += times[-1]
        del answer
    return statistics.median(times)
