"""How many memory blocks, and how many references to given objects, a call leaves behind."""

from __future__ import annotations

import gc
import sys
from collections.abc import Callable, Iterable
from typing import Any

REPETITIONS = 60
ROUNDS = 5


def quietly(call: Callable[[], Any]) -> None:
    """Run `call` and drop what it returns or raises."""
    try:
        call()
    except Exception:
        return


def leaks_blocks(call: Callable[[], Any], repetitions: int = REPETITIONS, allowed: int = 0) -> bool:
    """Whether every run of `call` leaves memory blocks behind, beyond `allowed` ones.

    A leak grows in every round; caches and the interpreter's own lists may grow in one. The first
    rounds are quick. Only if blocks grew in all of them, garbage is collected around each round
    (not in the midst of one: a collection empties lists that then fill again).
    """
    enabled = gc.isenabled()
    gc.disable()
    try:
        for collecting in (False, False, False, True, True, True):
            if collecting:
                gc.collect()
            before = sys.getallocatedblocks()
            for _ in range(repetitions):
                quietly(call)
            if collecting:
                gc.collect()
            if sys.getallocatedblocks() - before < repetitions * (allowed + 0.5):
                return False
    finally:
        if enabled:
            gc.enable()
    return True


def reference_growth(call: Callable[[], Any], objects: Iterable[Any]) -> list[int]:
    """For each of `objects`: the references that so many runs of `call` leave to it.

    The least change of several rounds, as other code may hold or drop a reference in between.
    """
    objects = list(objects)
    quietly(call)
    growth = [sys.maxsize] * len(objects)
    for _ in range(ROUNDS):
        before = [sys.getrefcount(item) for item in objects]
        for _ in range(REPETITIONS):
            quietly(call)
        after = [sys.getrefcount(item) for item in objects]
        changes = [now - then for now, then in zip(after, before, strict=True)]
        growth = [min(old, new, key=abs) for old, new in zip(growth, changes, strict=True)]
        if not any(growth):
            break
        gc.collect()
    return growth
