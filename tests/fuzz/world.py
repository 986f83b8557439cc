"""One side of a fuzzed program: every hook that is called may be the moment of an action."""

from __future__ import annotations

import gc
from collections.abc import Callable
from typing import Any

from differential.sources import Source
from differential.world import World
from fuzz.avoided import EVENT_LIMIT, NESTING_LIMIT
from support.outcome import Outcome

Action = Callable[["FuzzWorld"], BaseException | None]
"""Does something; returns what is to be raised out of the hook, if anything."""


class TooLong(BaseException):
    """Ends a program that would go on for ever."""


class Log(list):  # type: ignore[type-arg]
    """The trace: whatever is appended while the program runs is an event, and may have effects."""

    world: FuzzWorld
    # Set while something dies, at a moment that is not the same on both sides.
    is_muted = False

    def append(self, entry: Any) -> None:
        if self.world.is_running and not Log.is_muted:
            list.append(self, entry)
            self.world.happen()


class FuzzWorld(World):
    """A world in which hooks have effects: actions at numbered events.

    `things` holds what actions can change, by kind. `story` tells what the program is made of, for
    whoever reads it. In a mortal world nothing is kept alive but by the program: what an action
    takes away is freed, and whoever uses it still is found out.
    """

    # Whether somebody is going to read the story.
    is_telling = False

    def __init__(self, module: Any, source: Source) -> None:
        super().__init__(module, source)
        log = Log()
        log.world = self
        self.trace = log
        self.things: dict[str, list[Any]] = {}
        self.story: list[tuple[Any, ...]] = []
        self.moments: dict[int, tuple[str, Action]] = {}
        self.is_running = False
        self.events = 0
        self.nesting = 0
        self.kept: list[Any] = []
        # How many of 100 values have hooks, and how many are odd.
        self.loudness = self.pick((3, 0, 10, 30))
        self.oddness = self.pick((0, 5, 0, 30))
        self.numbers: tuple[int, ...] = ()
        self.is_mortal = self.chance(35)
        self._named = 0

    def happen(self) -> None:
        """Count an event, and do what is planned for it."""
        self.events += 1
        if self.events > EVENT_LIMIT:
            raise TooLong
        planned = self.moments.pop(self.events, None)
        if planned is None:
            return
        name, action = planned
        self.does(name)
        try:
            error = action(self)
        except Exception as failure:
            self.does("in vain", type(failure).__name__)
            return
        if error is not None:
            raise error

    def does(self, *what: Any) -> None:
        """Write down what an action does; no event."""
        list.append(self.trace, ("->", *what))

    def tell(self, *what: Any) -> None:
        """Write down what the program is made of."""
        if self.is_telling:
            self.story.append(what)

    def thing(self, kind: str, value: Any) -> Any:
        """Give actions something to change."""
        if self.is_mortal and kind in ("dict", "record"):
            return value
        self.things.setdefault(kind, []).append(value)
        return value

    def any(self, kind: str) -> Any:
        """One of the things of a kind; IndexError when there is none."""
        things = self.things.get(kind, ())
        return things[self.below(len(things))] if things else _nothing(kind)

    def label(self, what: str) -> str:
        """A name of its own for an object."""
        self._named += 1
        return f"{what} {self._named}"

    def tag(self, value: Any, label: str) -> Any:
        """Name `value`, and keep it, unless things may die."""
        return value if self.is_mortal else super().tag(value, label)

    def nested(self, call: Callable[[], Any]) -> None:
        """Run a call within the running one, unless that is within others already."""
        if self.nesting == NESTING_LIMIT:
            return
        self.nesting += 1
        try:
            call()
        finally:
            self.nesting -= 1

    def run(self, call: Callable[[], Any]) -> Outcome:
        """The outcome of `call`; nothing happens any more once it is over."""

        def running() -> Any:
            self.is_running = True
            try:
                return call()
            finally:
                self.is_running = False

        thresholds = gc.get_threshold()
        try:
            return super().run(running)
        finally:
            if gc.get_threshold() != thresholds:
                gc.set_threshold(*thresholds)


def _nothing(kind: str) -> Any:
    raise IndexError(kind)
