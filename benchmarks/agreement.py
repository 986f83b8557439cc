"""Whether contestants give the same answer, checked before anything is timed."""

import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any

from support.outcome import describe, first_difference


class DisagreementError(Exception):
    """Two contestants answered differently; the text says who, and where."""


@contextmanager
def stopped_clock() -> Iterator[None]:
    """Let everyone see the same time."""
    now = time.time()
    real, time.time = time.time, lambda: now
    try:
        yield
    finally:
        time.time = real


def require_same(question: str, calls: dict[str, Callable[[], Any]]) -> None:
    """Raise DisagreementError unless all calls return the same, type by type and bit by bit."""
    (first, call), *others = calls.items()
    with stopped_clock():
        expected = describe(call())
        for name, other in others:
            difference = first_difference(expected, describe(other()))
            if difference:
                raise DisagreementError(f"{question}: {first} and {name} differ at {difference}")
