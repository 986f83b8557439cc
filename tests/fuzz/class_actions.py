"""What hooks do to the classes of records while a program runs."""

from __future__ import annotations

from typing import Any

from fuzz.loud import LoudData, LoudValue, loud
from fuzz.records import Late, LateMeta
from fuzz.values import value
from fuzz.world import FuzzWorld
from support.records import ATTRIBUTES


def attribute_of(w: FuzzWorld, record: Any) -> str:
    """An attribute of a record that the operation reads; rarely any other."""
    names: Any = w.things["names"][0]
    return w.pick(names) if w.chance(95) else w.pick(ATTRIBUTES)


def set_in_class(w: FuzzWorld) -> None:
    """Put something under an attribute's name into a class, or into one that it derives from."""
    cls = w.any("class")
    name = attribute_of(w, cls)
    if w.chance(20):
        cls = w.pick(cls.__mro__[:-1])
    kind = w.below(5)
    w.does("class", cls.__name__, name, kind)
    held = value(w, name)
    if kind == 0:
        setattr(cls, name, held)
    elif kind == 1:
        setattr(cls, name, property(lambda record: held))
    elif kind == 2:
        setattr(cls, name, Late(held))
    else:
        setattr(cls, name, loud(w, LoudValue if kind == 3 else LoudData, "descriptor", held))


def become_descriptor(w: FuzzWorld) -> None:
    """Make what stands in a class a data descriptor, without touching that class."""
    cls = w.any("class")
    name = attribute_of(w, cls)
    w.does("late descriptor", cls.__name__, name)
    own = type("OwnLate", (Late,), {})
    setattr(cls, name, own(value(w, name)))
    other = w.chance(50)

    def turn(world: FuzzWorld) -> None:
        own.__get__ = lambda self, record, owner=None: self.value  # type: ignore[attr-defined]
        if other:
            own.__set__ = lambda self, record, held: None  # type: ignore[attr-defined]

    w.moments[w.events + 1 + w.below(6)] = ("a value becomes a descriptor", turn)


def delete_in_class(w: FuzzWorld) -> None:
    """Take something out of a class: a slot, a default, a property."""
    cls = w.any("class")
    names = [name for name in vars(cls) if not name.startswith("__")]
    if names:
        name = w.pick(names)
        w.does("class loses", cls.__name__, name)
        delattr(cls, name)


def swap_in_class(w: FuzzWorld) -> None:
    """Let two attributes of a class change places, as two slots may."""
    cls = w.any("class")
    one, other = attribute_of(w, cls), attribute_of(w, cls)
    w.does("class swaps", cls.__name__, one, other)
    held = getattr(cls, one)
    setattr(cls, one, getattr(cls, other))
    setattr(cls, other, held)


def set_look_up(w: FuzzWorld) -> None:
    """Give a class a look-up of its own, or take it away again."""
    cls = w.any("class")
    name = attribute_of(w, cls)
    method = w.pick(("__getattribute__", "__getattr__"))
    held = value(w, name)
    w.does("look-up", cls.__name__, method, name)

    def get(record: Any, asked: str) -> Any:
        if asked == name:
            w.trace.append(("looked up", name))
            return held
        if method == "__getattr__":
            raise AttributeError(asked)
        return object.__getattribute__(record, asked)

    if method in vars(cls):
        delattr(cls, method)
    else:
        setattr(cls, method, get)


def change_bases(w: FuzzWorld) -> None:
    """Put another class behind a class that derives from one."""
    cls = w.any("class")
    name = attribute_of(w, cls)
    base = type("NewBase", cls.__bases__, {name: value(w, name), "__slots__": ()})
    w.does("bases", cls.__name__, name)
    cls.__bases__ = (base,)


def change_metaclass(w: FuzzWorld) -> None:
    """Make a class an instance of another metaclass."""
    w.any("class").__class__ = LateMeta


CLASS_ACTIONS = (
    *(set_in_class, set_in_class, become_descriptor, delete_in_class, swap_in_class),
    *(set_look_up, change_bases, change_metaclass),
)
