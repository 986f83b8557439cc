"""Values of the interpreter's own kinds whose every operation is an event.

Those of tests/differential/hooks.py have hooks for what is usually asked of a value of that kind;
these derive from the kind itself, so that whoever tests for it believes that they are ordinary.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

from differential.hooks import HookedNumber, HookedTruth
from fuzz.world import FuzzWorld


class Loud:
    """Base of loud values: `world` and `label` are set once they are made."""

    world: FuzzWorld
    label: str
    # What `==` says in turn, before it says the truth; and whether comparisons give no bool.
    turns: list[bool]
    is_odd: bool

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.label}>"


def _loud_method(base: type, name: str) -> Any:
    plain = getattr(base, name)

    def method(self: Any, *arguments: Any) -> Any:
        self.world.trace.append((self.label, name))
        return plain(self, *arguments)

    return method


def _comparison(base: type, name: str) -> Any:
    plain = getattr(base, name)

    def method(self: Any, other: Any) -> Any:
        self.world.trace.append((self.label, name))
        answer = plain(self, other)
        if name == "__eq__" and self.turns and not self.turns.pop(0):
            return False
        return HookedTruth(self.world.note, self.label, answer) if self.is_odd else answer

    return method


_COMPARISONS = ("__eq__", "__lt__", "__le__", "__gt__", "__ge__")
_NUMBER = (
    *("__hash__", "__bool__", "__float__", "__neg__", "__add__", "__radd__", "__sub__"),
    *("__rsub__", "__mul__", "__rmul__", "__truediv__", "__rtruediv__"),
)
_CONTAINER = ("__len__", "__iter__", "__getitem__", "__contains__")


def _loud(name: str, base: type, *methods: str) -> Any:
    members: dict[str, Any] = {method: _loud_method(base, method) for method in methods}
    if base in (int, float, str):
        members.update({method: _comparison(base, method) for method in _COMPARISONS})
    return type(name, (Loud, base), members)


LoudFloat = _loud("LoudFloat", float, *_NUMBER)
LoudInt = _loud("LoudInt", int, *_NUMBER, "__index__")
LoudText = _loud("LoudText", str, "__hash__", "__str__", "__add__", "lower")
LoudDict = _loud("LoudDict", dict, *_CONTAINER, "get", "keys", "values", "items")
LoudList = _loud("LoudList", list, *_CONTAINER)
LoudTuple = _loud("LoudTuple", tuple, *_CONTAINER, "__hash__", "__eq__")


def _truth_of_text(text: Any) -> bool:
    text.world.trace.append((text.label, "__bool__"))
    return len(text) > 0


LoudText.__bool__ = _truth_of_text


def loud(w: FuzzWorld, kind: Any, what: str, *arguments: Any, turns: tuple[bool, ...] = ()) -> Any:
    """A loud value of that kind, made of `arguments`."""
    made = kind(*arguments)
    made.world = w
    made.label = w.label(what)
    made.turns = list(turns)
    made.is_odd = w.chance(4)
    return w.tag(made, what)


class AnyNumber(HookedNumber):
    """A number by protocol alone, as a clock or a measure may be."""

    def __float__(self) -> float:
        self.did("float")
        return float(self.value)

    def __bool__(self) -> bool:
        self.did("bool")
        return bool(self.value)

    def __sub__(self, other: Any) -> Any:
        self.did("sub")
        return self._with(self.value - (other.value if isinstance(other, AnyNumber) else other))

    def _with(self, value: Any) -> AnyNumber:
        return AnyNumber(self.note, self.label, value)


class LoudIterator(Loud):
    """An iterator over whatever a list holds by then."""

    def __init__(self, items: list[Any]) -> None:
        self.items, self.place = items, 0

    def __iter__(self) -> Iterator[Any]:
        self.world.trace.append((self.label, "iter"))
        return self

    def __next__(self) -> Any:
        self.world.trace.append((self.label, "next"))
        if self.place >= len(self.items):
            raise StopIteration
        self.place += 1
        return self.items[self.place - 1]


class LoudValue(Loud):
    """A descriptor: an attribute of a class that is worked out, and logged, at every read."""

    def __init__(self, value: Any) -> None:
        self.value = value

    def __get__(self, record: Any, owner: Any = None) -> Any:
        self.world.trace.append((self.label, "get"))
        return self.value


class LoudData(LoudValue):
    """The same as a data descriptor, which goes before the instance's own."""

    def __set__(self, record: Any, value: Any) -> None:
        self.world.trace.append((self.label, "set"))
        self.value = value
