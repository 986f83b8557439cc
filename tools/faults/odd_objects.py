"""Objects that compare, stop or grow as no ordinary one does."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from types import SimpleNamespace
from typing import Any

from support.parts import pool


class Row:
    """A record of an ordinary class."""

    def __init__(self, **fields: Any) -> None:
        for name, value in fields.items():
            setattr(self, name, value)


class Likely(int):
    """A position whose comparison gives no bool."""

    def __eq__(self, other: object) -> Any:
        return []

    def __hash__(self) -> int:
        return 1


class Verdict:
    """What a comparison may give that is not a bool."""

    def __init__(self, truth: bool) -> None:
        self.truth = truth

    def __bool__(self) -> bool:
        return self.truth

    def __repr__(self) -> str:
        return f"Verdict({self.truth})"


def odd(base: type) -> Any:
    """A class of `base` whose comparisons give verdicts."""

    def compare(name: str) -> Callable[[Any, Any], Any]:
        plain = getattr(base, name)
        return lambda self, other: Verdict(plain(self, other) is True)

    names = ("__lt__", "__le__", "__gt__", "__ge__", "__eq__", "__ne__")
    members = {name: compare(name) for name in names}
    return type("Odd", (base,), {**members, "__hash__": base.__hash__, "__slots__": ()})


OddInt, OddFloat, OddText = odd(int), odd(float), odd(str)


class Likes:
    """Equal to some texts and members, by a verdict."""

    def __init__(self, *liked: Any, **more: Any) -> None:
        self.liked = liked
        vars(self).update(more)

    def __eq__(self, other: object) -> Any:
        return Verdict(other in self.liked)

    def __hash__(self) -> int:
        return 1


class Stops(dict[Any, Any]):
    """An item that ends the iteration it is asked in."""

    def get(self, *args: Any) -> Any:
        raise StopIteration


class StopsComparing:
    """A number that ends the iteration it is compared in."""

    def __lt__(self, other: object) -> bool:
        raise StopIteration


class Plain:
    """A record that has to be asked."""

    def __init__(self, record: SimpleNamespace) -> None:
        object.__setattr__(self, "_record", record)

    def __getattribute__(self, name: str) -> Any:
        return getattr(object.__getattribute__(self, "_record"), name)


class Clock:
    """A moment with cut-offs that are texts."""

    def __sub__(self, other: object) -> str:
        return "5"


class Halves(str):
    """A text that can be multiplied by a half."""

    def __mul__(self, factor: Any) -> Any:
        return "b"

    __rmul__ = __mul__


class OddMinutes(int):
    """A window length whose hours give no bool when they are compared."""

    def __truediv__(self, other: object) -> Any:
        return OddFloat(1.0)


class OddSum(float):
    """A number whose sums are odd, and so is their mean."""

    def __radd__(self, other: Any) -> Any:
        return OddSum(float(self) + other)

    def __add__(self, other: Any) -> Any:
        return OddSum(float(self) + float(other))

    def __truediv__(self, other: Any) -> Any:
        return OddFloat(float(self) / other)


class NoTruth:
    """An object that ends the iteration it is looked at in."""

    def __bool__(self) -> bool:
        raise StopIteration


class Growing:
    """Pools that are more at each look."""

    def __init__(self) -> None:
        self.looks = 0

    def __bool__(self) -> bool:
        return True

    def __iter__(self) -> Iterator[Any]:
        self.looks += 1
        return iter([pool()] * self.looks)


def reluctant(made: Any) -> Any:
    """An exception class that makes something else."""
    return type("Reluctant", (Exception,), {"__new__": lambda cls: made})
