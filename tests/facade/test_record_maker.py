"""Result records: every field filled, in order; a class that a caller changed is honoured."""

from __future__ import annotations

import dataclasses
import gc
import pickle
import sys
from collections.abc import Iterator
from types import SimpleNamespace
from typing import Any

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import StatsRow, WindowStats
from support.children import run_child
from support.parts import engine_over, using
from support.signatures import OPERATIONS

HISTORIES = {
    "no evaluation": [],
    "a recent one": [using("f", "g")],
    "one in two windows of four": [using("f", "g", timestamp=0.0)],
}


def answered_records(evaluations: list[Any]) -> Iterator[Any]:
    """Every record in the answers to all questions about `evaluations`."""
    engine = engine_over(evaluations, eras=[], universes=[])
    for name, (parameters, _) in OPERATIONS.items():
        arguments = {"min_sample_size": 0} if "min_sample_size" in parameters else {}
        yield from records_in(getattr(engine, name)(**arguments))


def records_in(value: Any) -> Iterator[Any]:
    """A record, and every record below it."""
    if dataclasses.is_dataclass(value):
        yield value
        value = vars(value)
    if isinstance(value, dict):
        value = list(value.values())
    if isinstance(value, (list, tuple)):
        for item in value:
            yield from records_in(item)


@pytest.mark.parametrize("evaluations", HISTORIES.values(), ids=HISTORIES)
def test_every_field_of_an_answer_is_filled_in_the_order_of_its_class(evaluations):
    for record in answered_records(evaluations):
        assert list(vars(record)) == [field.name for field in dataclasses.fields(record)]


def test_the_answers_hold_records_of_every_class():
    answered = {
        type(record) for history in HISTORIES.values() for record in answered_records(history)
    }
    assert answered == set(filter(dataclasses.is_dataclass, vars(search_analytics).values()))


def rows(count: int = 300) -> list[StatsRow]:
    """Return one row per group, of `count` groups whose mean sharpe rises."""
    evaluations = [using(f"f{i}", sharpe=float(i)) for i in range(count)]
    return engine_over(evaluations).get_search_stats(min_sample_size=0).rows


def test_a_setter_under_a_field_may_drop_what_it_is_given(monkeypatch):
    windows = [SimpleNamespace(composite_score=1.0)]
    descriptor = property(lambda row: windows, lambda row, value: None)
    monkeypatch.setattr(StatsRow, "windows", descriptor, raising=False)
    found = rows()
    gc.collect()
    assert [row.windows for row in found] == [windows] * 300


def test_a_count_that_is_no_number_fails_in_the_sort(monkeypatch):
    descriptor = property(lambda row: "x", lambda row, value: None)
    monkeypatch.setattr(StatsRow, "evaluation_count", descriptor)
    with pytest.raises(TypeError, match="bad operand type for unary -: 'str'"):
        rows()


def test_a_constructor_put_in_the_class_is_called(monkeypatch):
    made = []
    original = WindowStats.__init__

    def constructor(record, **fields):
        made.append(list(fields))
        original(record, **fields)

    monkeypatch.setattr(WindowStats, "__init__", constructor)
    rows(1)
    assert made == [list(WindowStats.__annotations__)] * 4


def test_a_member_whose_name_is_no_text_changes_no_answer():
    before = rows(1)
    (members,) = (found for found in gc.get_referents(StatsRow.__dict__) if type(found) is dict)
    members[5] = "a name that only a look behind the class can give"
    try:
        assert rows(1) == before
    finally:
        del members[5]


@pytest.fixture
def constructor():
    """The constructor of a window's record, which is whole again afterwards."""
    found = WindowStats.__init__
    before = (found.__code__, found.__defaults__, found.__kwdefaults__)
    yield found
    found.__code__, found.__defaults__, found.__kwdefaults__ = before


