"""Making a failing program small: fewer choices, and smaller ones, that still fail alike."""

from __future__ import annotations

import multiprocessing
import signal
from collections.abc import Callable
from typing import Any

from fuzz.compare import difference

HANG_SECONDS = 20
AGREES, DIFFERS = "the two agree", "the two differ"


def _exit_with_verdict(choices: list[int], module: Any, oracle: Any) -> None:
    raise SystemExit(1 if difference(choices, module, oracle) else 0)


def verdict(choices: list[int], module: Any, oracle: Any) -> str:
    """What comes of a program, found out in a process of its own, which it may crash."""
    child = multiprocessing.get_context("fork").Process(
        target=_exit_with_verdict, args=(choices, module, oracle)
    )
    child.start()
    child.join(HANG_SECONDS)
    if child.is_alive():
        child.kill()
        child.join()
        return "it hangs"
    code = child.exitcode or 0
    if code < 0:
        return f"it crashes: {signal.Signals(-code).name}"
    return DIFFERS if code else AGREES


def shrunk(choices: list[int], fails: Callable[[list[int]], bool], tries: int = 4000) -> list[int]:
    """The shortest choices found that fail, after so many tries at most."""
    best = list(choices)

    def is_better(candidate: list[int]) -> bool:
        nonlocal best, tries
        if tries <= 0 or (len(candidate), candidate) >= (len(best), best):
            return False
        tries -= 1
        if fails(candidate):
            best = candidate
            return True
        return False

    before: list[int] = []
    while before != best and tries > 0:
        before = best
        _cut(lambda: best, is_better)
        for place, choice in enumerate(before):
            for smaller in (0, 1, choice // 2):
                if is_better([*best[:place], smaller, *best[place + 1 :]]):
                    break
    return best


def _cut(best: Callable[[], list[int]], is_better: Callable[[list[int]], bool]) -> None:
    """Leave out stretches, long ones first."""
    size = max(1, len(best()) // 2)
    while size:
        place = 0
        while place < len(best()):
            if not is_better(best()[:place] + best()[place + size :]):
                place += size
        size //= 2
