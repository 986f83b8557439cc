"""What a call did, in a form that two implementations can be compared by, to the last bit.

`capture(call)` runs a callable and returns an `Outcome`: the described value, or the described
exception. A description is a tree of tuples of plain values, so `==` on outcomes is exact: it tells
`1` from `True` and `1.0`, `-0.0` from `0.0`, one NaN from another, a list from its subclass, and an
object that was handed on from a copy of it.
"""

from __future__ import annotations

import math
import struct
from collections import deque
from collections.abc import Callable, Mapping
from dataclasses import dataclass, is_dataclass
from decimal import Decimal
from enum import Enum
from fractions import Fraction
from types import SimpleNamespace, TracebackType
from typing import Any

from model import search_analytics_model as model

Tree = tuple[Any, ...]

RECORDS = frozenset(name for name, value in vars(model).items() if is_dataclass(value))
"""The result records, by name: every implementation has its own copies of the classes."""


@dataclass(frozen=True)
class Outcome:
    """The description of a value (`kind` "value") or of an exception (`kind` "error")."""

    kind: str
    tree: Tree
    trace: tuple[Any, ...] = ()

    def same_but_for_nans(self, other: Outcome) -> bool:
        """Whether the two differ at most in which not-a-number stands where there is one."""
        return (self.kind, self.trace) == (other.kind, other.trace) and _same(self.tree, other.tree)


def capture(
    call: Callable[[], Any],
    labels: Mapping[int, str] | None = None,
    trace: list[Any] | None = None,
) -> Outcome:
    """Run `call` and describe what came of it.

    `labels` names objects (by `id`) whose identity matters; `trace` is a log that the objects
    handed in append to while `call` runs, compared entry by entry.
    """
    try:
        value = call()
    except BaseException as error:
        tree = describe_error(error, labels)
        kind = "error"
        # A frame that is kept keeps its objects: iterators of a failed call must end here.
        error.__traceback__ = None
    else:
        tree = describe(value, labels)
        kind = "value"
    return Outcome(kind, tree, tuple(trace or ()))


def describe(value: Any, labels: Mapping[int, str] | None = None) -> Tree:
    """The description of one value; shared and labelled objects are told apart from equal ones."""
    return _Describer(labels or {}).describe(value)


def describe_error(error: BaseException, labels: Mapping[int, str] | None = None) -> Tree:
    """The description of an exception: type, arguments, text, cause and context."""
    return _Describer(labels or {}).describe_error(error)


class _Describer:
    """Walks one value; remembers the mutable objects met, so that sharing shows."""

    def __init__(self, labels: Mapping[int, str]) -> None:
        self._labels = labels
        self._met: dict[int, int] = {}

    def describe(self, value: Any) -> Tree:
        leaf = _LEAVES.get(type(value))
        if leaf is not None:
            return leaf(value)
        label = self._labels.get(id(value))
        if isinstance(value, Enum):
            # Every implementation has members of its own, equal in all but identity.
            return ("member", type(value).__name__, value.name, label)
        if isinstance(value, tuple):
            items = tuple(self.describe(item) for item in tuple.__iter__(value))
            return (_name(value), label, items)
        if isinstance(value, frozenset):
            # The order is part of it: it decides the order of rows and ties.
            return (_name(value), label, tuple(self.describe(item) for item in value))
        if isinstance(value, BaseException):
            return self.describe_error(value)
        contents = self._contents(value)
        if contents is None:
            return self._opaque(value, label)
        known = self._met.get(id(value))
        if known is not None:
            return ("met before", known)
        self._met[id(value)] = len(self._met)
        return (_name(value), label, contents(value))

    def _contents(self, value: Any) -> Callable[[Any], Any] | None:
        if isinstance(value, list):
            return self._list
        if isinstance(value, dict):
            return self._dict
        if isinstance(value, (set, deque)):
            return self._list_of_any
        if isinstance(value, SimpleNamespace) or is_dataclass(type(value)):
            return self._fields
        return None

    def _list(self, value: list[Any]) -> Tree:
        return tuple(self.describe(item) for item in list.__iter__(value))

    def _list_of_any(self, value: Any) -> Tree:
        return tuple(self.describe(item) for item in value)

    def _dict(self, value: dict[Any, Any]) -> Tree:
        return tuple((self.describe(k), self.describe(v)) for k, v in dict.items(value))

    def _fields(self, value: Any) -> Tree:
        return tuple((name, self.describe(field)) for name, field in vars(value).items())

    def _opaque(self, value: Any, label: str | None) -> Tree:
        """Subclasses of numbers and text by type and value, anything else by type and label."""
        for base, plain in _SUBCLASSES:
            if isinstance(value, base):
                return (_name(value), label, plain(value))
        if isinstance(value, type):
            return ("class", value.__qualname__, label)
        return ("object", _name(value), label)

    def describe_error(self, error: BaseException | None, depth: int = 3) -> Tree:
        if error is None or depth == 0:
            return ("no error",)
        return (
            type(error).__module__,
            type(error).__qualname__,
            _text(error),
            tuple(self.describe(argument) for argument in error.args),
            self._missing_name(error),
            functions_passed(error),
            error.__suppress_context__,
            self.describe_error(error.__cause__, depth - 1),
            self.describe_error(error.__context__, depth - 1),
        )

    def _missing_name(self, error: BaseException) -> Tree:
        # The interpreter adds the name to an AttributeError that a property raised, or does not
        # once the line has run often (3.12 and later): only its own errors have it for certain.
        own = isinstance(error, AttributeError) and "has no attribute" in _text(error)
        if own or isinstance(error, (ImportError, NameError)):
            details = ("name", "path", "name_from")
            found = tuple(self.describe(getattr(error, detail, None)) for detail in details)
            return (*found, _name(getattr(error, "obj", None)))
        return ()


