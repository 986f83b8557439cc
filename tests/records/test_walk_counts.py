"""Ordinary records are read in place, and those that may run code are asked: counted.

Builds with assertions count how many records were peeked at and how many were asked. A quick way
that is never taken gives right answers, slowly: only counting shows it.
"""

from __future__ import annotations

import time
from collections.abc import Callable, Iterable
from dataclasses import dataclass, make_dataclass
from types import SimpleNamespace
from typing import Any, NamedTuple

import pytest
from kestrune import search_analytics
from support.children import run_child
from support.interpreter import KNOWS_LAYOUT
from support.parts import NOW, pool
from support.records import ATTRIBUTES, HistoryTracker

SearchAnalytics = search_analytics.SearchAnalytics
FUNCTION_TYPE: Any = type(search_analytics.get_search_stats)
NUMBER = 500

pytestmark = pytest.mark.skipif(
    not hasattr(FUNCTION_TYPE, "walk_counts"), reason="only builds with assertions count"
)


def set_each(record: Any, **values: Any) -> None:
    for name, value in values.items():
        setattr(record, name, value)


INSTANCE = type("Instance", (), {"__init__": set_each})
SLOTS = type("Slots", (), {"__slots__": ATTRIBUTES, "__init__": set_each})
DATA = make_dataclass("Data", [(name, object, None) for name in ATTRIBUTES])


def with_own_dictionary(**values: Any) -> Any:
    record = INSTANCE()
    vars(record).update(values)
    return record


def whose_dictionary_was_asked_for(**values: Any) -> Any:
    record = INSTANCE(**values)
    assert vars(record)
    return record


def whose_dictionary_was_exchanged(**values: Any) -> Any:
    record = INSTANCE()
    record.__dict__ = values
    return record


class Asking:
    """A record whose class has a function for attributes that are not found."""

    def __init__(self, **values: Any) -> None:
        self.__dict__ = values

    def __getattr__(self, name: str) -> Any:
        raise AttributeError(name)


NAMED_TUPLE: Any = NamedTuple("NAMED_TUPLE", [(name, Any) for name in ATTRIBUTES])  # type: ignore[misc]

IN_PLACE: dict[str, Callable[..., Any]] = {
    "instance": INSTANCE,
    "slots": SLOTS,
    "data class": DATA,
    "own dictionary": with_own_dictionary,
    "dictionary asked for": whose_dictionary_was_asked_for,
    "dictionary exchanged": whose_dictionary_was_exchanged,
    "namespace": SimpleNamespace,
    "named tuple": NAMED_TUPLE,
    "function for what is missing": Asking,
}
"""Kinds of records whose attributes have places that we know."""


def item(side: str, number: int) -> dict[str, Any]:
    return {
        f"{side}_name": f"{side} {number % 7}",
        f"{side}_family": f"family {number % 3}",
        f"{side}_subfamily": f"subfamily {number % 5}",
    }


def values_of(number: int, now: float) -> dict[str, Any]:
    """What an ordinary evaluation holds: floats, a bool, dictionaries of strings in lists."""
    return {
        **dict.fromkeys(ATTRIBUTES),
        "era_id": "2012",
        "timestamp": now - 60.0 * number,
        "submitted": number % 2 == 0,
        "passed_thresholds": number % 3 == 0,
        **dict.fromkeys(("sharpe", "returns", "turnover", "drawdown", "correlation"), number / 7),
        "function_metadata": [item("function", number), item("function", number + 1)],
        "feature_metadata": [item("feature", number)],
        "tree_depth": number % 4,
        "eval_type": "signal",
        "eval_id": str(number),
    }


def records_of(make: Callable[..., Any], **overrides: Any) -> list[Any]:
    now = time.time()
    return [make(**{**values_of(number, now), **overrides}) for number in range(NUMBER)]


@dataclass(frozen=True)
class Question:
    """A question, and how many walks over all records and over some of them it takes."""

    name: str
    arguments: dict[str, Any]
    full_walks: int
    partial_walks: int = 0


