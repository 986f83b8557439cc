"""All that one run on one interpreter found out, and the file it is kept in."""

import dataclasses
import json
import types
import typing
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from by_kind import KindLine
from fresh import Fresh
from memory import Need
from side_by_side import Line
from timing import Race, Spread


@dataclass
class Fetch:
    """How long the tracker takes to hand out its newest records."""

    database: str
    records: int
    seconds: Spread


@dataclass
class Results:
    """A list of lines for each part of the run.

    `version` is the interpreter's, like (3, 13); `interpreter` and `machine` are facts, as pairs
    of what and which; `absent` says what could not take part, and why. `sources` is a digest of
    what the extension was built from.
    """

    version: tuple[int, int]
    sources: str
    interpreter: list[tuple[str, str]] = field(default_factory=list)
    machine: list[tuple[str, str]] = field(default_factory=list)
    absent: dict[str, str] = field(default_factory=dict)
    fresh: list[Fresh] = field(default_factory=list)
    operations: list[Line] = field(default_factory=list)
    kinds: list[KindLine] = field(default_factory=list)
    frames: list[Fresh] = field(default_factory=list)
    converted: list[Line] = field(default_factory=list)
    others: list[Line] = field(default_factory=list)
    databases: list[Line] = field(default_factory=list)
    fetches: list[Fetch] = field(default_factory=list)
    growth: list[Line] = field(default_factory=list)
    memory: list[Need] = field(default_factory=list)
    imports: Race = field(default_factory=Race)

    @property
    def name(self) -> str:
        """How the version is called."""
        return ".".join(map(str, self.version))

    def save(self, file: Path) -> None:
        """Write everything to a file."""
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(json.dumps(dataclasses.asdict(self), indent=1) + "\n")


def load(file: Path) -> Results:
    """Return what `save` wrote."""
    return _restored(Results, json.loads(file.read_text()))


def _restored(kind: Any, value: Any) -> Any:
    """Return the value of an annotation `kind` that JSON shows as `value`."""
    origin, parts = typing.get_origin(kind), typing.get_args(kind)
    if origin is types.UnionType:
        return None if value is None else _restored(parts[0], value)
    if origin is list:
        return [_restored(parts[0], item) for item in value]
    if origin is tuple:
        return tuple(value)
    if origin is dict:
        return {key: _restored(parts[1], item) for key, item in value.items()}
    if dataclasses.is_dataclass(kind):
        hints = typing.get_type_hints(kind)
        return kind(**{name: _restored(hints[name], item) for name, item in value.items()})
    return value
