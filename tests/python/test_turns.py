"""A long call lets others have their turn: threads, what they send, and nobody's tracer sees it."""

from __future__ import annotations

import sys
import threading
import time
from collections.abc import Callable, Iterator
from typing import Any

import pytest
from support.children import run_child
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation

# The few lines of Python around a call let another thread run less often than this.
ONLY_INSIDE = 5
# Long enough for many turns, which come every millisecond.
LONG = 100_000


@pytest.fixture
def long_history() -> list[Any]:
    return [evaluation()] * LONG


@pytest.fixture
def impatient_threads() -> Iterator[None]:
    """Let a thread that waits ask for its turn soon."""
    before = sys.getswitchinterval()
    sys.setswitchinterval(0.0005)
    yield
    sys.setswitchinterval(before)


class Opener:
    """The first record, which tells that the call has begun to read."""

    def __init__(self, tell: Callable[[], None]) -> None:
        self._tell = tell

    def __getattr__(self, name: str) -> Any:
        self._tell()
        return getattr(evaluation(), name)


def seen_beside(call: Callable[[], bool], look: Callable[[], None]) -> bool:
    """Call until that says that another thread has seen what it looks for, at most 50 times."""
    over = False

    def run() -> None:
        while not over:
            look()
            time.sleep(0)  # hands the lock over

    thread = threading.Thread(target=run)
    thread.start()
    try:
        return any(call() for _ in range(50))
    finally:
        over = True
        thread.join(60)


@pytest.mark.usefixtures("impatient_threads")
@pytest.mark.parametrize("name", WALKS)
def test_another_thread_runs_during_a_long_call(name: str, long_history: list[Any]) -> None:
    inside, count = False, 0

    def begin() -> None:
        nonlocal inside
        inside = True

    def look() -> None:
        nonlocal count
        count += inside

    # Velocity reads so little of a record that it takes more of them to be long.
    times = 20 if name == "get_search_velocity" else 1
    engine = engine_over([Opener(begin), *long_history * times])

    def call() -> bool:
        nonlocal inside, count
        count = 0
        walk(engine, name)
        inside = False
        return count >= ONLY_INSIDE

    assert seen_beside(call, look)


@pytest.mark.usefixtures("impatient_threads")
def test_what_another_thread_changes_counts_for_the_records_that_follow(
    long_history: list[Any],
) -> None:
    inside, count, last = False, 0, evaluation(passed_thresholds=False)

    def begin() -> None:
        nonlocal inside
        inside = True

    def change() -> None:
        nonlocal count
        count += inside
        last.passed_thresholds = count >= ONLY_INSIDE

    history = [Opener(begin), *long_history * 10, last]
    engine = engine_over(history)

    def call() -> bool:
        nonlocal inside, count
        count, last.passed_thresholds = 0, False
        result = engine.get_search_patterns()
        inside = False
        return result.total_passed == len(history)

    assert seen_beside(call, change)


def test_an_exception_that_another_thread_sends_arrives() -> None:
    run_child(
        """
        import ctypes, sys, threading, traceback
        from support.parts import engine_over, evaluation

        class SentError(Exception):
            pass

        def send():
            inside.wait(30)
            ctypes.pythonapi.PyThreadState_SetAsyncExc(target, ctypes.py_object(SentError))

        sys.setswitchinterval(0.0005)
        inside, target = threading.Event(), ctypes.c_ulong(threading.get_ident())
        engine = engine_over([evaluation()] * 5_000_000)
        sender = threading.Thread(target=send)
        sender.start()
        try:
            inside.set()
            engine.get_search_stats()
        except SentError as error:
            files = [frame.filename for frame in traceback.extract_tb(error.__traceback__)]
        else:
            raise SystemExit("nothing arrived")
        sender.join()
        assert "<search_analytics>" not in files, files
        """
    )


@pytest.mark.parametrize("watch", [sys.setprofile, sys.settrace], ids=["profile", "trace"])
def test_nobody_sees_code_that_is_not_there(
    watch: Callable[[Any], None], long_history: list[Any]
) -> None:
    engine, seen = engine_over(long_history), set()

    def note(frame: Any, event: str, argument: Any) -> Any:
        seen.add(frame.f_code.co_filename)
        return note

    get, before = (
        (sys.getprofile, sys.getprofile())
        if watch is sys.setprofile
        else (sys.gettrace, sys.gettrace())
    )
    watch(note)
    try:
        walk(engine, "get_search_patterns")
        assert get() is note
        assert_watched(note)
    finally:
        watch(before)
    assert all(name.startswith(("/", "<frozen")) for name in seen), seen
    assert __file__ in seen


def assert_watched(note: Any) -> None:
    """A function for the watcher to see."""


def deep(depth: int, call: Callable[[], object]) -> object:
    return call() if depth == 0 else deep(depth - 1, call)


def outcome_at(depth: int, call: Callable[[], object]) -> str:
    try:
        return type(deep(depth, call)).__name__
    except RecursionError:
        return "RecursionError"


def test_a_turn_needs_no_room_on_the_stack(long_history: list[Any]) -> None:
    """However near the limit a call is made, a long one fails only where a short one does."""
    short, long = engine_over(long_history[:10]), engine_over(long_history)
    limit = sys.getrecursionlimit()
    outcomes = set()
    for depth in range(limit - 100, limit, 5):
        expected = outcome_at(depth, short.get_search_patterns)
        assert outcome_at(depth, long.get_search_patterns) == expected
        outcomes.add(expected)
    assert outcomes == {"SearchPatternsResult", "RecursionError"}
