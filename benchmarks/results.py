"""All that one run found out."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import TYPE_CHECKING

from side_by_side import Line
from timing import Race

if TYPE_CHECKING:
    from databases import Fetch
    from memory import Need


@dataclass
class Results:
    """A list of lines for each part of the run; `load` is the machine's when it began."""

    load: float
    operations: list[Line] = field(default_factory=list)
    shapes: list[Line] = field(default_factory=list)
    demo: list[Line] = field(default_factory=list)
    frames: list[Line] = field(default_factory=list)
    databases: list[Line] = field(default_factory=list)
    growth: list[Line] = field(default_factory=list)
    fetches: list[Fetch] = field(default_factory=list)
    memory: list[Need] = field(default_factory=list)
    imports: Race = field(default_factory=Race)
