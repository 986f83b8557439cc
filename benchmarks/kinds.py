"""The kinds of records that callers have, all with the values of the tracker's data class."""

import random
from collections import namedtuple
from collections.abc import Callable
from dataclasses import dataclass, fields, make_dataclass
from types import SimpleNamespace
from typing import Any

from kestrune.search_tracking import Evaluation

NAMES = tuple(field.name for field in fields(Evaluation))

Make = Callable[..., Any]
"""A record out of the values of its fields, in the order of NAMES."""


@dataclass(frozen=True)
class Kind:
    """Who makes the records of a list, in turns."""

    name: str
    makers: tuple[Make, ...]


SlotEvaluation: Any = make_dataclass("SlotEvaluation", [(n, object) for n in NAMES], slots=True)
"""A data class whose attributes are slots."""

TupleEvaluation: Any = namedtuple("TupleEvaluation", NAMES)


def _plain() -> Any:
    """Return a class that is written out, as most are: the interpreter notes what it assigns."""
    assignments = "".join(f"        self.{name} = {name}\n" for name in NAMES)
    text = f"class PlainEvaluation:\n    def __init__(self, {', '.join(NAMES)}):\n{assignments}"
    made: dict[str, Any] = {"__name__": __name__}
    exec(text, made)
    return made["PlainEvaluation"]


PlainEvaluation = _plain()


class PropertyEvaluation:
    """A record that answers through a Python property for each attribute."""

    def __init__(self, *values: Any) -> None:
        self._values = dict(zip(NAMES, values, strict=True))


def _property(name: str) -> property:
    return property(lambda record: record._values[name])


for _name in NAMES:
    setattr(PropertyEvaluation, _name, _property(_name))


class LoadedEvaluation:
    """A record that a mapper makes without calling its class."""


def _loaded(*values: Any) -> LoadedEvaluation:
    record = LoadedEvaluation.__new__(LoadedEvaluation)
    record.__dict__.update(zip(NAMES, values, strict=True))
    return record


def _asked(*values: Any) -> Any:
    """Return an instance whose attributes somebody has asked for as a dictionary."""
    record = PlainEvaluation(*values)
    vars(record)
    return record


def _namespace(*values: Any) -> SimpleNamespace:
    return SimpleNamespace(**dict(zip(NAMES, values, strict=True)))


class _Function:
    """A function as an object."""


class _Feature:
    """A feature as an object."""


def _general(item: dict[Any, Any]) -> dict[Any, Any]:
    """Return the same dictionary with a key that is no string."""
    return {**item, 0: None}


def _split(item: dict[str, Any]) -> dict[str, Any]:
    """Return the attributes of an object as a dictionary: its keys stand with the class."""
    entry = _Function() if "function_name" in item else _Feature()
    for name, value in item.items():
        setattr(entry, name, value)
    return vars(entry)


def _with_metadata(change: Callable[[list[Any]], Any]) -> Make:
    """Return the maker of data-class records whose lists of metadata are changed."""
    places = [NAMES.index(name) for name in ("function_metadata", "feature_metadata")]

    def make(*values: Any) -> Evaluation:
        changed = list(values)
        for place in places:
            changed[place] = change(changed[place])
        return Evaluation(*changed)

    return make


def _mixed(*makers: Make) -> tuple[Make, ...]:
    """Return the makers of a list in which nobody can guess the kind of the next record."""
    return tuple(random.Random(1).choices(makers, k=997))


DATA_CLASS = Kind("data class", (Evaluation,))


def kinds(absent: dict[str, str]) -> list[Kind]:
    """Return all kinds; notes in `absent` the packages that are missing, which make some."""
    return [
        DATA_CLASS,
        Kind("plain class", (PlainEvaluation,)),
        Kind("plain class, vars() asked", (_asked,)),
        Kind("slots", (SlotEvaluation,)),
        Kind("SimpleNamespace", (_namespace,)),
        Kind("named tuple", (TupleEvaluation,)),
        *_packaged("attrs", _attrs, absent),
        *_packaged("pydantic", _pydantic, absent),
        Kind("__dict__ filled by update", (_loaded,)),
        Kind("two kinds mixed", _mixed(Evaluation, _namespace)),
        Kind("three kinds mixed", _mixed(Evaluation, SlotEvaluation, _namespace)),
        Kind("metadata, general tables", (_with_metadata(lambda items: [*map(_general, items)]),)),
        Kind("metadata, split tables", (_with_metadata(lambda items: [*map(_split, items)]),)),
        Kind("metadata in tuples", (_with_metadata(tuple),)),
    ]


def _packaged(package: str, maker: Callable[[], Make], absent: dict[str, str]) -> list[Kind]:
    """Return the kind that a package makes, or nothing without the package."""
    try:
        return [Kind(package, (maker(),))]
    except ImportError as error:
        absent[package] = str(error)
        return []


def _attrs() -> Make:
    import attrs

    return attrs.make_class("AttrsEvaluation", list(NAMES), slots=True)


def _pydantic() -> Make:
    import pydantic

    fields: Any = dict.fromkeys(NAMES, (Any, ...))
    model = pydantic.create_model("PydanticEvaluation", **fields)
    return lambda *values: model(**dict(zip(NAMES, values, strict=True)))
