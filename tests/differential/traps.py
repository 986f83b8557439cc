"""Records and values that turn on whoever reads them, and the comparison of what then happens."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from types import SimpleNamespace
from typing import Any

from differential.cases import subject
from differential.sources import Seeded
from differential.world import NOW, World
from model import search_analytics_model as model
from support.outcome import RECORDS, describe, first_difference
from support.records import HistoryTracker, TableConnection

Call = Callable[[], Any]
Builder = Callable[[World], Call]

# The operations that read records, with arguments under which they read all there is to read.
OPERATIONS: dict[str, dict[str, Any]] = {
    "get_search_stats": {"min_sample_size": 0, "era_id": "era-1"},
    "get_suggestions": {"min_sample_size": 0},
    "get_search_patterns": {},
    "get_search_velocity": {},
    "get_yield_analysis": {},
    "get_correlation_patterns": {},
}

# What each operation reads first and last of a record, and something in between.
READ: dict[str, tuple[str, ...]] = {
    "get_search_stats": ("per_column_stats", "correlation", "function_metadata", "era_id"),
    "get_suggestions": ("per_column_stats", "passed_thresholds", "era_id"),
    "get_search_patterns": ("passed_thresholds", "tree_depth", "function_metadata"),
    "get_search_velocity": ("timestamp", "passed_thresholds"),
    "get_yield_analysis": ("passed_thresholds", "timestamp", "eval_type", "failure_detail"),
    "get_correlation_patterns": ("passed_thresholds", "function_metadata"),
}

FIELDS: Mapping[str, Any] = {
    "era_id": "era-1",
    "timestamp": NOW - 60,
    "submitted": True,
    "passed_thresholds": True,
    "sharpe": 1.5,
    "returns": 0.25,
    "turnover": 0.5,
    "drawdown": 0.125,
    "correlation": 0.25,
    "per_column_stats": {"gross_returns_sharpe": 1.25},
    "tree_depth": 2,
    "eval_type": "signal",
    "eval_id": "e1",
    "failure_reason": "none",
    "failure_detail": None,
    "agent_is_pnl_mi": 0.5,
    "is_pnl_mi": 0.25,
}


def fields(index: int = 0, **changes: Any) -> dict[str, Any]:
    """A complete evaluation; its functions and statistics vary with `index`."""
    made = dict(FIELDS)
    made["function_metadata"] = [
        {"function_name": f"f{index % 3}", "function_family": "trend"},
        {"function_name": "rank", "function_family": f"family{index % 2}"},
    ]
    made["feature_metadata"] = [{"feature_name": "close", "feature_family": "price"}]
    made["sharpe"] = 0.5 + index
    made["eval_id"] = f"e{index}"
    made.update(changes)
    return made


class Trap:
    """A record that logs reads; the first read of one attribute springs an action."""

    def __init__(self, w: World, label: str, values: dict[str, Any]) -> None:
        object.__setattr__(self, "_state", (w, label, values, {}))

    def __getattribute__(self, name: str) -> Any:
        if name.startswith("__"):
            return object.__getattribute__(self, name)
        w, label, values, traps = object.__getattribute__(self, "_state")
        w.note(label, name)
        action = traps.pop(name, None)
        if action is not None:
            action()
        try:
            return values[name]
        except KeyError:
            raise AttributeError(name) from None


def trap(w: World, index: int = 0, **changes: Any) -> Trap:
    """A complete record that can be made to spring."""
    return Trap(w, f"record {index}", fields(index, **changes))


def spring(record: Trap, name: str, action: Call) -> None:
    """Run `action` at the first read of `name`, before the value is given."""
    object.__getattribute__(record, "_state")[3][name] = action


def engine(w: World, history: Any, **attributes: Any) -> Any:
    """An engine over that history, with two pools and a logging connection."""
    tracker = HistoryTracker(history, w.trace)
    rows = {f"e{index}": ("useful", None, None, "pool-z") for index in range(0, 9, 2)}
    connection = TableConnection(["signal_submission_status"], rows, w.trace)
    vars(tracker).update({"_conn": connection, **attributes})
    pools = [
        SimpleNamespace(name="tight", is_correlation_threshold=0.25),
        SimpleNamespace(name="loose", is_correlation_threshold=0.75),
    ]
    return w.module.SearchAnalytics(tracker, pools)


class Plain:
    """A record of an ordinary class."""

    def __init__(self, **values: Any) -> None:
        for name, value in values.items():
            setattr(self, name, value)


# What is asked for in a dictionary and is not there takes asking a record for everything.
COMPLETE: Mapping[str, Any] = {
    "per_column_stats": {
        "gross_returns_sharpe": 1.25,
        "gross_returns_returns": 0.5,
        "gross_returns_drawdown": 0.25,
    },
    "feature_metadata": [
        {"feature_name": "close", "feature_family": "price", "feature_subfamily": "daily"}
    ],
}


def plain(index: int = 0, **changes: Any) -> Plain:
    """A complete record that does nothing, and that can be read in place."""
    made = {**fields(index), **COMPLETE}
    for item in made["function_metadata"]:
        item["function_subfamily"] = f"part{index % 2}"
    made.update(changes)
    return Plain(**made)


def call(w: World, history: Any, operation: str, **keywords: Any) -> Call:
    """A call of that operation over that history."""
    target = engine(w, history)
    arguments = {**OPERATIONS[operation], **keywords}
    return lambda: getattr(target, operation)(**arguments)


def difference(build: Builder) -> str:
    """Build the case for the model and for the module, and run both: where they part, if at all."""
    outcomes = []
    for module in (model, subject()):
        w = World(module, Seeded("trap"))
        with w.cleanup:
            outcomes.append(w.run(build(w)))
    return first_difference(*outcomes)


def assert_same(build: Builder) -> None:
    """Build the case for the model and for the module, run both, and compare all that happened."""
    where = difference(build)
    assert not where, where


def forget(w: World, name: str) -> None:
    """Delete a name of the module until the case is over."""
    w.cleanup.callback(setattr, w.module, name, getattr(w.module, name))
    delattr(w.module, name)


def patch_constructor(w: World, name: str) -> None:
    """Have the constructor of a record class log, in the class as it stands."""
    record = getattr(w.module, name)
    original = record.__init__

    def construct(self: Any, *arguments: Any, **keywords: Any) -> None:
        w.note("constructed", name)
        original(self, *arguments, **keywords)

    w.patch(record, "__init__", construct)


class Made:
    """A record that logs every read of a field."""

    def __init__(self, w: World, label: str, values: Mapping[str, Any]) -> None:
        object.__setattr__(self, "_state", (w, label, values))

    def __getattribute__(self, name: str) -> Any:
        if name.startswith("__"):
            return object.__getattribute__(self, name)
        w, label, values = object.__getattribute__(self, "_state")
        w.note(label, name)
        return values[name]


def log_record_classes(w: World, *names: str) -> None:
    """Replace record classes: each record made is logged, and so is every read of its fields."""

    def log(name: str) -> Callable[..., Made]:
        made: list[Made] = []

        def make(**values: Any) -> Made:
            w.note("make", name, tuple(values), describe(list(values.values()), w.labels))
            made.append(Made(w, f"{name} {len(made)}", values))
            return made[-1]

        return make

    for name in names or RECORDS:
        w.patch(w.module, name, log(name))
