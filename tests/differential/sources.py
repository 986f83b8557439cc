"""Where the choices of a generated case come from: a seed, hypothesis, or a recording.

Every case is built twice, once for the model and once for the module under test, so each has
objects of its own; both builds must make the same choices. One primitive serves everything:
`below(n)` gives an integer from 0 to n - 1, and the simplest choice stands at 0.
"""

from __future__ import annotations

import random
from typing import Any, Protocol


class Source(Protocol):
    """A stream of choices."""

    def below(self, n: int) -> int:
        """The next choice among `n`."""
        ...


class Seeded:
    """Choices of a pseudo-random generator: cheap, the same for the same seed on every host."""

    def __init__(self, seed: str) -> None:
        self._next = random.Random(seed).random

    def below(self, n: int) -> int:
        return int(self._next() * n)


class Drawn:
    """Choices that hypothesis draws, and can shrink; `choices` is the recording of them."""

    def __init__(self, data: Any) -> None:
        from hypothesis import strategies

        self._draw = data.draw
        self._integers = strategies.integers
        self.choices: list[int] = []

    def below(self, n: int) -> int:
        choice: int = self._draw(self._integers(0, n - 1)) if n > 1 else 0
        self.choices.append(choice)
        return choice


class Replayed:
    """The choices of a recording, in its order."""

    def __init__(self, choices: list[int]) -> None:
        self._choices = iter(choices)

    def below(self, n: int) -> int:
        choice = next(self._choices)
        if choice >= n:
            raise AssertionError("the two builds of one case asked for different choices")
        return choice
