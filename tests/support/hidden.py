"""The containers that a walk keeps for itself: the collector shows them to whoever asks it."""

from __future__ import annotations

import gc
from collections.abc import Callable, Iterable
from typing import Any


class Name:
    """A name by its text that runs an action when it is hashed."""

    def __init__(self, text: str, action: Callable[[], None] | None = None) -> None:
        self.text, self.action = text, action

    def __hash__(self) -> int:
        if self.action is not None:
            self.action()
        return hash(self.text)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Name) and self.text == other.text

    def __lt__(self, other: Name) -> bool:
        return self.text < other.text


def hidden(kind: type, holds: Callable[[Any], bool]) -> Iterable[Any]:
    """Every container of a type that is not empty, and of whose entries all are of that sort."""
    containers = [each for each in gc.get_objects() if type(each) is kind]
    return [each for each in containers if each and all(map(holds, list(each)))]