def functions_passed(error: BaseException) -> tuple[str, ...]:
    """The functions in the traceback of an exception, the outermost first.

    Those without a name (lambdas, comprehensions, generator expressions) are left out.
    """
    codes = (entry.tb_frame.f_code for entry in traceback_entries(error))
    names = (getattr(code, "co_qualname", code.co_name) for code in codes)
    return tuple(name for name in names if not name.endswith(">"))


def traceback_entries(error: BaseException) -> list[TracebackType]:
    """The entries of an exception's traceback, the outermost first."""
    found = []
    entry = error.__traceback__
    while entry is not None:
        found.append(entry)
        entry = entry.tb_next
    return found


def _name(value: Any) -> str:
    return type(value).__qualname__


def _text(error: BaseException) -> str:
    try:
        return str(error)
    except Exception as failure:
        return f"(no text: {type(failure).__name__})"


def _bits(value: float) -> bytes:
    return struct.pack("<d", value)


def _complex(value: complex) -> Tree:
    return ("complex", _bits(value.real), _bits(value.imag))


_LEAVES: dict[type, Callable[[Any], Tree]] = {
    type(None): lambda value: ("None",),
    bool: lambda value: ("bool", value),
    int: lambda value: ("int", value),
    float: lambda value: ("float", _bits(value)),
    str: lambda value: ("str", value),
    bytes: lambda value: ("bytes", value),
    complex: _complex,
    Fraction: lambda value: ("Fraction", value.numerator, value.denominator),
    Decimal: lambda value: ("Decimal", repr(value.as_tuple())),
}

_SUBCLASSES: tuple[tuple[type, Callable[[Any], Any]], ...] = (
    (int, lambda value: int.__add__(value, 0)),
    (float, lambda value: _bits(float.__float__(value))),
    (str, str.__str__),
    (bytes, bytes.__bytes__ if hasattr(bytes, "__bytes__") else bytes),
)


def _same(one: Any, other: Any) -> bool:
    if one == other:
        return True
    if not (isinstance(one, tuple) and isinstance(other, tuple) and len(one) == len(other)):
        return False
    if len(one) == 2 and one[0] == other[0] == "float":
        return _is_nan(one[1]) and _is_nan(other[1])
    return all(_same(left, right) for left, right in zip(one, other, strict=True))


def _is_nan(bits: Any) -> bool:
    return isinstance(bits, bytes) and math.isnan(struct.unpack("<d", bits)[0])


def first_difference(one: Any, other: Any, path: str = "") -> str:
    """Where two descriptions part, and what stands there; empty when they are equal."""
    if type(one) is type(other) and one == other:
        return ""
    if isinstance(one, Outcome) and isinstance(other, Outcome):
        return first_difference(
            (one.kind, one.tree), (other.kind, other.tree), "outcome"
        ) or first_difference(one.trace, other.trace, "trace")
    if isinstance(one, tuple) and isinstance(other, tuple):
        for index, (left, right) in enumerate(zip(one, other, strict=False)):
            found = first_difference(left, right, f"{path}[{index}]")
            if found:
                return found
        return f"{path}: {len(one)} entries against {len(other)}: {_tails(one, other)}"
    return f"{path}: {one!r:.600} against {other!r:.600}"


def _tails(one: tuple[Any, ...], other: tuple[Any, ...]) -> str:
    shared = min(len(one), len(other))
    return f"{one[shared : shared + 3]!r:.300} against {other[shared : shared + 3]!r:.300}"
