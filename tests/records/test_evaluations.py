"""A walk gives one answer whichever way its records are read: in place, or by asking them."""

from __future__ import annotations

import itertools
from collections import namedtuple
from collections.abc import Callable, Mapping
from dataclasses import make_dataclass
from types import SimpleNamespace
from typing import Any

import pytest
from differential.cases import subject
from differential.sources import Seeded
from differential.traps import OPERATIONS, assert_same, call, fields, spring, trap
from differential.world import NOW, World
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st
from model import search_analytics_model as model
from support.outcome import Outcome
from support.records import ATTRIBUTES, LateRecord

Make = Callable[..., Any]


def set_each(record: Any, **values: Any) -> None:
    for name, value in values.items():
        setattr(record, name, value)


KINDS: dict[str, Callable[[], Make]] = {
    "instance": lambda: type("Record", (), {"__init__": set_each}),
    "data class": lambda: make_dataclass("Record", [(name, object, None) for name in ATTRIBUTES]),
    "slots": lambda: type("Record", (), {"__slots__": ATTRIBUTES, "__init__": set_each}),
    "named tuple": lambda: namedtuple("Record", ATTRIBUTES, defaults=[None] * len(ATTRIBUTES)),
    "namespace": lambda: type("Record", (SimpleNamespace,), {}),
    "own dictionary": lambda: type(
        "Record", (), {"__init__": lambda record, **values: vars(record).update(values)}
    ),
}
"""Makes a new class of records of each kind, whose instances are made from keywords."""


def asked(**values: Any) -> LateRecord:
    """A record that can only be asked: it holds nothing in a place of its own."""
    return LateRecord([], "record", values)


def outcome(module: Any, history: list[Any], operation: str) -> Outcome:
    """What comes of one operation over that history."""
    w = World(module, Seeded("kinds of records"))
    return w.run(call(w, history, operation))


NAMES = st.sampled_from(["sma", "ema", "rank", "größe", "平均", "😀", ""])
NUMBERS = st.sampled_from([0.5, 1.25, -2.0, 0.0, 1e300, 3, True, 2**70])
STATISTICS = ("sharpe", "returns", "drawdown")


def items(side: str) -> st.SearchStrategy[list[dict[str, Any]]]:
    """The metadata of one side: some names, families and missing families."""
    values = {f"{side}_name": NAMES, f"{side}_family": NAMES | st.none()}
    return st.lists(st.fixed_dictionaries(values), max_size=3)


ROWS = st.fixed_dictionaries(
    {
        "passed_thresholds": st.sampled_from([True, False, True, 1, ""]),
        "tree_depth": st.sampled_from([1, 2, 3, 2.0, True]),
        "timestamp": st.sampled_from([NOW, NOW - 60.0, NOW - 90000.0, NOW - 7000000.0, int(NOW)]),
        "era_id": st.sampled_from(["era-1", "era-2", None]),
        "correlation": NUMBERS,
        "turnover": NUMBERS,
        "sharpe": NUMBERS,
        "per_column_stats": st.none()
        | st.fixed_dictionaries({f"gross_returns_{name}": NUMBERS for name in STATISTICS}),
        "function_metadata": items("function"),
        "feature_metadata": items("feature"),
    }
)


def complete(rows: list[Mapping[str, Any]]) -> list[dict[str, Any]]:
    return [fields(index, **row) for index, row in enumerate(rows)]


def with_rows(test: Callable[..., None]) -> Callable[..., None]:
    """Runs a test with drawn rows, the same ones in every run."""
    examples = settings(
        max_examples=12,
        deadline=None,
        database=None,
        derandomize=True,
        suppress_health_check=list(HealthCheck),
    )
    return examples(given(rows=st.lists(ROWS, min_size=1, max_size=8).map(complete))(test))


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("operation", OPERATIONS)
@with_rows
def test_records_of_every_kind_answer_as_records_that_are_asked(
    operation: str, kind: str, rows: list[dict[str, Any]]
) -> None:
    make = KINDS[kind]()
    history = [make(**row) for row in rows]
    found = outcome(subject(), history, operation)
    assert found == outcome(subject(), [asked(**row) for row in rows], operation)
    assert found == outcome(model, history, operation)


