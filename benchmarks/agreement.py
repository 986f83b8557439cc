"""Whether contestants give the same answer, checked before anything is timed."""

import time
from collections.abc import Callable, Iterator, Mapping
from contextlib import contextmanager
from typing import Any

_EXCERPT = 60


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


def require_same(question: str, calls: Mapping[str, Callable[[], Any]]) -> None:
    """Raise DisagreementError unless all answers are the same.

    They are compared as their representations: those give every field, tell numbers of different
    types apart, and floats to the last bit.
    """
    (first, call), *others = calls.items()
    if not others:
        return
    with stopped_clock():
        expected = repr(call())
        for name, other in others:
            answer = repr(other())
            if answer != expected:
                raise DisagreementError(
                    f"{question}: {first} and {name} differ: {_difference(expected, answer)}"
                )


def _difference(one: str, other: str) -> str:
    pairs = zip(one, other, strict=False)
    shared = next((i for i, (a, b) in enumerate(pairs) if a != b), min(len(one), len(other)))
    part = slice(max(shared - _EXCERPT, 0), shared + _EXCERPT)
    return f"...{one[part]}... against ...{other[part]}..."
