"""Objects that log what is done to them: each special method leaves an entry in the trace."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any


class Hook:
    """Base of the logging objects: `self.did(...)` logs."""

    def __init__(self, note: Callable[..., None], label: str, value: Any = None) -> None:
        self.note = note
        self.label = label
        self.value = value

    def did(self, what: str, *details: Any) -> None:
        self.note(self.label, what, *details)

    def __hash__(self) -> int:
        # Not by address: sets of hooks must have the same order on both sides.
        return hash(self.label)

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.label}>"


class HookedTruth(Hook):
    """True or false by `__bool__`, which logs, or raises what it holds, or returns no bool."""

    def __bool__(self) -> bool:
        self.did("bool")
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value  # type: ignore[no-any-return]


class HookedLength(Hook):
    """True or false by `__len__`."""

    def __len__(self) -> int:
        self.did("len")
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value  # type: ignore[no-any-return]


class HookedOrder(Hook):
    """Compares by its value and logs each comparison; a value that is an exception is raised."""

    __hash__ = None  # type: ignore[assignment]

    def _compare(self, what: str, other: Any, test: Callable[[Any, Any], Any]) -> Any:
        self.did(what)
        if isinstance(self.value, BaseException):
            raise self.value
        return test(self.value, other.value if isinstance(other, HookedOrder) else other)

    def __lt__(self, other: Any) -> Any:
        return self._compare("lt", other, lambda a, b: a < b)

    def __le__(self, other: Any) -> Any:
        return self._compare("le", other, lambda a, b: a <= b)

    def __gt__(self, other: Any) -> Any:
        return self._compare("gt", other, lambda a, b: a > b)

    def __ge__(self, other: Any) -> Any:
        return self._compare("ge", other, lambda a, b: a >= b)

    def __eq__(self, other: Any) -> Any:
        return self._compare("eq", other, lambda a, b: a == b)


class HookedNumber(HookedOrder):
    """A number by protocol: logs additions and divisions; becomes part of the running sum."""

    def _with(self, value: Any) -> HookedNumber:
        return HookedNumber(self.note, self.label, value)

    def __add__(self, other: Any) -> Any:
        self.did("add")
        return self._with(self.value + _number(other))

    def __radd__(self, other: Any) -> Any:
        self.did("radd")
        return self._with(_number(other) + self.value)

    def __iadd__(self, other: Any) -> Any:
        self.did("iadd")
        self.value = self.value + _number(other)
        return self

    def __truediv__(self, other: Any) -> Any:
        self.did("truediv")
        return self._with(self.value / _number(other))

    def __rtruediv__(self, other: Any) -> Any:
        self.did("rtruediv")
        return self._with(_number(other) / self.value)

    def __mul__(self, other: Any) -> Any:
        self.did("mul")
        return self._with(self.value * _number(other))

    def __rmul__(self, other: Any) -> Any:
        self.did("rmul")
        return self._with(_number(other) * self.value)

    def __rsub__(self, other: Any) -> Any:
        self.did("rsub")
        return self._with(_number(other) - self.value)

    def __neg__(self) -> Any:
        self.did("neg")
        return self._with(-self.value)


def _number(value: Any) -> Any:
    return value.value if isinstance(value, HookedNumber) else value


class HookedEquality(Hook):
    """Hashable; equal to whatever its value equals; both logged."""

    def __hash__(self) -> int:
        self.did("hash")
        if isinstance(self.value, BaseException):
            raise self.value
        return hash(self.value)

    def __eq__(self, other: Any) -> Any:
        self.did("eq")
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value == (other.value if isinstance(other, HookedEquality) else other)


class HookedText(str):
    """A string of its own kind that logs comparisons and hashing (the hash is the string's)."""

    note: Callable[..., None]
    label: str

    def __hash__(self) -> int:
        self.note(self.label, "hash")
        return str.__hash__(self)

    def __eq__(self, other: Any) -> Any:
        self.note(self.label, "eq")
        return str.__eq__(self, other)

    def __lt__(self, other: Any) -> Any:
        self.note(self.label, "lt")
        return str.__lt__(self, other)

    def __bool__(self) -> bool:
        self.note(self.label, "bool")
        return len(self) > 0

    def __str__(self) -> str:
        self.note(self.label, "str")
        return "text of " + str.__str__(self)


class HookedWords(Hook):
    """Logs `str()` and `format()` of it."""

    def __str__(self) -> str:
        self.did("str")
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value  # type: ignore[no-any-return]

    def __format__(self, style: str) -> str:
        self.did("format", style)
        return "formatted"


class HookedDict(dict):  # type: ignore[type-arg]
    """A dictionary of its own kind that logs `get`, subscription and membership."""

    note: Callable[..., None]
    label: str

    def get(self, key: Any, default: Any = None) -> Any:
        self.note(self.label, "get", repr(key))
        return dict.get(self, key, default)

    def __getitem__(self, key: Any) -> Any:
        self.note(self.label, "getitem", repr(key))
        return dict.__getitem__(self, key)

    def __contains__(self, key: Any) -> bool:
        self.note(self.label, "contains", repr(key))
        return dict.__contains__(self, key)

    def values(self) -> Any:
        self.note(self.label, "values")
        return dict.values(self)

    def keys(self) -> Any:
        self.note(self.label, "keys")
        return dict.keys(self)

    def __iter__(self) -> Iterator[Any]:
        self.note(self.label, "iter")
        return dict.__iter__(self)

    def __len__(self) -> int:
        self.note(self.label, "len")
        return dict.__len__(self)


class HookedList(list):  # type: ignore[type-arg]
    """A list of its own kind: iterates backwards, and logs iteration and length."""

    note: Callable[..., None]
    label: str

    def __iter__(self) -> Iterator[Any]:
        self.note(self.label, "iter")
        return reversed(self)

    def __len__(self) -> int:
        self.note(self.label, "len")
        return list.__len__(self)


class HookedSequence(Hook):
    """A sequence by `__getitem__` and `__len__` only; every access is logged."""

    def __getitem__(self, index: Any) -> Any:
        self.did("getitem", repr(index))
        return self.value[index]

    def __len__(self) -> int:
        self.did("len")
        return len(self.value)


class HookedIterable(Hook):
    """Iterable by `__iter__` only, again and again; always true; has no length."""

    def __iter__(self) -> Iterator[Any]:
        self.did("iter")
        for item in self.value:
            self.did("next")
            yield item


def hooked(kind: Any, note: Callable[..., None], label: str, *arguments: Any) -> Any:
    """A `HookedText`, `HookedDict` or `HookedList` made of `arguments`."""
    made = kind(*arguments)
    made.note = note
    made.label = label
    return made
