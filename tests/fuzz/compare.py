"""Running one program on both sides, and showing it to whoever looks for the fault."""

from __future__ import annotations

from typing import Any

from differential.cases import agree
from differential.sources import Seeded, Source
from fuzz.programs import program
from fuzz.world import FuzzWorld
from support.outcome import Outcome, first_difference


def side(module: Any, source: Source) -> tuple[FuzzWorld, Outcome]:
    """Build a program for `module`, and run it."""
    w = FuzzWorld(module, source)
    try:
        call = program(w)
    except BaseException:
        w.cleanup.close()
        raise
    return w, w.run(call)


def differs(seed: int, module: Any, oracle: Any) -> bool:
    """Whether the program of that seed is told apart by its outcome or its trace."""
    text = str(seed)
    _, expected = side(oracle, Seeded(text))
    _, found = side(module, Seeded(text))
    return expected != found and not agree(expected, found, True)


class Recording:
    """A source that keeps its choices."""

    def __init__(self, source: Source) -> None:
        self._source = source
        self.choices: list[int] = []

    def below(self, n: int) -> int:
        chosen = self._source.below(n)
        self.choices.append(chosen)
        return chosen


class Edited:
    """Choices that somebody has shortened: too large ones are cut, missing ones are 0."""

    def __init__(self, choices: list[int]) -> None:
        self._choices, self._place = choices, 0

    def below(self, n: int) -> int:
        place, self._place = self._place, self._place + 1
        return min(self._choices[place], n - 1) if place < len(self._choices) else 0


def choices_of(seed: int, oracle: Any) -> list[int]:
    """What was drawn for the program of a seed."""
    source = Recording(Seeded(str(seed)))
    side(oracle, source)
    return source.choices


def difference(choices: list[int], module: Any, oracle: Any) -> str:
    """Where the two sides part on the program of these choices; empty when they agree."""
    _, expected = side(oracle, Edited(choices))
    _, found = side(module, Edited(choices))
    if expected == found or agree(expected, found, True):
        return ""
    return first_difference(expected, found) or "the same but for types"


def shown(choices: list[int], oracle: Any) -> str:
    """The program of these choices, as it runs on the model: its parts, then what happened."""
    FuzzWorld.is_telling = True
    try:
        w, outcome = side(oracle, Edited(choices))
    finally:
        FuzzWorld.is_telling = False
    lines = [f"The program, {len(choices)} choices:"]
    lines += ["  " + _line(w, part) for part in w.story]
    lines.append("What happens in plain Python, hook by hook:")
    event = 0
    for entry in outcome.trace:
        is_event = entry[:1] != ("->",)
        event += is_event
        lines.append(f"  {event:4} {entry!r}" if is_event else f"        {entry!r:.300}")
    lines.append(f"It ends with this {outcome.kind}: {outcome.tree!r:.1500}")
    return "\n".join(lines)


def _line(w: FuzzWorld, part: tuple[Any, ...]) -> str:
    return " ".join(one if isinstance(one, str) else _text(w, one) for one in part)


def _text(w: FuzzWorld, value: Any) -> str:
    label = w.labels.get(id(value))
    if label is not None:
        return f"<{type(value).__name__} {label}>"
    if type(value) is dict:
        return "{" + ", ".join(f"{_text(w, k)}: {_text(w, v)}" for k, v in value.items()) + "}"
    if type(value) in (list, tuple):
        return "[" + ", ".join(_text(w, one) for one in value) + "]"
    # No addresses.
    return f"<{type(value).__name__}>" if " object at 0x" in repr(value) else f"{value!r:.200}"
