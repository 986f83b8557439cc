"""What kind of value something is, in the words of type checkers: of any keys, of any items."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any, TypeGuard


def is_mapping(value: Any) -> TypeGuard[Mapping[Any, Any]]:
    """Whether a value is a mapping."""
    return isinstance(value, Mapping)


def is_iterable(value: Any) -> TypeGuard[Iterable[Any]]:
    """Whether a value can be iterated over."""
    return isinstance(value, Iterable)


def is_sequence(value: Any) -> TypeGuard[list[Any] | tuple[Any, ...]]:
    """Whether a value is a list or a tuple."""
    return isinstance(value, list | tuple)


def is_set(value: Any) -> TypeGuard[set[Any] | frozenset[Any]]:
    """Whether a value is a set of either kind."""
    return isinstance(value, set | frozenset)
