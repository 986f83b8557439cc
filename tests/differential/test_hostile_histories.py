"""Histories that change under the reader's hands, or lie: the same outcome as the model's."""

from __future__ import annotations

from collections import deque
from collections.abc import Callable, Iterator
from typing import Any

import pytest
from differential.hooks import HookedIterable
from differential.traps import (
    OPERATIONS,
    READ,
    assert_same,
    call,
    engine,
    plain,
    spring,
    trap,
)
from differential.world import World

Action = Callable[[World, list[Any]], None]


def extend(w: World, history: list[Any]) -> None:
    history.extend(trap(w, 10 + index) for index in range(3))


def replace_slice(w: World, history: list[Any]) -> None:
    history[1:3] = [trap(w, 20), trap(w, 21), trap(w, 22)]


ACTIONS: dict[str, Action] = {
    "clear": lambda w, history: history.clear(),
    "pop": lambda w, history: history.pop() and None,
    "pop first": lambda w, history: history.pop(0) and None,
    "extend": extend,
    "reverse": lambda w, history: history.reverse(),
    "sort": lambda w, history: history.sort(key=id) if len(history) < 2 else None,
    "replace slice": replace_slice,
    "forget all": lambda w, history: history.__setitem__(slice(None), [None] * len(history)),
}


@pytest.mark.parametrize("position", [0, 2, 4], ids=["first", "middle", "last"])
@pytest.mark.parametrize("action", list(ACTIONS))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_record_changes_the_history(operation: str, action: str, position: int) -> None:
    for attribute in READ[operation]:

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            history: list[Any] = [trap(w, index) for index in range(5)]
            spring(history[position], attribute, lambda: ACTIONS[action](w, history))
            return call(w, history, operation)

        assert_same(build)


class Lying(list):  # type: ignore[type-arg]
    """A list that says another length at every question."""

    answers: list[Any]
    w: World

    def __len__(self) -> int:
        self.w.note("len")
        answer = self.answers.pop(0) if len(self.answers) > 1 else self.answers[0]
        if isinstance(answer, BaseException):
            raise answer
        return answer  # type: ignore[no-any-return]


LENGTHS: dict[str, list[Any]] = {
    "negative": [-1],
    "none": [0],
    "too many": [7],
    "huge": [2**62],
    "too big": [2**70],
    "changing": [3, 1, 0, 2, 5],
    "failing": [ValueError("no length")],
    "failing later": [3, TypeError("no length")],
    "no number": ["three"],
}


@pytest.mark.parametrize("length", list(LENGTHS))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_history_lies_about_its_length(operation: str, length: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history = Lying([trap(w), trap(w, 1)])
        history.w, history.answers = w, list(LENGTHS[length])
        return call(w, history, operation)

    assert_same(build)


class Hinting:
    """Iterable twice, with a hint of a length that nobody could hold."""

    def __init__(self, items: list[Any]) -> None:
        self.items = items

    def __iter__(self) -> Iterator[Any]:
        return iter(self.items)

    def __length_hint__(self) -> int:
        return 2**62

    def __len__(self) -> int:
        return len(self.items)


class Undecided(list):  # type: ignore[type-arg]
    """Like an array: has no truth."""

    def __bool__(self) -> bool:
        raise ValueError("the truth of an array is ambiguous")


class Numbered:
    """A sequence by index alone, that grows while it is read."""

    def __init__(self, items: list[Any]) -> None:
        self.items = items

    def __getitem__(self, index: int) -> Any:
        if index == 1 and len(self.items) < 6:
            self.items.append(self.items[0])
        return self.items[index]

    def __len__(self) -> int:
        return len(self.items)


HISTORIES: dict[str, Callable[[World, list[Any]], Any]] = {
    "hinting": lambda w, records: Hinting(records),
    "undecided": lambda w, records: Undecided(records),
    "numbered": lambda w, records: Numbered(records),
    "set": lambda w, records: set(records[:1]),
    "dict": lambda w, records: dict.fromkeys(records),
    "values": lambda w, records: dict(enumerate(records)).values(),
    "bounded": lambda w, records: deque(records, maxlen=2),
    "text": lambda w, records: "abc",
    "number": lambda w, records: 3,
    "generator": lambda w, records: (record for record in records),
    "iterable": lambda w, records: HookedIterable(w.note, "history", records),
    "failing iterator": lambda w, records: (1 // 0 for record in records),
    "growing deque": lambda w, records: deque([*records, _grower(w)]),
}


def _grower(w: World) -> Any:
    record = trap(w, 5)
    spring(record, "passed_thresholds", lambda: w.note("grown"))
    return record


@pytest.mark.parametrize("history", list(HISTORIES))
@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_history_of_some_other_kind(operation: str, history: str) -> None:
    assert_same(
        lambda w: call(w, HISTORIES[history](w, [trap(w), trap(w, 1), trap(w, 2)]), operation)
    )


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_deque_that_changes_while_it_is_read(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history: deque[Any] = deque([trap(w), trap(w, 1), trap(w, 2)])
        spring(history[1], READ[operation][0], history.pop)
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_same_record_ten_thousand_times(operation: str) -> None:
    assert_same(lambda w: call(w, [plain()] * 10_000, operation))


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_records_in_a_cycle(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        one, other = plain(), plain(1)
        one.next, other.next = other, one
        history: list[Any] = [one, other]
        one.history = history
        return call(w, history, operation)

    assert_same(build)


@pytest.mark.parametrize("operation", list(OPERATIONS))
def test_operation_is_entered_again_from_a_record(operation: str) -> None:
    for attribute in READ[operation]:

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            history: list[Any] = [trap(w, index) for index in range(3)]
            target = engine(w, history)
            again: list[Any] = []

            def enter() -> None:
                again.append(getattr(target, operation)(**OPERATIONS[operation]))

            spring(history[1], attribute, enter)
            return lambda: (getattr(target, operation)(**OPERATIONS[operation]), again)

        assert_same(build)