def exchanged_code(constructor):
    """Return code with the parameters of a constructor that only notes its call."""
    names = constructor.__code__.co_varnames[: constructor.__code__.co_argcount]
    cells = constructor.__code__.co_freevars
    outer = f"{', '.join(cells)} = " + "None, " * len(cells) if cells else "pass"
    kept = f"({', '.join(cells)},)" if cells else "()"
    source = (
        f"def outer():\n    {outer}\n    def __init__({', '.join(names)}):\n"
        f"        {kept}\n        self.made = __import__('sys')._made\n"
        "        self.made.append(self)\n    return __init__"
    )
    namespace: dict[str, Any] = {}
    exec(source, namespace)
    return namespace["outer"]().__code__


def test_exchanged_code_of_a_constructor_is_run(monkeypatch, constructor):
    made: list[Any] = []
    monkeypatch.setattr(sys, "_made", made, raising=False)
    first = rows(1)
    constructor.__code__ = exchanged_code(constructor)
    rows(1)
    assert len(made) == 4
    assert list(vars(made[0])) == ["made"]
    assert "sharpe" in vars(first[0].windows[0])


def test_code_exchanged_between_two_records_is_run(monkeypatch, constructor):
    made: list[Any] = []
    monkeypatch.setattr(sys, "_made", made, raising=False)

    class Minimum(int):
        compared = 0

        def __gt__(self, other):
            Minimum.compared += 1
            if Minimum.compared == 3:
                constructor.__code__ = exchanged_code(constructor)
            return False

    evaluations = [using(f"f{i}", sharpe=float(i)) for i in range(5)]
    engine_over(evaluations).get_search_stats(min_sample_size=Minimum(0))
    assert len(made) == 4 * 3


def test_exchanged_defaults_of_a_constructor_serve_who_calls_it(constructor):
    constructor.__defaults__ = (7,) * len(constructor.__defaults__)
    constructor.__kwdefaults__ = {"window": 7}
    assert WindowStats().sharpe == 7
    assert rows(1)[0].windows[0].sharpe == 0.0


def test_rows_are_seen_by_the_collector():
    found = rows()
    assert all(gc.is_tracked(row) and gc.is_tracked(row.windows) for row in found)
    assert all(gc.is_tracked(window) for row in found for window in row.windows)


@pytest.fixture
def slot_names():
    """Take away again what pickling leaves on a class."""
    yield
    for record in (StatsRow, WindowStats):
        if "__slotnames__" in vars(record):
            del record.__slotnames__


@pytest.mark.usefixtures("slot_names")
def test_pickling_a_record_changes_no_later_answer():
    before = rows()
    assert pickle.loads(pickle.dumps(before, protocol=2)) == before
    assert rows() == before
    assert search_analytics.StatsRow is StatsRow


def test_a_record_class_that_stands_for_another_is_called(monkeypatch):
    monkeypatch.setattr(search_analytics, "DepthBucket", search_analytics.FamilyYield)
    with pytest.raises(TypeError, match="unexpected keyword argument 'depth'"):
        engine_over([using("f")]).get_search_patterns()


@pytest.mark.usefixtures("slot_names")
def test_a_pickled_record_makes_no_later_one_call_its_constructor():
    pickle.dumps(rows(1), protocol=2)
    engine = engine_over([using("f"), using("g")])
    called = []
    sys.setprofile(lambda frame, event, argument: called.append(frame.f_code.co_name))
    try:
        engine.get_search_stats(min_sample_size=0)
    finally:
        sys.setprofile(None)
    assert "get_evaluation_history" in called
    assert "__init__" not in called


def test_a_new_put_in_the_class_is_called():
    # It cannot be taken away again.
    run_child(
        """
        from kestrune import search_analytics
        from support.parts import engine_over, using

        def new(cls, *arguments, **keywords):
            made.append(list(keywords))
            return object.__new__(cls)

        made = []
        search_analytics.DepthBucket.__new__ = new
        engine_over([using("f")]).get_search_patterns()
        assert made == [["depth", "total", "passed", "yield_rate"]], made
        """
    )