QUESTIONS = [
    Question("get_search_stats", {"min_sample_size": 1}, 1),
    Question("get_search_stats", {"min_sample_size": 1, "era_id": "2012"}, 1),
    Question(
        "get_search_stats",
        {"min_sample_size": 1, "aggregate_by": search_analytics.AggregateBy.NONE},
        1,
    ),
    Question("get_suggestions", {"min_sample_size": 1}, 1),
    Question("get_search_patterns", {}, 1),
    Question("get_search_patterns", {"eval_pool": search_analytics.EvalPool.SUBMITTED}, 1, 1),
    Question(
        "get_search_patterns", {"function_family": "family 0", "feature_family": "family 1"}, 1, 1
    ),
    Question("get_correlation_patterns", {}, 2),
    Question("get_search_velocity", {}, 1),
]


def name_of(question: Question) -> str:
    return "-".join([question.name, *map(str, question.arguments)])


def walk_counts(question: Question, evals: Iterable[Any]) -> tuple[int, int]:
    """How many records answering it peeked at, and how many it asked."""
    engine = SearchAnalytics(HistoryTracker(evals), [pool()])
    peeked, asked = FUNCTION_TYPE.walk_counts()
    getattr(engine, question.name)(**question.arguments)
    after = FUNCTION_TYPE.walk_counts()
    return after[0] - peeked, after[1] - asked


def walks_of(question: Question) -> int:
    return question.full_walks + question.partial_walks


@pytest.mark.skipif(not KNOWS_LAYOUT, reason="nothing is read in place on this version")
@pytest.mark.parametrize("question", QUESTIONS, ids=name_of)
@pytest.mark.parametrize("make", IN_PLACE.values(), ids=IN_PLACE)
def test_ordinary_records_are_read_in_place(question: Question, make: Callable[..., Any]) -> None:
    peeked, asked = walk_counts(question, records_of(make))
    # Each walk asks the first record, and learns from it; velocity asks none.
    assert asked <= walks_of(question)
    assert peeked >= question.full_walks * (NUMBER - 1)


@pytest.mark.skipif(not KNOWS_LAYOUT, reason="nothing is read in place on this version")
@pytest.mark.parametrize("question", QUESTIONS, ids=name_of)
def test_records_of_another_kind_are_learned_when_they_come(question: Question) -> None:
    evals = [*records_of(INSTANCE), *records_of(SLOTS), *records_of(INSTANCE)]
    _, asked = walk_counts(question, evals)
    if question.name == "get_search_velocity":
        # It begins again, window by window: time stamps, and the flags of those in the window.
        assert asked <= 3 * (3 + 3)
    else:
        assert asked <= 3 * walks_of(question)


def test_a_version_on_which_nothing_is_read_in_place_is_told_of_at_import() -> None:
    said = run_child("import kestrune.search_analytics").stderr
    assert ("reads no record in place" in said) is not KNOWS_LAYOUT


class Properties:
    """A record whose attributes run code."""

    def __init__(self, **values: Any) -> None:
        self._values = values


for _name in ATTRIBUTES:
    setattr(Properties, _name, property(lambda record, name=_name: record._values[name]))


class Overriding(INSTANCE):  # type: ignore[misc, valid-type]
    """A record whose class looks attributes up in its own way."""

    def __getattribute__(self, name: str) -> Any:
        return object.__getattribute__(self, name)


ASKED: dict[str, Callable[..., Any]] = {
    "properties": Properties,
    "own look-up": Overriding,
}
"""Kinds of records that have to be asked."""


@pytest.mark.parametrize("question", QUESTIONS, ids=name_of)
@pytest.mark.parametrize("make", ASKED.values(), ids=ASKED)
def test_other_records_are_asked(question: Question, make: Callable[..., Any]) -> None:
    peeked, asked = walk_counts(question, records_of(make))
    assert peeked == 0
    assert asked >= question.full_walks * NUMBER


COLUMNS = {f"gross_returns_{name}": 1.0 for name in ("sharpe", "returns", "drawdown")}


