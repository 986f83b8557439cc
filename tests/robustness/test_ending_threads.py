"""Threads beside the one that ends the interpreter, in child processes.

The interpreter ends a thread that stands inside a call where it stands, without its lock: nothing
of what the thread owns may be touched any more. Until then threads work as ever, although the end
has begun: exit handlers that run late may use them.
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


@pytest.mark.parametrize("operation", OPERATIONS)
def test_what_runs_at_the_end_drops_what_it_used(operation):
    """The thread that ends the interpreter goes on: what it uses on the way is freed as ever."""
    outcome = run_child(
        """
    import atexit, sys, weakref

    def at_the_end():
        fields = vars(evaluation())

        class Record:
            def __init__(self):
                vars(self).update(fields)

        class Fleeting:
            def __len__(self):
                return 3
            def __iter__(self):
                for _ in range(3):
                    record = Record()
                    references.append(weakref.ref(record))
                    yield record

        references = []
        walk(engine_over(Fleeting()), sys.argv[1])
        alive = [reference() for reference in references if reference() is not None]
        print("nothing" if references and not alive else alive, "is alive")

    atexit.register(at_the_end)  # first in, last out
    from support.operations import walk
    from support.parts import engine_over, evaluation
    walk(engine_over([evaluation()]), sys.argv[1])
    """,
        operation,
    )
    assert outcome.stdout == "nothing is alive\n"


def test_the_end_of_a_subinterpreter_ends_no_thread_of_another():
    testcapi = pytest.importorskip("_testcapi", reason="this build has no test extensions")
    assert testcapi.run_in_subinterp
    run_child(
        """
    import _testcapi, threading, weakref
    from support.operations import walk
    from support.parts import engine_over, evaluation

    def use():
        evals = [evaluation()]
        references.append(weakref.ref(evals[0]))
        walk(engine_over(evals), "get_search_stats")

    assert _testcapi.run_in_subinterp("import kestrune.search_analytics") == 0
    references = []
    thread = threading.Thread(target=use)
    thread.start()
    thread.join()
    assert [reference() for reference in references] == [None]
    """
    )


# An exit handler that was enrolled before the module was imported runs after what the module
# enrolled itself.
LATE = """
    import atexit, threading

    atexit.register(lambda: late())

    def in_a_thread(work):
        tasks.put(work)
        tasks.join()

    def serve():
        while True:
            tasks.get()()
            tasks.task_done()

    import gc, queue, sys
    from support.operations import WALKS, walk
    from support.parts import engine_over, evaluation

    engine = engine_over([evaluation()] * 3)
    tasks = queue.Queue()
    threading.Thread(target=serve, daemon=True).start()
"""


@pytest.mark.leaks
def test_a_thread_of_a_late_exit_handler_leaks_nothing():
    outcome = run_child(
        LATE
        + """
    def work():
        def blocks():
            for name in WALKS:
                for _ in range(20):
                    walk(engine, name)
            engine._tracker.calls.clear()
            gc.collect()
            return sys.getallocatedblocks()

        first, second, third = blocks(), blocks(), blocks()
        print(third - second)

    def late():
        in_a_thread(work)
    """
    )
    assert outcome.stderr == ""
    assert int(outcome.stdout) < 20


def test_a_thread_of_a_late_exit_handler_calls_as_often_as_it_likes():
    outcome = run_child(
        LATE
        + """
    def late():
        def work():
            for _ in range(3000):
                engine.get_available_aggregations()
            print("done")

        in_a_thread(work)
    """
    )
    assert (outcome.stdout, outcome.stderr) == ("done\n", "")


def test_a_thread_outlives_exit_handlers_that_ran_before_the_end():
    """Who runs the exit handlers by hand, and goes on."""
    outcome = run_child(
        LATE
        + """
    def late():
        pass

    def work():
        for _ in range(3000):
            engine.get_available_aggregations()
        print("done")

    atexit._run_exitfuncs()
    in_a_thread(work)
    """
    )
    assert (outcome.stdout, outcome.stderr) == ("done\n", "")


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_thread_of_a_late_exit_handler_is_ended_inside_its_call(operation):
    run_child(
        LATE.replace("import atexit", "import atexit, itertools, time")
        + """
    class Asking:
        def __getattr__(self, attribute):
            started.set()
            return getattr(record, attribute)

    class Endless:
        def __iter__(self):
            return itertools.repeat(Asking())
        def __len__(self):
            return 1

    record, started = evaluation(), threading.Event()

    def late():
        endless = engine_over(Endless())
        tasks.put(lambda: walk(endless, sys.argv[1]))
        assert started.wait(30)
    """,
        operation,
    )


# What drops the last reference to a sleeper: places where no exception of C++ gets through.
DROPS = {
    "a generator that is freed": "search_analytics._candidate_era_configs(Sleeper(), None, None)",
    "a generator with a weak reference": "watched(candidates(), sleep)",
    "an attribute of a function": "assign('__doc__', Sleeper, lambda: None)",
    "the defaults of a function": "assign('__kwdefaults__', held, lambda: None)",
    "the annotations of a function": "assign('__annotations__', held, dict)",
    "sums that are objects": "walk(engine_over([evaluation(sharpe=Sum(1.0))]), 'get_search_stats')",
    "an error that is being handled": "refuse()",
    "a copy of the module": "forget_copy()",
}


@pytest.mark.parametrize("drop", DROPS.values(), ids=DROPS)
def test_a_thread_ends_quietly_in_a_finaliser_of_what_the_module_drops(drop):
    outcome = run_child(
        """
    import gc, sys, threading, time, weakref
    from types import ModuleType, SimpleNamespace
    import kestrune.search_analytics as search_analytics
    from support.copies import copy_of_the_module
    from support.operations import walk
    from support.parts import engine_over, evaluation

    started = threading.Event()

    def sleep(dead=None):
        started.set()
        while True:
            time.sleep(0.001)

    class Sleeper:
        __del__ = sleep

    class Sum(float, Sleeper):
        def __add__(self, other):
            return Sum(1.0)
        __radd__ = __truediv__ = __add__

    def candidates():
        return search_analytics._candidate_era_configs(None, None, None)

    def watched(thing, callback):
        references.append(weakref.ref(thing, callback))

    references = []

    def held():
        return {"a": Sleeper()}

    def assign(name, *makers):
        for make in makers:
            setattr(search_analytics._usage_items, name, make())

    def refuse():
        '''The traceback of the error that is handled goes with its last frame.'''
        def get_token():
            sleeper = Sleeper()
            raise ValueError

        def auth_error(message):
            sys.exc_info()[1].__traceback__ = None
            return LookupError()

        auth = sys.modules["kestrune.auth"] = ModuleType("kestrune.auth")
        auth.AuthError = auth_error
        manager = SimpleNamespace(get_token=get_token)
        search_analytics._require_registered_or_logged_in(SimpleNamespace(_auth_manager=manager))

    def forget_copy():
        copy = copy_of_the_module()
        copy._usage_items.sleeper = Sleeper()
        copy.SearchAnalytics.sleeper = Sleeper()
        del copy
        gc.collect()

    threading.Thread(target=eval, args=(sys.argv[1], globals()), daemon=True).start()
    assert started.wait(30)
    time.sleep(0.02)
    """,
        drop,
    )
    assert outcome.stderr == ""
