"""Attributes are found in whatever an instance keeps them in, after all that happened to it."""

from __future__ import annotations

from collections import namedtuple
from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import OPERATIONS, assert_same, call, fields
from differential.world import World
from support.records import ATTRIBUTES


class Dictionary(dict):  # type: ignore[type-arg]
    """A dictionary whose own look-up nobody asks for attributes."""

    def __getitem__(self, key: Any) -> Any:
        raise AssertionError(key)

    __contains__ = get = __getitem__


def ask_for_dictionary(record: Any) -> None:
    assert vars(record)


def exchange_dictionary(record: Any) -> None:
    record.__dict__ = dict(reversed(vars(record).items()))


def exchange_by_another_type(record: Any) -> None:
    record.__dict__ = Dictionary(vars(record))


def fill_by_update(record: Any) -> None:
    values = dict(vars(record))
    vars(record).clear()
    vars(record).update(values)


def use_other_keys(record: Any) -> None:
    vars(record)[5] = "no name"


def use_colliding_keys(record: Any) -> None:
    class Colliding:
        def __hash__(self) -> int:
            return hash("timestamp")

    vars(record)[Colliding()] = "no name"


def add_many(record: Any) -> None:
    for number in range(300):
        setattr(record, f"more {number}", number)


def begin_anew(record: Any) -> None:
    values = dict(vars(record))
    for name in values:
        delattr(record, name)
    for name, value in reversed(values.items()):
        setattr(record, name, value)


def leave_one_out(record: Any) -> None:
    del record.rejection_reason


def leave_one_out_of_dictionary(record: Any) -> None:
    record.__dict__ = {
        name: value for name, value in vars(record).items() if name != "rejection_reason"
    }


def change_class(record: Any) -> None:
    record.__class__ = type("Other", (), {"tree_depth": property(lambda record: 7)})


HISTORIES: dict[str, Callable[[Any], None]] = {
    "dictionary asked for": ask_for_dictionary,
    "dictionary exchanged": exchange_dictionary,
    "dictionary of another type": exchange_by_another_type,
    "filled by update": fill_by_update,
    "keys that are no names": use_other_keys,
    "keys that collide": use_colliding_keys,
    "many attributes": add_many,
    "other order": begin_anew,
    "one absent": leave_one_out,
    "one absent from its dictionary": leave_one_out_of_dictionary,
    "another class": change_class,
}


class Plain:
    """A record like most."""


class Asking:
    """A record whose class answers for what it does not hold."""

    def __getattr__(self, name: str) -> Any:
        if name != "rejection_reason":
            raise AttributeError(name)
        return "answered"


class Slots:
    """A record with slots for all but one attribute, and a dictionary."""

    __slots__ = ("__dict__", *(name for name in ATTRIBUTES if name != "tree_depth"))


@pytest.mark.parametrize("others", [0, 1, 30], ids="among {} others".format)
@pytest.mark.parametrize("base", [Plain, Asking, Slots], ids=lambda base: base.__name__)
@pytest.mark.parametrize("change", HISTORIES.values(), ids=HISTORIES)
def test_instances_of_any_past_agree(
    change: Callable[[Any], None], base: type[Any], others: int
) -> None:
    if base is Slots and change in (begin_anew, leave_one_out, change_class):
        pytest.skip("not with slots")

    for operation in OPERATIONS:

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            cls = type("Record", (base,), {})
            history = []
            for index in range(3 + 2 * others):
                record = cls()
                for name, value in fields(index, rejection_reason="late").items():
                    setattr(record, name, value)
                if others <= index < others + 3:
                    change(record)
                history.append(record)
            return call(w, history, operation)

        assert_same(build)


@pytest.mark.parametrize("count", [1, 5])
def test_a_named_tuple_that_is_too_short_is_asked(count: int) -> None:
    """An item that is not there is an error, as the interpreter words it."""
    names = list(fields(0))
    last = names.pop(names.index("tree_depth"))
    cls = namedtuple("cls", [*names, last])

    def build(w: World) -> Callable[[], Any]:
        whole = [cls(**fields(index)) for index in range(count)]
        short = tuple.__new__(cls, tuple(whole[0])[:-1])
        return call(w, [*whole, short, *whole], "get_search_patterns")

    assert_same(build)


def test_a_named_tuple_with_attributes_of_its_own_is_read_by_both() -> None:
    names = list(fields(0))
    parent = namedtuple("parent", names[:-1])

    for operation in OPERATIONS:

        def build(w: World, operation: str = operation) -> Callable[[], Any]:
            cls = type("Record", (parent,), {})
            history = []
            for index in range(20):
                values = fields(index)
                record = cls(*[values[name] for name in names[:-1]])
                if index != 7:
                    setattr(record, names[-1], values[names[-1]])
                history.append(record)
            return call(w, history, operation)

        assert_same(build)
