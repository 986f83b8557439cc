"""The objects of one case on one side: made from a source of choices, logging what touches them."""

from __future__ import annotations

import struct
import time
from collections.abc import Callable, Sequence
from contextlib import ExitStack
from typing import Any, TypeVar

from differential.sources import Source
from support.outcome import Outcome, capture

T = TypeVar("T")

NOW = 1_700_000_000.0


def nan_of(bits: int) -> float:
    """The not-a-number with that bit pattern."""
    value: float = struct.unpack("<d", struct.pack("<Q", bits))[0]
    return value


NANS = (float("nan"), nan_of(0xFFF8000000000000), nan_of(0x7FF8000000000123))


class World:
    """One side of a case.

    `module` is the side's implementation. `trace` logs what the implementation did to the objects
    made here; `tag` names objects whose identity counts. Moods: "clean" cases hold ordinary
    values, "odd" ones unusual values that work, "broken" ones also values that do not.
    """

    def __init__(self, module: Any, source: Source) -> None:
        self.module = module
        self.below = source.below
        self.trace: list[Any] = []
        self.labels: dict[int, str] = {}
        self.cleanup = ExitStack()
        self.clock: Callable[[], Any] = lambda: NOW
        self._kept: list[Any] = []
        # Where two different NaNs meet, Python itself says now the one, now the other: it depends
        # on how often the same line ran before. Cases that can come there are marked.
        self.mixes_nans = False
        self.mood = self.pick(("clean", "clean", "odd", "odd", "broken"))
        self.nan: float = self.pick(NANS)
        # Whether the records are ordinary ones of one class, but for an exception now and then.
        self.steady = self.chance(30)
        self.steady_shape = self.below(4)

    def chance(self, percent: int) -> bool:
        """True in about `percent` of 100 cases."""
        return self.below(100) >= 100 - percent

    def pick(self, options: Sequence[T]) -> T:
        """One of `options`; the first is the simplest."""
        return options[self.below(len(options))]

    def odd(self, percent: int = 20) -> bool:
        """True now and then, when unusual values are wanted."""
        return self.mood != "clean" and self.chance(percent)

    def broken(self, percent: int = 3) -> bool:
        """True rarely, when values that do not work are wanted."""
        return self.mood == "broken" and self.chance(percent)

    def tag(self, value: T, label: str) -> T:
        """Name `value`: outcomes then tell it from everything else, equal or not."""
        self.labels[id(value)] = f"{label} {len(self.labels)}"
        self._kept.append(value)
        return value

    def note(self, *entry: Any) -> None:
        """Append to the trace."""
        self.trace.append(entry)

    def patch(self, target: Any, name: str, value: Any) -> None:
        """Set an attribute until the case is over."""
        missing = object()
        before = vars(target).get(name, missing)
        setattr(target, name, value)
        if before is missing:
            self.cleanup.callback(delattr, target, name)
        else:
            self.cleanup.callback(setattr, target, name, before)

    def run(self, call: Callable[[], Any]) -> Outcome:
        """The outcome of `call` under this world's clock."""
        with self.cleanup:
            self.patch(time, "time", self._tick)
            return capture(call, self.labels, self.trace)

    def _tick(self) -> Any:
        self.note("clock")
        return self.clock()
