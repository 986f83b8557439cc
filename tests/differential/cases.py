"""The kinds of generated cases, and how one case is run on both sides."""

from __future__ import annotations

import importlib
import os
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from differential import environments, helpers, operations, patches
from differential.sources import Replayed, Seeded, Source
from differential.world import World
from model import search_analytics_model as model
from support.outcome import Outcome, first_difference

Builder = Callable[[World], Callable[[], Any]]

KINDS: dict[str, tuple[Builder, int]] = {
    "search stats": (operations.search_stats, 20),
    "suggestions": (operations.suggestions, 6),
    "search patterns": (operations.patterns, 9),
    "search velocity": (operations.velocity, 8),
    "yield analysis": (operations.yield_analysis, 10),
    "correlation patterns": (operations.correlation_patterns, 9),
    "catalogue": (operations.catalogue, 1),
    "fetch": (operations.fetch, 5),
    "construction": (operations.construction, 2),
    "engine methods": (operations.methods, 5),
    "tamper delta": (helpers.tamper_delta, 2),
    "table probe": (helpers.table_exists, 1),
    "status table": (helpers.status_table, 1),
    "usage value": (helpers.usage_value, 2),
    "usage items": (helpers.usage_items, 2),
    "attribute or item": (helpers.attr_or_item, 1),
    "pool entry": (helpers.normalize_pool, 2),
    "era unwrapping": (helpers.unwrapping, 2),
    "pool resolution": (helpers.pool_resolution, 3),
    "resolution": (environments.resolution, 4),
    "module calls": (environments.module_calls, 4),
    "cached engine": (environments.cached_engine, 1),
    "patched module": (patches.patched_module, 8),
    "overridden methods": (patches.overridden_methods, 5),
}
"""What builds a case of each kind, and how many of 113 cases are of it."""

SUBJECT = os.environ.get("DIFFERENTIAL_SUBJECT", "kestrune.search_analytics")
"""The import name of the module under test (another one to try the suite on a broken copy)."""


def subject() -> Any:
    """The module under test."""
    return importlib.import_module(SUBJECT)


@dataclass(frozen=True)
class Difference:
    """A case on which the two sides do not agree."""

    kind: str
    origin: str
    expected: Outcome
    found: Outcome

    def __str__(self) -> str:
        where = first_difference(self.expected, self.found)
        return (
            f"{self.kind}, {self.origin}: the model and the module differ\n"
            f"  at {where}\n"
            f"  model:  {_short(self.expected)}\n"
            f"  module: {_short(self.found)}"
        )


def _short(outcome: Outcome) -> str:
    return f"{outcome.kind} {outcome.tree!r:.900}"


def outcome(kind: str, module: Any, source: Source) -> tuple[Outcome, bool]:
    """Build a case of that kind for `module` and run it; also whether two NaNs may meet in it."""
    w = World(module, source)
    try:
        call = KINDS[kind][0](w)
    except BaseException:
        w.cleanup.close()
        raise
    return w.run(call), w.mixes_nans


def agree(expected: Outcome, found: Outcome, mixes_nans: bool) -> bool:
    """Whether two outcomes are equal: to the bit, but for which of two NaNs came through."""
    return expected == found or (mixes_nans and expected.same_but_for_nans(found))


def compare_seed(kind: str, seed: int, module: Any, oracle: Any = model) -> Difference | None:
    """Run the case of that seed on both sides."""
    text = f"{kind}/{seed}"
    expected, mixes_nans = outcome(kind, oracle, Seeded(text))
    found, _ = outcome(kind, module, Seeded(text))
    if agree(expected, found, mixes_nans):
        return None
    return Difference(kind, f"seed {seed}", expected, found)


def compare_drawn(kind: str, drawn: Any, module: Any, oracle: Any = model) -> Difference | None:
    """Run the case of choices drawn on the model's side, and replayed on the other."""
    expected, mixes_nans = outcome(kind, oracle, drawn)
    found, _ = outcome(kind, module, Replayed(drawn.choices))
    if agree(expected, found, mixes_nans):
        return None
    return Difference(kind, f"choices {drawn.choices}", expected, found)


def shares(cases: int) -> dict[str, int]:
    """How many of `cases` each kind gets, at least one."""
    whole = sum(weight for _, weight in KINDS.values())
    split = {kind: max(1, cases * weight // whole) for kind, (_, weight) in KINDS.items()}
    first = next(iter(split))
    split[first] += max(0, cases - sum(split.values()))
    return split
