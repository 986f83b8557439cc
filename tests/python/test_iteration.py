"""Iteration as the `for` statement does it: over lists that change, and over anything else."""

from __future__ import annotations

from collections import deque
from collections.abc import Callable, Iterator
from typing import Any

import pytest
from differential.traps import OPERATIONS, assert_same, call, engine, plain, spring, trap
from differential.world import World

MANY = 2500


CHANGES: dict[str, Callable[[list[Any]], Any]] = {
    "clears": lambda evals: evals.clear(),
    "drops the first": lambda evals: evals.pop(0),
    "drops the last": lambda evals: evals.pop(),
    "grows at the end": lambda evals: evals.extend(evals[:3]),
    "grows at the start": lambda evals: evals.insert(0, evals[-1]),
    "reverses": lambda evals: evals.reverse(),
    "replaces all": lambda evals: evals.__setitem__(slice(None), evals[:4]),
}


@pytest.mark.parametrize("count", [7, 1030])
@pytest.mark.parametrize("change", CHANGES)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_list_that_changes_is_followed(operation: str, change: str, count: int) -> None:
    def build(w: World) -> Callable[[], Any]:
        evals: list[Any] = [plain(i) for i in range(count)]
        changing = trap(w, 99)
        spring(changing, "passed_thresholds", lambda: CHANGES[change](evals))
        evals.insert(count - 4, changing)
        return call(w, evals, operation)

    assert_same(build)


class Sized:
    """An iterable with a length, which fails after some items where it is told so."""

    def __init__(self, w: World, items: list[Any], failure: type[BaseException] | None) -> None:
        self.w, self.items, self.failure = w, items, failure

    def __len__(self) -> int:
        return len(self.items)

    def __iter__(self) -> Iterator[Any]:
        for number, item in enumerate(self.items):
            self.w.note("next", number)
            if number == 3 and self.failure is not None:
                raise self.failure("in the midst")
            yield item


HISTORIES: dict[str, Callable[[World, list[Any]], Any]] = {
    "tuple": lambda w, evals: tuple(evals),
    "deque": lambda w, evals: deque(evals),
    "values": lambda w, evals: {record.eval_id: record for record in evals}.values(),
    "iterable": lambda w, evals: Sized(w, evals, None),
    "failing": lambda w, evals: Sized(w, evals, ValueError),
    "stopping": lambda w, evals: Sized(w, evals, StopIteration),
    "list of its own": lambda w, evals: type("Own", (list,), {})(evals),
}


@pytest.mark.parametrize("kind", HISTORIES)
@pytest.mark.parametrize("operation", OPERATIONS)
def test_anything_that_can_be_iterated_is_a_history(operation: str, kind: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        return call(w, HISTORIES[kind](w, [plain(i) for i in range(8)]), operation)

    assert_same(build)


@pytest.mark.parametrize("count", [1023, 1024, 1025, 2048, MANY])
@pytest.mark.parametrize("operation", OPERATIONS)
def test_lists_around_the_looks_for_signals_are_walked_to_the_end(
    operation: str, count: int
) -> None:
    def build(w: World) -> Callable[[], Any]:
        return call(w, [plain(i % 7) for i in range(count)], operation)

    assert_same(build)


def test_a_list_of_windows_that_changes_is_followed() -> None:
    """A window changes the list when it is compared, and again when it is measured."""

    def build(w: World) -> Callable[[], Any]:
        windows: list[Any] = []

        class Minutes(float):
            def __le__(self, other: Any) -> bool:
                w.note("compared")
                if len(windows) < 5:
                    windows.append(30)
                return False

            def __mul__(self, other: Any) -> float:
                w.note("multiplied")
                if len(windows) > 2:
                    windows.pop()
                return 60.0 * other

        windows.extend([Minutes(60), 360])
        target = engine(w, [plain(i) for i in range(4)])
        return lambda: target.get_search_velocity(windows=windows)

    assert_same(build)
