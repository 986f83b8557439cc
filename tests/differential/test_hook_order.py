"""The order in which an operation reads, compares, hashes and makes things: the model's."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from differential.hooks import (
    HookedIterable,
    HookedNumber,
)
from differential.traps import (
    OPERATIONS,
    assert_same,
    call,
    engine,
    log_record_classes,
    plain,
    trap,
)
from differential.world import NOW, World
from support.outcome import RECORDS

Call = Callable[[], Any]


def using(names: list[Any], **changes: Any) -> SimpleNamespace:
    """A plain record of functions with these names, each its own family."""
    return plain(function_metadata=[{"function_name": name} for name in names], **changes)


@pytest.mark.parametrize("record", sorted(RECORDS))
@pytest.mark.parametrize("operation", OPERATIONS)
def test_records_of_a_replaced_class_are_read_in_order(operation: str, record: str) -> None:
    def build(w: World) -> Call:
        log_record_classes(w, record)
        history = [using(["b", "a", "c"], tree_depth=depth) for depth in range(12)]
        history += [using(["d", "a"], passed_thresholds=False) for _ in range(3)]
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("operation", OPERATIONS)
def test_records_of_replaced_classes_are_made_in_order(operation: str) -> None:
    def build(w: World) -> Call:
        log_record_classes(w)
        history = [trap(w, index, tree_depth=-index) for index in range(11)]
        return call(w, history, operation)

    assert_same(build)


class Fickle(str):
    """A name that equals others by turns: each comparison takes the next answer, then True."""

    answers: list[bool]
    note: Callable[..., None]

    def __eq__(self, other: object) -> bool:
        answer = self.answers.pop(0) if self.answers else True
        self.note("fickle", "eq", str.__str__(self), answer)
        return answer and str.__eq__(self, other)

    def __hash__(self) -> int:
        self.note("fickle", "hash", str.__str__(self))
        return str.__hash__(self)


def fickle(w: World, name: str, *answers: bool) -> Fickle:
    made = Fickle(name)
    made.answers, made.note = list(answers), w.note
    return made


ANSWERS = [(True,), (False,), (False, False), (False, True, False), (False, False, False)]
EVERY_ANSWER = pytest.mark.parametrize("answers", ANSWERS, ids=str)


@EVERY_ANSWER
@pytest.mark.parametrize("operation", OPERATIONS)
@pytest.mark.parametrize("places", [(0, 1), (1, 2), (0, 2), (0, 1, 2)], ids=str)
def test_names_that_are_equal_by_turns(
    operation: str, places: tuple[int, ...], answers: tuple[bool, ...]
) -> None:
    def build(w: World) -> Call:
        history = [
            using([fickle(w, "f", *answers) if place in places else "f", "g"]) for place in range(4)
        ]
        return call(w, history, operation)

    assert_same(build)


class FickleInt(int):
    """A name with a hash of choice that denies twice or more that it equals another."""

    answers: list[bool]

    def __eq__(self, other: object) -> bool:
        return (self.answers.pop(0) if self.answers else True) and int.__eq__(self, other)

    __hash__ = int.__hash__


# The hashes of these pairs lead a dictionary of eight places past the same entry twice, so that
# looking a pair up finds another entry than storing it does.
@pytest.mark.parametrize(
    ("value", "places"), [(829, (0, 1)), (829, (0, 1, 2)), (15, (1, 2))], ids=str
)
def test_pairs_that_are_stored_elsewhere_than_they_were_found(
    value: int, places: tuple[int, ...]
) -> None:
    def build(w: World) -> Call:
        names: list[int] = [value] * 4
        for place in places:
            names[place] = FickleInt(value)
            names[place].answers = [False] * 3  # type: ignore[attr-defined]
        return call(w, [using([name, 100000]) for name in names], "get_correlation_patterns")

    assert_same(build)


@EVERY_ANSWER
def test_group_keys_that_are_equal_by_turns(answers: tuple[bool, ...]) -> None:
    def build(w: World) -> Call:
        made = engine(w, [plain(index) for index in range(3)])
        keys = [fickle(w, "f", *answers) for _ in range(3)]
        made._build_group_key = lambda ev, by: keys.pop(0)
        return lambda: made.get_search_stats(min_sample_size=0)

    assert_same(build)


@EVERY_ANSWER
def test_depths_that_are_equal_by_turns(answers: tuple[bool, ...]) -> None:
    def build(w: World) -> Call:
        depths = ["f", *(fickle(w, "f", *answers) for _ in range(3)), "f"]
        return call(w, [plain(tree_depth=depth) for depth in depths], "get_search_patterns")

    assert_same(build)


class Compared(float):
    """A key that logs what it is compared with."""

    note: Callable[..., None]
    labels: dict[int, str]

    def __eq__(self, other: object) -> bool:
        self.note("compared", "eq", type(other).__name__, self.labels.get(id(other)))
        return float.__eq__(self, other)  # type: ignore[no-any-return]

    def __hash__(self) -> int:
        self.note("compared", "hash")
        return float.__hash__(self)


def compared(w: World, value: float) -> Compared:
    made = Compared(value)
    made.note, made.labels = w.note, w.labels
    return made


DEPTHS: dict[str, Callable[[World], list[Any]]] = {
    "int, bool": lambda w: [1, True],
    "int, float": lambda w: [1, 1.0],
    "two floats": lambda w: [w.tag(float("1.5"), "one"), w.tag(float("1.5"), "other")],
    "two ints": lambda w: [w.tag(int("1" * 20), "one"), w.tag(int("1" * 20), "other")],
    "two texts": lambda w: [w.tag("".join("ab"), "one"), w.tag("".join("ab"), "other")],
}


@pytest.mark.parametrize("passes", [(0, 1), (1, 0), (1, 1), (0, 0)], ids=str)
@pytest.mark.parametrize("depths", list(DEPTHS)[:4])
def test_passes_are_counted_under_the_first_depth_that_passed(
    depths: str, passes: tuple[int, int]
) -> None:
    def build(w: World) -> Call:
        first, second = DEPTHS[depths](w)
        history = [
            plain(tree_depth=first, passed_thresholds=passes[0]),
            plain(tree_depth=second, passed_thresholds=passes[1]),
            plain(tree_depth=compared(w, first), passed_thresholds=True),
        ]
        return call(w, history, "get_search_patterns")

    assert_same(build)


class ComparedText(str):
    """A family that logs what it is compared with."""

    note: Callable[..., None]
    labels: dict[int, str]

    def __eq__(self, other: object) -> bool:
        self.note("family", "eq", self.labels.get(id(other)))
        return str.__eq__(self, other)

    def __hash__(self) -> int:
        return str.__hash__(self)


@pytest.mark.parametrize("passes", [(0, 1), (1, 0), (1, 1), (0, 0)], ids=str)
def test_passes_are_counted_under_the_first_family_that_passed(passes: tuple[int, int]) -> None:
    def build(w: World) -> Call:
        third = ComparedText("ab")
        third.note, third.labels = w.note, w.labels
        families = [*DEPTHS["two texts"](w), third]
        history = [
            plain(function_metadata=[{"function_family": family}], passed_thresholds=passed)
            for family, passed in zip(families, (*passes, 1), strict=True)
        ]
        return call(w, history, "get_search_patterns")

    assert_same(build)


@pytest.mark.parametrize("elements", [("a",), (1, 2), ()], ids=str)
def test_a_depth_that_cannot_be_found_again(elements: tuple[Any, ...]) -> None:
    class Moving(tuple):  # type: ignore[type-arg]
        hashes = 0

        def __hash__(self) -> int:
            Moving.hashes += 1
            return Moving.hashes

    def build(w: World) -> Call:
        Moving.hashes = 0
        return call(w, [plain(tree_depth=Moving(elements))], "get_search_patterns")

    assert_same(build)


class Moment(HookedNumber):
    """A clock's own kind of number."""

    def __sub__(self, other: Any) -> Any:
        self.did("sub", repr(other))
        return self._with(self.value - other)

    def _with(self, value: Any) -> Moment:
        return Moment(self.note, f"{self.label}'", value)


