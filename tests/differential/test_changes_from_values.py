"""Classes, slots and dictionaries that a value's hook changes in the middle of a record.

The record whose value it is has the same class as all others. So whatever reads it keeps what it
knows of that class, where a record of another class would make it learn anew.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import OPERATIONS, assert_same, call, fields
from differential.world import NOW, World

Call = Callable[[], Any]


def springing(base: type, *methods: str) -> Any:
    """A kind of value whose methods do something, once, before they do what they are for."""

    def member(name: str) -> Callable[..., Any]:
        plain = getattr(base, name)

        def method(self: Any, *arguments: Any) -> Any:
            self.note("value", name)
            vars(self).pop("action", lambda: None)()
            return plain(self, *arguments)

        return method

    members: dict[str, Any] = {"__hash__": base.__hash__}
    members.update({name: member(name) for name in methods})
    return type("Springing", (base,), members)


class Truth:
    """True; and a number by protocol."""

    def __bool__(self) -> bool:
        return True

    def __float__(self) -> float:
        return 0.5

    def __str__(self) -> str:
        return "tamper"


# What is hooked: the operation that meets the value, where it stands, and its kind and contents.
HOOKS: dict[str, tuple[str, str, Any, tuple[Any, ...]]] = {
    **{
        f"truth of a flag, {operation}": (
            operation,
            "passed_thresholds",
            springing(Truth, "__bool__"),
            (),
        )
        for operation in OPERATIONS
    },
    "sum": ("get_search_stats", "sharpe", springing(float, "__radd__"), (1.5,)),
    "sum, suggestions": ("get_suggestions", "returns", springing(float, "__radd__"), (1.5,)),
    "threshold": ("get_search_stats", "correlation", springing(float, "__lt__", "__gt__"), (0.25,)),
    "window": ("get_search_stats", "timestamp", springing(float, "__ge__"), (NOW - 60,)),
    "era": ("get_search_stats", "era_id", springing(str, "__eq__"), ("era-1",)),
    "moment": ("get_search_velocity", "timestamp", springing(float, "__ge__"), (NOW - 60,)),
    "moment, yield": ("get_yield_analysis", "timestamp", springing(float, "__ge__"), (NOW - 60,)),
    "hash of a depth": ("get_search_patterns", "tree_depth", springing(int, "__hash__"), (2,)),
    "equality of depths": ("get_search_patterns", "tree_depth", springing(int, "__eq__"), (2,)),
    "hash of a name": ("get_correlation_patterns", "name", springing(str, "__hash__"), ("f0",)),
    "order of names": ("get_correlation_patterns", "name", springing(str, "__lt__"), ("f0",)),
    "hash of a grouped name": ("get_search_stats", "name", springing(str, "__hash__"), ("f0",)),
    "equality of families": ("get_search_patterns", "family", springing(str, "__eq__"), ("trend",)),
    "type": ("get_yield_analysis", "eval_type", springing(str, "__eq__"), ("signal",)),
    "measure": ("get_yield_analysis", "agent_is_pnl_mi", springing(Truth, "__float__"), ()),
    "reason": ("get_yield_analysis", "failure_reason", springing(Truth, "__str__"), ()),
}

# What each attribute says once it was changed.
OTHERS: dict[str, Any] = {
    **fields(7, sharpe=8.0, returns=4.0, turnover=2.0, drawdown=1.0, correlation=0.5),
    "per_column_stats": None,
    "passed_thresholds": False,
    "era_id": "era-2",
    "timestamp": NOW - 90000,
    "tree_depth": 9,
    "eval_type": "strategy",
    "failure_reason": "changed",
    "failure_detail": "tampering",
    "agent_is_pnl_mi": 0.75,
    "function_metadata": [
        {"function_name": name, "function_family": "changed"} for name in ("x", "y")
    ],
    "feature_metadata": [{"feature_name": "changed", "feature_family": "changed"}],
}


class Data:
    """A data descriptor: it goes before what the instance holds."""

    def __init__(self, value: Any) -> None:
        self.value = value

    def __get__(self, record: Any, owner: Any = None) -> Any:
        return self.value

    def __set__(self, record: Any, value: Any) -> None:
        raise AttributeError


def array() -> type:
    return type("Array", (), {})


def derived() -> type:
    return type("Derived", (array(),), {})


def slots() -> type:
    return type("Slots", (), {"__slots__": tuple(OTHERS)})


def half_slots() -> type:
    return type("Half", (type("Base", (), {"__slots__": tuple(OTHERS)[::2]}),), {})


def defaults() -> type:
    return type("Defaults", (), dict.fromkeys(OTHERS))


CLASSES: dict[str, Callable[[], type]] = {
    "array": array,
    "derived": derived,
    "slots": slots,
    "slots of a base": half_slots,
    "defaults": defaults,
}


def properties(records: list[Any], cls: Any) -> None:
    for name, other in OTHERS.items():
        setattr(cls, name, property(lambda record, other=other: other))


def descriptors(records: list[Any], cls: Any) -> None:
    for name, other in OTHERS.items():
        setattr(cls, name, Data(other))


def descriptors_of_a_base(records: list[Any], cls: Any) -> None:
    cls.__bases__ = (type("Other", cls.__bases__, {n: Data(v) for n, v in OTHERS.items()}),)


def other_slots(records: list[Any], cls: Any) -> None:
    """Numbers change places with numbers: their descriptors do, or what stands in the class."""
    for one, other in (("sharpe", "turnover"), ("drawdown", "returns"), ("eval_id", "era_id")):
        held = getattr(cls, one, 0.5)
        setattr(cls, one, getattr(cls, other, 0.5))
        setattr(cls, other, held)


def own_look_up(records: list[Any], cls: Any) -> None:
    cls.__getattribute__ = lambda record, name: (
        OTHERS[name] if name in OTHERS else object.__getattribute__(record, name)
    )


def other_class(records: list[Any], cls: Any) -> None:
    members = {name: Data(other) for name, other in OTHERS.items()}
    changed = type("Changed", (cls,), {"__slots__": (), **members})
    for record in records:
        record.__class__ = changed


def written(records: list[Any], cls: Any) -> None:
    for record in records:
        for name, other in OTHERS.items():
            setattr(record, name, other)


def deleted(records: list[Any], cls: Any) -> None:
    for record in records:
        for name in OTHERS:
            delattr(record, name)
    if "__slots__" not in vars(cls.__mro__[-2]):
        properties(records, cls)


def other_dictionaries(records: list[Any], cls: Any) -> None:
    for record in records:
        if hasattr(record, "__dict__"):
            record.__dict__ = dict(OTHERS)


def other_metaclass(records: list[Any], cls: Any) -> None:
    cls.__class__ = type("Meta", (type,), {"__getattribute__": type.__getattribute__})
    properties(records, cls)


CHANGES: dict[str, Callable[[list[Any], Any], None]] = {
    "properties": properties,
    "descriptors": descriptors,
    "descriptors of a base": descriptors_of_a_base,
    "other slots": other_slots,
    "look-up": own_look_up,
    "other class": other_class,
    "written": written,
    "deleted": deleted,
    "other dictionaries": other_dictionaries,
    "metaclass": other_metaclass,
}

COUNT = 7


def history(w: World, cls: Any, hook: tuple[Any, ...], change: Callable[..., None]) -> list[Any]:
    """Records of one class; a value in the midst of them makes the change."""
    _, place, kind, contents = hook
    records: list[Any] = []
    for index in range(COUNT):
        held = fields(index, tree_depth=2)
        if index == COUNT // 2:
            value = kind(*contents)
            value.note, value.action = w.note, lambda: change(records, cls)
            if place in ("name", "family"):
                held["function_metadata"][0][f"function_{place}"] = value
            else:
                held[place] = value
                held["per_column_stats"] = None
        record = cls()
        for name, given in held.items():
            setattr(record, name, given)
        records.append(record)
    return records


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("kind", CLASSES)
@pytest.mark.parametrize("hook", HOOKS)
def test_a_change_by_a_value_counts_from_the_next_read_on(
    hook: str, kind: str, change: str
) -> None:
    """Also for the rest of that very record."""

    def build(w: World) -> Call:
        return call(w, history(w, CLASSES[kind](), HOOKS[hook], CHANGES[change]), HOOKS[hook][0])

    assert_same(build)


@pytest.mark.parametrize("hook", HOOKS)
def test_what_stands_in_a_class_becomes_a_descriptor(hook: str) -> None:
    """It does by a change of its own class; that of the record stays as it is."""

    def build(w: World) -> Call:
        late: Any = type("Late", (), {"__init__": Data.__init__})
        cls = type("Plain", (), {name: late(other) for name, other in OTHERS.items()})

        def turn(records: list[Any], cls: Any) -> None:
            late.__get__ = lambda value, record, owner=None: value.value
            late.__set__ = lambda value, record, held: None

        return call(w, history(w, cls, HOOKS[hook], turn), HOOKS[hook][0])

    assert_same(build)
