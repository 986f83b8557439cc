"""The operations that are measured: arguments, what they have to read, where they must stand."""

import time
from collections.abc import Callable
from dataclasses import dataclass, field
from functools import partial
from types import ModuleType
from typing import Any

from workloads import POOLS

STATS_KEYS = ("gross_returns_sharpe", "gross_returns_returns", "gross_returns_drawdown")
VELOCITY_WINDOWS = [60, 360, 1440]
RECENT_MINUTES = 360

FILTERS = {"function_family": "function_family_1", "feature_subfamily": "feature_subfamily_1"}


@dataclass(frozen=True)
class Operation:
    """One question, asked of one workload.

    `floors` is how many times the time of its read floor it may take; None where nothing is
    demanded.
    """

    method: str
    workload: str
    note: str = ""
    arguments: dict[str, Any] = field(default_factory=dict)
    floors: float | None = None

    @property
    def label(self) -> str:
        return ", ".join(part for part in (self.method, self.workload, self.note) if part)

    def call(self, module: ModuleType, records: list[Any], conn: Any = None) -> Callable[[], Any]:
        """Return the question as a call without arguments to `module`'s engine over `records`."""
        engine = module.SearchAnalytics(History(records, conn), POOLS)
        return partial(getattr(engine, self.method), **self.arguments)

    def floor_call(self, floor: ModuleType, records: list[Any]) -> Callable[[], Any]:
        """Return the loop that reads what this question has to read."""
        filters = [self.arguments.get(name) for name in FILTERS]
        loop, arguments = _FLOORS[self.method]
        return lambda: getattr(floor, loop)(records, *filters, *arguments())


class History:
    """A tracker that has all records at hand."""

    def __init__(self, records: list[Any], conn: Any = None) -> None:
        self._records = records
        self._conn = conn

    def get_evaluation_history(self, **filters: Any) -> list[Any]:
        return self._records


# By method: the loop of the read floor, and what it is given besides records and filters.
_FLOORS: dict[str, tuple[str, Callable[[], tuple[Any, ...]]]] = {
    "get_search_stats": (
        "stats",
        lambda: (STATS_KEYS, "function_subfamily", "feature_subfamily"),
    ),
    "get_suggestions": (
        "stats",
        lambda: (STATS_KEYS, "function_subfamily", "feature_subfamily"),
    ),
    "get_search_patterns": ("patterns", tuple),
    "get_correlation_patterns": ("pairs", tuple),
    "get_search_velocity": ("velocity", lambda: (VELOCITY_WINDOWS, time.time())),
    "get_yield_analysis": ("yields", lambda: (time.time() - RECENT_MINUTES * 60,)),
}

# Every question once, with its defaults.
QUESTIONS = tuple(Operation(method, "") for method in _FLOORS)

OPERATIONS = (
    Operation("get_search_stats", "narrow", floors=1.25),
    Operation("get_search_stats", "wide", floors=1.6),
    Operation("get_search_stats", "wide", "min_sample_size=0", {"min_sample_size": 0}),
    Operation("get_suggestions", "narrow", floors=1.3),
    Operation("get_search_patterns", "narrow", floors=1.4),
    Operation("get_search_patterns", "wide", floors=1.4),
    Operation("get_correlation_patterns", "narrow", floors=1.6),
    Operation("get_correlation_patterns", "wide", floors=1.6),
    Operation("get_search_velocity", "narrow", floors=1.3),
    Operation("get_yield_analysis", "narrow", "no database"),
    *(Operation(method, "narrow", "filtered", FILTERS, floors=1.4) for method in _FLOORS),
    *(
        Operation(method, "wide", "filtered", FILTERS, floors=1.4)
        for method in ("get_search_stats", "get_search_patterns", "get_correlation_patterns")
    ),
)
