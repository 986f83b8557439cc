"""The records of fuzzed programs, and the classes that they are of, which actions may change."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

from differential import evaluations
from fuzz.loud import LoudData, LoudValue, loud
from fuzz.values import usage, value
from fuzz.world import FuzzWorld

MAY_BE_ABSENT = frozenset((*evaluations.OPTIONAL, "function_metadata", "feature_metadata"))


class Meta(type):
    """A metaclass that changes nothing."""


class LateMeta(type):
    """Another, which has a way of its own to look attributes up: that of classes only."""

    def __getattribute__(cls, name: str) -> Any:
        return type.__getattribute__(cls, name)


class Late:
    """Stands in a class as a plain value; may become a descriptor later, as it is of Python."""

    def __init__(self, value: Any) -> None:
        self.value = value

    def __repr__(self) -> str:
        return "<Late>"


def _array(w: FuzzWorld, names: list[str]) -> type:
    return type("Array", (), {})


def _derived(w: FuzzWorld, names: list[str]) -> type:
    return type("Derived", (type("Base", (type("Root", (), {}),), {}),), {})


def _slots(w: FuzzWorld, names: list[str]) -> type:
    return type("Slots", (), {"__slots__": tuple(names)})


def _slots_and_dictionary(w: FuzzWorld, names: list[str]) -> type:
    half = tuple(names[::2])
    return type("HalfSlots", (type("SlotsBase", (), {"__slots__": half}),), {})


def _defaults(w: FuzzWorld, names: list[str]) -> type:
    return type("Defaults", (), dict.fromkeys(names))


def _with_metaclass(w: FuzzWorld, names: list[str]) -> type:
    metaclass = type("OwnMeta", (Meta,), {})
    return metaclass("WithMeta", (), {})


def _with_property(w: FuzzWorld, names: list[str]) -> type:
    """One attribute is worked out by a property of the class, which says so."""
    name = w.pick(names)

    def read(record: Any) -> Any:
        w.trace.append(("property", name))
        try:
            return vars(record)[name]
        except KeyError:
            raise AttributeError(name) from None

    def write(record: Any, what: Any) -> None:
        vars(record)[name] = what

    return type("WithProperty", (), {name: property(read, write)})


def _with_descriptor(w: FuzzWorld, names: list[str]) -> type:
    """One attribute stands in the class, before or behind the instance's own."""
    name = w.pick(names)
    kind = LoudValue if w.chance(50) else LoudData
    return type("WithValue", (), {name: loud(w, kind, "descriptor", value(w, name))})


def _with_getattr(w: FuzzWorld, names: list[str]) -> type:
    """What an instance does not have is asked of the class."""

    def get(record: Any, name: str) -> Any:
        w.trace.append(("getattr", name))
        raise AttributeError(name)

    return type("WithGetattr", (), {"__getattr__": get})


def _with_getattribute(w: FuzzWorld, names: list[str]) -> type:
    """Every read is an event."""

    def get(record: Any, name: str) -> Any:
        if not name.startswith("__"):
            w.trace.append(("read", name))
        return object.__getattribute__(record, name)

    return type("Reading", (), {"__getattribute__": get})


def _namespace(w: FuzzWorld, names: list[str]) -> type:
    return SimpleNamespace


CLASSES = (
    *(_array, _array, _slots, _array, _slots_and_dictionary, _defaults, _derived),
    *(_with_metaclass, _with_property, _with_descriptor, _with_getattr, _with_getattribute),
    _namespace,
)


def record_class(w: FuzzWorld, names: list[str]) -> type:
    """A class of records; actions may change it, unless it is the interpreter's own."""
    made = w.pick(CLASSES)(w, names)
    if made is not SimpleNamespace:
        w.thing("class", made)
    return made


def fill(record: Any, fields: dict[str, Any]) -> Any:
    """Set each attribute in the ordinary way."""
    for name, held in fields.items():
        setattr(record, name, held)
    return record


def record(w: FuzzWorld, cls: type, names: list[str], sides: tuple[str, ...]) -> Any:
    """A record of that class, with usage on those sides."""
    fields: dict[str, Any] = {}
    for name in names:
        if not name.endswith("_metadata") and not (name in MAY_BE_ABSENT and w.chance(w.oddness)):
            fields[name] = value(w, name)
    for side in sides:
        fields.update(usage(w, side))
    if cls.__name__ == "Slots":
        fields = {name: held for name, held in fields.items() if name in cls.__slots__}  # type: ignore[attr-defined]
    made = w.tag(fill(cls(), fields), "record")
    w.tell("record", w.labels.get(id(made), ""), cls.__name__, fields)
    return w.thing("record", made)


def records(
    w: FuzzWorld, attributes: tuple[str, ...], sides: tuple[str, ...], most: int = 6
) -> list[Any]:
    """Some records, most of one class."""
    names = [*attributes, *(f"{side}_metadata" for side in sides)]
    places = [*names, *(f"{side}s" for side in sides)]
    usual = record_class(w, places)
    other = record_class(w, places) if w.chance(20) else usual
    count = 1 + w.below(most)
    if w.oddness and w.chance(10):
        return [
            evaluations.evaluation(w, attributes, sides, f"record {index}")
            for index in range(count)
        ]
    optional = [name for name in names if name in MAY_BE_ABSENT]
    if optional and w.chance(30):
        # No record has them, until an action gives them to one.
        absent = {w.pick(optional) for _ in range(3)}
        names = [name for name in names if name not in absent]
        for name in sorted(absent):
            w.thing("absent", name)
    made = [record(w, other if w.chance(20) else usual, names, sides) for _ in range(count)]
    if w.chance(10):
        made += [w.pick(made)] * 2
    return made