@pytest.mark.parametrize("operation", OPERATIONS)
@with_rows
def test_kinds_that_take_turns_answer_as_records_that_are_asked(
    operation: str, rows: list[dict[str, Any]]
) -> None:
    makers = itertools.cycle([*(kind() for kind in KINDS.values()), asked])
    history = [make(**row) for row, make in zip(rows * 7, makers, strict=False)]
    found = outcome(subject(), history, operation)
    assert found == outcome(subject(), [asked(**row) for row in rows * 7], operation)


@pytest.mark.parametrize("run", [1, 3, 40])
@pytest.mark.parametrize("operation", OPERATIONS)
def test_long_lists_of_many_kinds_agree(operation: str, run: int) -> None:
    """More changes of class than are worth remembering, and runs of one class in between."""

    def build(w: World) -> Callable[[], Any]:
        makers = [kind() for kind in KINDS.values()]
        history = [makers[i // run % len(makers)](**fields(i)) for i in range(480)]
        return call(w, history, operation)

    assert_same(build)


def read_by_a_function(cls: Any) -> None:
    cls.__getattribute__ = lambda record, name: (
        5 if name == "tree_depth" else object.__getattribute__(record, name)
    )


CHANGES: dict[str, Callable[[Any], None]] = {
    "property": lambda cls: setattr(cls, "passed_thresholds", property(lambda record: False)),
    "value": lambda cls: setattr(cls, "tree_depth", 7),
    "function": read_by_a_function,
    "failure": lambda cls: setattr(cls, "timestamp", property(lambda record: 1 // 0)),
    "unrelated": lambda cls: setattr(cls, "unrelated", 1),
}


class Springing:
    """A truth that runs an action when it is first asked for."""

    def __init__(self, action: Callable[[], None]) -> None:
        self.actions = [action]

    def __bool__(self) -> bool:
        if self.actions:
            self.actions.pop()()
        return True


@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("operation", OPERATIONS)
@pytest.mark.parametrize("by", ["its own record", "another record"])
def test_a_class_that_changes_between_two_records_agrees(
    by: str, operation: str, kind: str, change: str
) -> None:
    def build(w: World) -> Callable[[], Any]:
        cls = KINDS[kind]()
        history = [cls(**fields(i)) for i in range(10)]
        if by == "its own record":
            springing = Springing(lambda: CHANGES[change](cls))
            history.insert(5, cls(**fields(99, passed_thresholds=springing)))
        else:
            changing = trap(w, 99)
            spring(changing, "passed_thresholds", lambda: CHANGES[change](cls))
            history.insert(5, changing)
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("kind", [kind for kind in KINDS if kind != "named tuple"])
@pytest.mark.parametrize("operation", OPERATIONS)
def test_records_that_change_their_values_on_the_way_agree(operation: str, kind: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        cls = KINDS[kind]()
        history = [cls(**fields(i)) for i in range(10)]

        def change() -> None:
            for record in history[6:]:
                record.passed_thresholds = False
                record.function_metadata = [{"function_name": "late"}, {"function_name": "later"}]
            del history[6].tree_depth
            history[6].tree_depth = 9

        changing = trap(w, 99)
        spring(changing, "passed_thresholds", change)
        history.insert(5, changing)
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("operation", OPERATIONS)
def test_records_whose_dictionary_was_asked_for_may_stand_among_others(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        cls = KINDS["instance"]()
        history = [cls(**fields(i)) for i in range(12)]
        for record in history[5:8]:
            vars(record)["unrelated"] = 1
        return call(w, history, operation)

    assert_same(build)


ITEMS: list[Any] = [None, (), ({"function_name": "f"},), {"function_name": "f"}, 5, "text", []]


@pytest.mark.parametrize("items", ITEMS, ids=repr)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_long_lists_of_records_with_items_of_any_kind_agree(operation: str, items: Any) -> None:
    def build(w: World) -> Callable[[], Any]:
        cls = KINDS["instance"]()
        history = [cls(**fields(i)) for i in range(60)]
        for record in history[3:]:
            record.function_metadata = items
        return call(w, history, operation)

    assert_same(build)