class Colliding:
    """A key that a look-up of a text would ask whether it is equal."""

    def __init__(self, text: str) -> None:
        self.text = text

    def __hash__(self) -> int:
        return hash(self.text)


class Split:
    """Its dictionary shares its keys with those of other instances."""

    def __init__(self, **values: Any) -> None:
        for name, value in values.items():
            setattr(self, name, value)


TABLES: dict[str, Callable[[dict[str, Any]], Any]] = {
    "keys of any type": lambda item: {**item, 5: "other"},
    "shared keys": lambda item: vars(Split(**item)),
    "colliding keys elsewhere": lambda item: {**item, Colliding("other"): 1},
}


@pytest.mark.skipif(not KNOWS_LAYOUT, reason="nothing is read in place on this version")
@pytest.mark.parametrize("question", QUESTIONS, ids=name_of)
@pytest.mark.parametrize("sequence", [list, tuple])
@pytest.mark.parametrize("table", TABLES.values(), ids=TABLES)
def test_items_of_every_kind_are_read_in_place(
    question: Question, sequence: Callable[[Iterable[Any]], Any], table: Callable[..., Any]
) -> None:
    now = time.time()
    evals = []
    for number in range(NUMBER):
        values = values_of(number, now)
        for side in ("function_metadata", "feature_metadata"):
            values[side] = sequence(table(entries) for entries in values[side])
        evals.append(INSTANCE(**values))
    _, asked = walk_counts(question, evals)
    assert asked <= walks_of(question)


class Truth:
    """A flag that is true in its own way."""

    def __bool__(self) -> bool:
        return True


@pytest.mark.parametrize(
    ("name", "value", "questions"),
    [
        ("passed_thresholds", Truth(), QUESTIONS),
        ("turnover", 3, QUESTIONS[:4]),
        ("timestamp", 3, [*QUESTIONS[:4], QUESTIONS[-1]]),
        ("tree_depth", Truth(), QUESTIONS[4:7]),
        ("function_metadata", [{"function_name": 3}], [*QUESTIONS[:5], QUESTIONS[7]]),
        ("per_column_stats", {**COLUMNS, Colliding("gross_returns_sharpe"): 2.0}, QUESTIONS[:4]),
    ],
    ids=["flag", "int", "time", "depth", "name", "table"],
)
def test_values_of_other_types_are_asked_for(
    name: str, value: Any, questions: list[Question]
) -> None:
    for question in questions:
        asked_for = question.name != "get_search_patterns" or not question.arguments
        if asked_for:
            _, asked = walk_counts(question, records_of(INSTANCE, **{name: value}))
            assert asked >= NUMBER, name_of(question)


def test_a_yield_analysis_asks_for_what_it_hands_on() -> None:
    question = Question("get_yield_analysis", {}, 1)
    _, asked = walk_counts(question, records_of(INSTANCE))
    assert asked >= NUMBER


@pytest.mark.skipif(not KNOWS_LAYOUT, reason="nothing is read in place on this version")
@pytest.mark.parametrize("question", QUESTIONS, ids=name_of)
@pytest.mark.parametrize("count", [2, 3, 4])
def test_kinds_that_take_turns_are_read_in_place(question: Question, count: int) -> None:
    makers = list(IN_PLACE.values())[:count]
    now = time.time()
    evals = [makers[number % count](**values_of(number, now)) for number in range(NUMBER)]
    _, asked = walk_counts(question, evals)
    assert asked <= count * walks_of(question)


@pytest.mark.skipif(not KNOWS_LAYOUT, reason="nothing is read in place on this version")
def test_a_kind_that_comes_after_too_many_changes_is_asked() -> None:
    values = values_of(0, NOW)
    kinds = [type(f"Kind{number}", (INSTANCE,), {}) for number in range(100)]
    question = Question("get_search_patterns", {}, 1)
    evals = [kind(**values) for kind in kinds] + [DATA(**values) for _ in range(100)]
    assert walk_counts(question, evals) == (0, 200)
