"""The controller inside the fault build, as Python calls it."""

from __future__ import annotations

import ctypes
from array import array
from collections.abc import Iterable
from dataclasses import dataclass
from types import ModuleType

MOST_FRAMES = 24

Chain = tuple[int, ...]
"""Return addresses from a function that fails to the site that called it, without trailing 0."""


class Injected(BaseException):
    """What a chosen call raises. No code tolerates it: it is no Exception."""


@dataclass(frozen=True)
class Trial:
    """One way to let an operation fail: which calls, at which of their times, with which error."""

    scenario: str
    calls: tuple[tuple[Chain, int], ...] = ()
    error: str = "Injected"


class Watch:
    """Records which calls come by, or lets a chosen one fail."""

    def __init__(self, module: ModuleType, helpers: Iterable[int]) -> None:
        self._library = library = ctypes.PyDLL(str(module.__file__))
        library.faults_stop.restype = library.faults_met.restype = ctypes.c_size_t
        library.faults_live_blocks.restype = ctypes.c_long
        library.faults_start.argtypes = [ctypes.py_object, ctypes.c_int]
        library.faults_choose.argtypes = [ctypes.c_size_t, ctypes.c_char_p, ctypes.c_uint32]
        places = array("I", helpers)
        library.faults_set_helpers(places.tobytes(), ctypes.c_size_t(len(places)))

    def choose(self, *calls: tuple[Chain, int]) -> None:
        """Choose the call that fails at its so-manieth time, and the one that fails after it."""
        for number, (chain, occurrence) in enumerate(calls):
            whole = array("I", chain + (0,) * (MOST_FRAMES - len(chain)))
            self._library.faults_choose(number, whole.tobytes(), occurrence)

    def start(self, error: type[BaseException], every_turn: bool) -> None:
        """Begin to watch; chosen calls fail with `error`.

        With `every_turn`, each step of a loop gives others their turn, and not only some.
        """
        self._library.faults_start(error, every_turn)

    def stop(self) -> int:
        """Watch no longer. Returns how many of the chosen calls failed."""
        return int(self._library.faults_stop())

    def met(self) -> dict[Chain, int]:
        """How often each call came by since the start, or since the last one that failed."""
        count = int(self._library.faults_met())
        row = MOST_FRAMES + 1
        buffer = array("I", bytes(4 * row * count))
        address, _ = buffer.buffer_info()
        self._library.faults_read(ctypes.c_void_p(address))
        found = {}
        for begin in range(0, len(buffer), row):
            *places, times = buffer[begin : begin + row]
            found[tuple(place for place in places if place)] = times
        return found

    def live_blocks(self) -> int:
        """How many blocks of operator new are in use."""
        return int(self._library.faults_live_blocks())
