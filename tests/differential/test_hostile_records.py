"""Records that fail, fade or are of some other kind: the same outcome as the model's."""

from __future__ import annotations

import gc
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any
from unittest.mock import MagicMock, Mock

import pytest
from differential.traps import (
    OPERATIONS,
    READ,
    Trap,
    assert_same,
    call,
    fields,
    plain,
    spring,
    trap,
)
from differential.world import NOW, World

ERRORS: list[Callable[[], BaseException]] = [
    lambda: AttributeError("gone"),
    lambda: type("Missing", (AttributeError,), {})("gone"),
    lambda: ValueError("bad"),
    lambda: KeyboardInterrupt(),
    lambda: SystemExit(3),
    lambda: GeneratorExit(),
    lambda: RecursionError("deep"),
    lambda: MemoryError(),
    lambda: StopIteration("over"),
]


@pytest.mark.parametrize("make", ERRORS, ids=lambda make: type(make()).__name__)
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_errors_of_any_attribute_agree(operation: str, make: Callable[[], BaseException]) -> None:
    for attribute in (*READ[operation], "is_correlation", "functions", "eval_id"):

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            record = trap(w, 1)

            def fail() -> None:
                raise make()

            spring(record, attribute, fail)
            return call(w, [trap(w), record, trap(w, 2)], operation)

        assert_same(build)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_record_drops_the_last_reference_to_itself(operation: str) -> None:
    for attribute in READ[operation]:
        for fails in (False, True):

            def build(
                w: World, attribute: str = attribute, fails: bool = fails
            ) -> Callable[[], Any]:
                history: list[Any] = [trap(w), trap(w, 1), trap(w, 2)]

                def drop() -> None:
                    history[1] = None
                    gc.collect()
                    if fails:
                        raise ValueError("dropped")

                spring(history[1], attribute, drop)
                return call(w, history, operation)

            assert_same(build)


class Fading:
    """A record whose property removes itself from the class when it is read."""

    def __init__(self, w: World, index: int) -> None:
        vars(self).update(fields(index))
        self.w = w


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_property_removes_itself_from_its_class(operation: str) -> None:
    for attribute in READ[operation]:

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            kind = type("Fading", (Fading,), {})

            def read(record: Any) -> Any:
                w.note("property", attribute)
                delattr(kind, attribute)
                return vars(record)[attribute]

            setattr(kind, attribute, property(read))
            return call(w, [kind(w, 0), kind(w, 1)], operation)

        assert_same(build)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_record_changes_its_class(operation: str) -> None:
    for attribute in READ[operation]:

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            other = type("Other", (Fading,), {"timestamp": NOW, "passed_thresholds": False})

            def read(record: Any) -> Any:
                w.note("property", attribute)
                record.__class__ = other
                return vars(record)[attribute]

            kind = type("Changing", (Fading,), {attribute: property(read)})
            return call(w, [kind(w, 0), kind(w, 0)], operation)

        assert_same(build)


class Secretive:
    """A record that denies having even a class."""

    def __init__(self, w: World) -> None:
        object.__setattr__(self, "_w", w)

    def __getattribute__(self, name: str) -> Any:
        if name == "__class__":
            raise AttributeError(name)
        object.__getattribute__(self, "_w").note("secretive", name)
        return fields()[name]


RECORDS: dict[str, Callable[[World], Any]] = {
    "none": lambda w: None,
    "int": lambda w: 5,
    "dict": lambda w: fields(),
    "class": lambda w: type("Record", (), fields()),
    "mock": lambda w: Mock(spec_set=list(fields()), **fields()),
    "bare mock": lambda w: Mock(name="record"),
    "magic mock": lambda w: MagicMock(name="record"),
    "secretive": Secretive,
    "half": lambda w: SimpleNamespace(passed_thresholds=True, timestamp=NOW),
}


@pytest.mark.parametrize("record", list(RECORDS))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_record_of_some_other_kind(operation: str, record: str) -> None:
    assert_same(lambda w: call(w, [plain(), RECORDS[record](w)], operation))


class Resurrecting:
    """A record that comes back when it is finalised."""

    def __init__(self, w: World, graveyard: list[Any], index: int) -> None:
        vars(self).update(fields(index))
        self.graveyard = graveyard

    def __del__(self) -> None:
        self.graveyard.append(self)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_record_comes_back_from_its_finaliser(operation: str) -> None:
    graveyard: list[Any] = []

    def build(w: World) -> Callable[[], Any]:
        history: list[Any] = [trap(w), Resurrecting(w, graveyard, 1), trap(w, 2)]
        spring(history[0], READ[operation][0], lambda: history.__setitem__(1, trap(w, 3)))
        return call(w, history, operation)

    assert_same(build)
    for record in graveyard:
        record.__class__ = Fading


def test_trap_is_a_record_like_any_other() -> None:
    """The traps themselves: without an action they read as their fields."""
    assert_same(lambda w: lambda: [Trap(w, "x", fields()).sharpe, trap(w).eval_id])
