"""Daemon threads that stand inside a call when the interpreter ends, in child processes.

The interpreter ends such a thread where it stands, without its lock: nothing of what the thread
owns may be touched any more.
"""

from __future__ import annotations

import pytest
from support.children import run_child

OPERATIONS = ["get_search_stats", "get_search_velocity", "get_yield_analysis"]

LEAVE = """
    import itertools, sys, threading, time
    from types import SimpleNamespace
    from support.operations import walk
    from support.parts import engine_over, evaluation

    started = threading.Event()

    class Endless:
        def __iter__(self):
            return records()
        def __len__(self):
            return 1

    def leave():
        engine = engine_over(Endless())
        threading.Thread(target=walk, args=(engine, sys.argv[1]), daemon=True).start()
        assert started.wait(30)
        time.sleep(0.02)
"""


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_thread_in_the_finaliser_of_a_record_ends_quietly(operation):
    run_child(
        LEAVE
        + """
    fields = vars(evaluation())

    class Fleeting(SimpleNamespace):
        def __del__(self):
            started.set()
            time.sleep(0.0005)

    def records():
        while True:
            yield Fleeting(**fields)

    leave()
    """,
        operation,
    )


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_thread_ends_quietly_although_there_was_a_subinterpreter(operation):
    testcapi = pytest.importorskip("_testcapi", reason="this build has no test extensions")
    assert testcapi.run_in_subinterp
    run_child(
        LEAVE
        + """
    import _testcapi

    class Asking:
        def __getattr__(self, attribute):
            return getattr(record, attribute)

    def records():
        started.set()
        return itertools.repeat(Asking())

    record = evaluation()
    _testcapi.run_in_subinterp("pass")
    leave()
    """,
        operation,
    )
