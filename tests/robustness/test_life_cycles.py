"""The lives of processes, threads, interpreters and modules, in child processes."""

from __future__ import annotations

import os
import sys

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.operations import WALKS

needs_fork = pytest.mark.skipif(not hasattr(os, "fork"), reason="this platform has no fork")
needs_usual_frames = pytest.mark.skipif(
    "/asan/" in search_analytics.__spec__.origin, reason="a sanitizer's frames are larger"
)
needs_own_locks = pytest.mark.skipif(
    sys.version_info < (3, 12), reason="interpreters share their locks before 3.12"
)


@needs_fork
@pytest.mark.parametrize("name", WALKS)
def test_both_sides_of_a_fork_inside_a_call_go_on_and_call_again(name):
    run_child(
        """
    import os, sys, threading
    from support.operations import WALKS, walk
    from support.parts import engine_over, evaluation

    class Forking:
        def __getattr__(self, attribute):
            if not forks and not attribute.startswith("__"):
                forks.append(os.fork())
            return getattr(record, attribute)

    def answers():
        return {name: type(walk(engine, name)) for name in WALKS}

    record, forks = evaluation(), ["none yet"]
    engine = engine_over([record, Forking(), record, record])
    expected = answers()
    patterns = repr(walk(engine, "get_search_patterns"))
    forks.clear()
    assert type(walk(engine, sys.argv[1])) is expected[sys.argv[1]]
    assert answers() == expected
    assert repr(walk(engine, "get_search_patterns")) == patterns
    thread = threading.Thread(target=answers)
    thread.start()
    thread.join()
    if forks[0] != 0:
        assert os.waitpid(forks[0], 0)[1] == 0
    """,
        name,
    )


@needs_usual_frames
@pytest.mark.parametrize("name", WALKS)
def test_a_thread_with_the_smallest_stack_has_room_for_a_call(name):
    run_child(
        """
    import sys, threading
    from support.operations import walk
    from support.parts import engine_over, evaluation

    class Asking:
        def __getattr__(self, attribute):
            return getattr(record, attribute)

    def work():
        results.append(walk(engine, sys.argv[1]))
        try:
            walk(engine_over([object()]), sys.argv[1])
        except AttributeError as error:
            results.append(error)

    record, results = evaluation(), []
    engine = engine_over([record] * 50 + [Asking()] * 5)
    threading.stack_size(64 * 1024)
    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    assert len(results) == 2
    """,
        name,
    )


@needs_usual_frames
@pytest.mark.parametrize("name", WALKS)
def test_recursion_ends_at_the_limit_that_suits_a_small_stack(name):
    """A level takes some kilobytes, as much as one of plain Python that C calls."""
    run_child(
        """
    import sys, threading
    from support.operations import walk
    from support.parts import engine_over

    class Bottomless:
        def __getattr__(self, attribute):
            return walk(engine, sys.argv[1])

    def work():
        try:
            walk(engine, sys.argv[1])
        except RecursionError as error:
            endings.append(error)

    endings = []
    engine = engine_over([Bottomless()])
    threading.stack_size(512 * 1024)
    sys.setrecursionlimit(100)
    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    assert endings
    """,
        name,
    )


INTERPRETERS = """
    import sys, threading

    if sys.version_info >= (3, 13):
        import _interpreters

        def create():
            return _interpreters.create("isolated")

        def run(interpreter, source):
            problem = _interpreters.exec(interpreter, source)
            assert problem is None, problem.formatted

        destroy = _interpreters.destroy
    else:
        import _xxsubinterpreters

        def create():
            return _xxsubinterpreters.create(isolated=True)

        run, destroy = _xxsubinterpreters.run_string, _xxsubinterpreters.destroy

    PREPARE = '''if True:
        import sys
        sys.path[:] = %r
        import kestrune.search_analytics as search_analytics
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation
        catalogue = {'eras': ['e'], 'universes': ['u']}
        engine = engine_over([evaluation() for _ in range(200)], **catalogue)
        search_analytics._get_or_init = lambda: engine
    ''' % (sys.path,)

    ASK = '''if True:
        search_analytics.get_available_eras()
        search_analytics.get_available_named_universes()
        search_analytics.get_available_aggregations()
        for name in WALKS:
            walk(search_analytics, name)
    '''
"""


@needs_own_locks
def test_interpreters_with_locks_of_their_own_ask_at_once_and_are_destroyed():
    """One after the other is made and destroyed: 3.12 itself survives nothing else."""
    run_child(
        INTERPRETERS
        + """
    answered = []

    def live():
        for _ in range(2):
            with one_by_one:
                interpreter = create()
                run(interpreter, PREPARE)
            for _ in range(20):
                run(interpreter, ASK)
            with one_by_one:
                destroy(interpreter)
        answered.append(True)

    one_by_one = threading.Lock()
    threads = [threading.Thread(target=live) for _ in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(answered) == len(threads)
    """
    )


RELOADING = """
    import gc, importlib, sys
    import kestrune.search_analytics as first
    from support.operations import WALKS
    from support.parts import RecordingTracker, evaluation, pool

    NAME = "kestrune.search_analytics"

    def engine_of(module, records):
        return module.SearchAnalytics(RecordingTracker(records), [pool()])

    def ask(engine):
        arguments = {"get_search_stats": {"min_sample_size": 0}}
        return {name: getattr(engine, name)(**arguments.get(name, {})) for name in WALKS}

    def anew():
        del sys.modules[NAME]
        del sys.modules["kestrune"].search_analytics
        return importlib.import_module(NAME)
"""


def test_functions_of_a_copy_work_while_another_one_is_imported_in_its_place():
    run_child(
        RELOADING
        + """
    engine = engine_of(first, [evaluation()] * 3)
    before = ask(engine)
    functions = [first.get_available_eras, first._usage_items, type(engine).get_search_stats]
    modules = [first]
    for _ in range(5):
        assert importlib.reload(sys.modules[NAME]) is modules[-1]
        modules.append(anew())
        assert modules[-1] is not modules[-2]
        ask(engine)
        ask(engine_of(modules[-1], [evaluation()]))
        assert type(engine) is not modules[-1].SearchAnalytics
    modules.clear()
    del first
    gc.collect()
    assert {name: type(answer) for name, answer in ask(engine).items()} == {
        name: type(answer) for name, answer in before.items()
    }
    assert functions[1](evaluation(), "function_metadata", "functions", "function_name")
    functions[2](engine)
    """
    )


@pytest.mark.parametrize("name", WALKS)
def test_a_record_has_the_module_imported_anew_in_the_midst_of_a_call(name):
    run_child(
        RELOADING
        + """
    import weakref

    class Importing:
        def __getattr__(self, attribute):
            global first
            if not attribute.startswith("__"):
                importlib.reload(sys.modules[NAME])
                first = anew()
                gc.collect()
            return getattr(record, attribute)

    record = evaluation()
    engine = engine_of(first, [record, Importing(), record])
    kinds = {name: type(answer) for name, answer in ask(engine_of(first, [record])).items()}
    old = weakref.ref(first)
    arguments = {"get_search_stats": {"min_sample_size": 0}}
    answer = getattr(engine, sys.argv[1])(**arguments.get(sys.argv[1], {}))
    assert type(answer) is kinds[sys.argv[1]]
    assert type(answer) is not getattr(first, type(answer).__name__)
    del answer, kinds, engine
    for _ in range(2):
        gc.collect()
    assert old() is None
    """,
        name,
    )
