"""The operations in which calls are made to fail: each question over ordinary and odd records."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from dataclasses import dataclass
from typing import Any

import kestrune.search_analytics as search_analytics
import pytest
from differential.cases import KINDS
from differential.sources import Seeded
from differential.world import World
from long_operations import FUNCTIONS, GENERATORS, IMPORTS, LONG_INPUTS, PROFILES, TURNS
from operations import ARGUMENTS, CLIENTS, HIDDEN
from robustness import test_leaks as calls
from support.environment import Client

Call = Callable[[], Any]


@dataclass(frozen=True)
class Scenario:
    """An operation: `build` makes what it needs anew, and returns the call and what ends it."""

    name: str
    build: Callable[[], tuple[Call, Call]]
    allowed: float = 0.0
    """Blocks that each run of it may leave behind (what the interpreter keeps for itself)."""
    is_long: bool = False
    """Whether only calls are tried in it that no other scenario reaches, and only once."""
    tolerates: tuple[str, ...] = ()
    """Errors that an Exception may turn into by contract."""


def generated(name: str) -> Scenario:
    """A case of the comparison with the model, by its kind and seed."""
    kind = name.partition("/")[0]

    def build() -> tuple[Call, Call]:
        w = World(search_analytics, Seeded(name))
        try:
            call = KINDS[kind][0](w)
        except BaseException:
            w.cleanup.close()
            raise
        import time

        w.patch(time, "time", w._tick)
        return call, w.cleanup.close

    return Scenario(name, build, tolerates=TOLERANT)


def nothing() -> None:
    """End a scenario that leaves nothing."""


def of_call(call: Call) -> Callable[[], tuple[Call, Call]]:
    """Build a scenario that is a call."""
    return lambda: (call, nothing)


def of_maker(make: Callable[[], Call]) -> Callable[[], tuple[Call, Call]]:
    """Build a scenario that is a call made anew each time."""
    return lambda: (make(), nothing)


def of_client(prepare: Callable[[Client], Any]) -> Callable[[], tuple[Call, Call]]:
    """Build a call of the shared engine in a client package prepared like this."""

    def build() -> tuple[Call, Call]:
        patch = pytest.MonkeyPatch()
        prepare(Client(patch))
        search_analytics._singleton = None

        def done() -> None:
            patch.undo()
            search_analytics._singleton = None

        return search_analytics.get_available_aggregations, done

    return build


# What a failure of the Exception family may turn into: no login, no tracker, a generator's end.
TOLERANT = ("AuthError", "FakeAuthError", "LoginError", "OSError", "RuntimeError", "ValueError")

MAKERS = {
    "odd": ARGUMENTS,
    "hidden": HIDDEN,
    "long": LONG_INPUTS,
    "generator": GENERATORS,
    "function": FUNCTIONS,
    "profile": PROFILES,
    "turn": TURNS,
}


def written() -> Iterator[Scenario]:
    """All scenarios that are not generated."""
    for kind, table in (("answer", calls.ANSWERS), ("error", calls.ERRORS)):
        for name, call in table.items():
            yield Scenario(f"{kind}: {name}", of_call(call))
    for name, prepare in {**calls.ENVIRONMENT, **CLIENTS}.items():
        yield Scenario(f"client: {name}", of_client(prepare), tolerates=TOLERANT)
    for kind, makers in MAKERS.items():
        for name, make in makers.items():
            yield Scenario(
                f"{kind}: {name}", of_maker(make), is_long=kind == "long", tolerates=TOLERANT
            )
    for name, make in IMPORTS.items():
        yield Scenario(f"import: {name}", of_maker(make), allowed=20.0, is_long="crowded" in name)


WRITTEN = {scenario.name: scenario for scenario in written()}


def named(name: str) -> Scenario:
    """The scenario of that name."""
    return WRITTEN[name] if name in WRITTEN else generated(name)


def tracked() -> list[Any]:
    """Objects that no failure may leave references to."""
    return [None, True, False, 0, 1, "", (), search_analytics, *vars(search_analytics).values()]


def names(seeds: int) -> dict[str, list[str]]:
    """The names of all scenarios, and so many generated ones of each kind."""
    return {
        "written": [name for name, scenario in WRITTEN.items() if not scenario.is_long],
        "long": [name for name, scenario in WRITTEN.items() if scenario.is_long],
        "generated": [f"{kind}/{seed}" for seed in range(seeds) for kind in KINDS],
    }