MOMENTS: dict[str, Callable[[World], list[Any]]] = {
    "no records": lambda w: [],
    "plain records": lambda w: [plain(index) for index in range(2)],
    "logging records": lambda w: [trap(w, index) for index in range(2)],
    "records with moments": lambda w: [
        plain(timestamp=HookedNumber(w.note, "timestamp", NOW)) for _ in range(2)
    ],
}
CLOCKED = ("get_search_stats", "get_search_velocity", "get_yield_analysis")


@pytest.mark.parametrize("history", MOMENTS)
@pytest.mark.parametrize("operation", CLOCKED)
def test_cut_offs_of_a_clock_of_its_own_kind(operation: str, history: str) -> None:
    def build(w: World) -> Call:
        w.clock = lambda: Moment(w.note, "now", NOW)
        return call(w, MOMENTS[history](w), operation)

    assert_same(build)


class Minutes(HookedNumber):
    """A length of a window."""


@pytest.mark.parametrize("history", MOMENTS)
@pytest.mark.parametrize("place", [0, 1, 2])
def test_windows_are_measured_in_their_turn(place: int, history: str) -> None:
    def build(w: World) -> Call:
        windows: list[Any] = [60, 360.0, 1440]
        windows[place] = Minutes(w.note, "minutes", windows[place])
        return call(w, MOMENTS[history](w), "get_search_velocity", windows=windows)

    assert_same(build)


@pytest.mark.parametrize("clock", [None, "text", b"", [], 1 + 2j], ids=repr)
@pytest.mark.parametrize("operation", CLOCKED)
def test_clocks_that_give_no_number(operation: str, clock: Any) -> None:
    def build(w: World) -> Call:
        w.clock = lambda: clock
        return call(w, [trap(w)], operation)

    assert_same(build)


def test_windows_are_measured_by_a_second_walk_over_what_was_asked_for() -> None:
    def build(w: World) -> Call:
        class Windows(HookedIterable):
            def __len__(self) -> int:
                return 1

        windows = Windows(w.note, "windows", [5, 6])
        return call(w, [trap(w), trap(w, 1)], "get_search_velocity", windows=windows)

    assert_same(build)


@pytest.mark.parametrize("field", ["total_evaluations", "window_minutes", "passes_per_hour"])
def test_a_stop_iteration_of_a_window_record(field: str) -> None:
    def build(w: World) -> Call:
        def stop(record: Any) -> Any:
            raise StopIteration(5)

        window = type("Window", (SimpleNamespace,), {field: property(stop, lambda r, v: None)})
        w.patch(w.module, "VelocityWindow", window)
        return call(w, [plain()] * 10, "get_search_velocity")

    assert_same(build)


class Column(str):
    """A piece of a statement that logs being put together with others."""

    note: Callable[..., None]

    def __radd__(self, other: str) -> str:
        self.note("column", "radd", other[:6])
        return other + str.__str__(self)

    def __add__(self, other: str) -> str:
        self.note("column", "add", other[:6])
        return str.__str__(self) + other


@pytest.mark.parametrize("records", [1, 3])
def test_a_statement_is_put_together_for_every_evaluation(records: int) -> None:
    def build(w: World) -> Call:
        table, column = Column("signal_submission_status"), Column("signal_pool_id")
        table.note = column.note = w.note
        asked = "_submission_status_table_and_signal_column"
        w.patch(w.module, asked, lambda eval_type: (table, column))
        return call(w, [trap(w, index) for index in range(records)], "get_yield_analysis")

    assert_same(build)
