"""A whole process: fork, the end of the interpreter, deep recursion, other interpreters."""

from __future__ import annotations

import os
import sys

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation


def test_every_process_of_the_tests_is_strict():
    """Processes that share the tests inherit no options: they have to be told."""
    assert sys.flags.dev_mode
    assert "error" in sys.warnoptions


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this platform has no fork")
def test_parent_and_child_go_on_after_a_fork():
    run_child("""
        import os
        from support.operations import WALKS, walk
        from support.parts import NOW, engine_over, evaluation

        engine = engine_over([evaluation()] * 20)
        before = {name: repr(walk(engine, name)) for name in WALKS}
        process = os.fork()
        after = {name: repr(walk(engine, name)) for name in WALKS}
        good = after["get_search_patterns"] == before["get_search_patterns"]
        if process == 0:
            os._exit(0 if good else 1)
        _, status = os.waitpid(process, 0)
        assert good and status == 0, status
    """)


@pytest.mark.skipif(not hasattr(os, "fork"), reason="this platform has no fork")
def test_a_fork_from_inside_a_call():
    run_child("""
        import os
        from support.parts import engine_over, evaluation

        class Forking:
            def __getattr__(self, name):
                if name == "passed_thresholds":
                    children.append(os.fork())
                return getattr(record, name)

        record, children = evaluation(), []
        result = engine_over([record, Forking(), record]).get_search_patterns()
        assert result.total_evaluations == result.total_passed == 3
        if children[0] == 0:
            os._exit(0)
        assert os.waitpid(children[0], 0)[1] == 0
    """)


def test_leaving_the_process_from_inside_a_call():
    outcome = run_child(
        """
        import os
        from support.parts import engine_over

        class Leaving:
            def __getattr__(self, name):
                os._exit(7)

        engine_over([Leaving()]).get_search_stats()
        """,
        check=False,
    )
    assert outcome.returncode == 7


def test_the_interpreter_ends_with_everything_alive():
    """Results, engines, generators, iterators and functions outlive the module's namespace."""
    outcome = run_child("""
        import builtins, sys
        import kestrune.search_analytics as search_analytics
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation

        engine = engine_over([evaluation()] * 3)
        started = search_analytics._candidate_era_configs({"era": 1}, engine, engine)
        next(started)

        class Late:
            '''Calls the module while the interpreter is being taken down.'''
            def __init__(self):
                results = [walk(engine, name) for name in WALKS]
                self.kept = (engine, engine.get_search_stats, started, results)
            def __del__(self):
                try:
                    engine.get_search_patterns()
                    next(started)
                except BaseException:
                    pass

        builtins.kept = [Late(), search_analytics, search_analytics.get_search_stats]
        builtins.kept.append(builtins.kept)
        search_analytics.kept = Late()
        search_analytics.SearchAnalytics.kept = Late()
        search_analytics.get_search_stats.kept = Late()
        sys.modules["late"] = Late()
    """)
    assert outcome.stderr == ""


@pytest.mark.parametrize("name", WALKS)
def test_the_interpreter_ends_while_a_daemon_thread_is_inside_a_call(name):
    """Its records run Python code, so that the main thread gets its turn and leaves."""
    run_child(
        """
        import itertools, sys, threading
        from support.operations import walk
        from support.parts import engine_over, evaluation

        class Asking:
            def __getattr__(self, attribute):
                return getattr(record, attribute)

        class Endless:
            def __iter__(self):
                started.set()
                return itertools.repeat(Asking())
            def __len__(self):
                return 1

        record, started = evaluation(), threading.Event()
        engine = engine_over(Endless())
        threading.Thread(target=walk, args=(engine, sys.argv[1]), daemon=True).start()
        assert started.wait(30)
        """,
        name,
    )


@pytest.mark.parametrize("name", WALKS)
def test_records_that_call_the_module_again(name):
    """An operation inside an operation, of the same engine and of another."""

    class Reentrant:
        depth = 0

        def __getattr__(self, attribute):
            if Reentrant.depth < 3:
                Reentrant.depth += 1
                walk(engine, name)
                walk(engine_over([evaluation()]), name)
            try:
                return vars(plain)[attribute]
            except KeyError:
                raise AttributeError(attribute) from None

    plain = evaluation()
    engine = engine_over([Reentrant(), plain])
    result = walk(engine, name)
    assert type(result) is type(walk(engine_over([plain]), name))
    assert Reentrant.depth == 3


@pytest.mark.parametrize("name", WALKS)
def test_records_that_call_the_module_without_end_are_a_recursion_error(name):
    class Bottomless:
        def __getattr__(self, attribute):
            return walk(engine, name)

    engine = engine_over([Bottomless()])
    limit = sys.getrecursionlimit()
    sys.setrecursionlimit(400)
    try:
        with pytest.raises(RecursionError):
            walk(engine, name)
    finally:
        sys.setrecursionlimit(limit)
    engine._tracker.evals = [evaluation()]
    assert type(walk(engine, name)).__name__.endswith("Result")


def test_native_recursion_without_python_frames_is_a_recursion_error():
    """The module's own functions call each other through data, without a Python frame between."""
    run_child("""
        import threading
        import kestrune.search_analytics as search_analytics
        from support.parts import engine_over

        engine = engine_over([])
        engine._tracker.get_evaluation_history = engine.get_search_patterns
        try:
            engine.get_search_patterns()
        except TypeError as error:  # the tracker's keywords are not those of the method
            assert "unexpected keyword argument 'passed_only'" in str(error), error
        search_analytics._usage_items = search_analytics._function_items
        try:
            search_analytics._function_items(object())
        except TypeError as error:
            assert "takes 1 positional argument but 4 were given" in str(error), error
        search_analytics._get_or_init = search_analytics.get_available_eras
        endings = []

        def descend():
            try:
                search_analytics.get_available_eras()
            except RecursionError as error:
                endings.append(error)

        # From 3.12 on the interpreter counts calls, not bytes: room for the frames of a sanitizer.
        threading.stack_size(256 * 1024 * 1024)
        thread = threading.Thread(target=descend)
        thread.start()
        thread.join()
        assert endings, "a function that calls itself for ever came back"
    """)


def test_a_low_recursion_limit_ends_in_an_answer_or_a_recursion_error():
    run_child("""
        import sys
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation

        engine = engine_over([evaluation()] * 3)
        expected = {name: type(walk(engine, name)) for name in WALKS}
        answers = errors = 0
        for name in WALKS:
            for limit in range(5, 60):
                try:
                    sys.setrecursionlimit(limit)
                    result = walk(engine, name)
                except RecursionError:
                    errors += 1
                else:
                    answers += 1
                    sys.setrecursionlimit(1000)
                    assert type(result) is expected[name]
        assert answers
    """)


def test_deeply_nested_values_print_and_compare_without_a_crash():
    result = search_analytics.SearchStatsResult()
    nested = result
    for _ in range(20_000):
        nested = search_analytics.SearchStatsResult(rows=[nested])
    with pytest.raises(RecursionError):
        repr(nested)
    with pytest.raises(RecursionError):
        nested == search_analytics.SearchStatsResult(rows=[nested])  # noqa: B015
    while nested.rows:  # taken apart step by step: freeing must not recurse either
        nested = nested.rows.pop()


def test_deeply_nested_results_are_freed_without_a_crash():
    run_child("""
        import kestrune.search_analytics as search_analytics
        nested = search_analytics.StatsRow()
        for _ in range(200_000):
            nested = search_analytics.StatsRow(windows=[nested])
        del nested
        engine = None
        for _ in range(100_000):
            engine = search_analytics._candidate_era_configs(engine)
        del engine
    """)


SUBINTERPRETER = """
    import sys, textwrap
    source = '''
    import sys
    sys.path[:] = %r
    import kestrune.search_analytics as search_analytics
    from support.operations import WALKS, walk
    from support.parts import engine_over, evaluation
    for name in WALKS:
        walk(engine_over([evaluation()] * 3), name)
    assert search_analytics._singleton is None
    search_analytics._singleton = "mine"
    ''' % (sys.path,)
"""


@pytest.mark.skipif(sys.version_info < (3, 12), reason="interpreters share their locks before 3.12")
@pytest.mark.parametrize("when", ["before", "after"])
def test_another_interpreter_imports_a_module_of_its_own(when):
    """Where an interpreter refuses the module, it does so with an ImportError."""
    use = """
    import kestrune.search_analytics as search_analytics
    from support.parts import engine_over, evaluation
    engine_over([evaluation()]).get_search_stats()
    """
    other = """
    if sys.version_info >= (3, 13):
        import _interpreters
        for kind in ("legacy", "isolated"):
            interpreter = _interpreters.create(kind)
            problem = _interpreters.exec(interpreter, textwrap.dedent(source))
            assert problem is None or problem.type.__name__ == "ImportError", problem.formatted
            _interpreters.destroy(interpreter)
    else:
        import _xxsubinterpreters
        for isolated in (False, True):
            interpreter = _xxsubinterpreters.create(isolated=isolated)
            try:
                _xxsubinterpreters.run_string(interpreter, textwrap.dedent(source))
            except _xxsubinterpreters.RunFailedError as error:
                assert "ImportError" in str(error), error
            _xxsubinterpreters.destroy(interpreter)
    """
    parts = (use, other) if when == "after" else (other, use)
    check = """
    assert search_analytics._singleton is None
    """
    run_child(SUBINTERPRETER + "".join(parts) + check)


def test_embedding_style_interpreters_one_after_another():
    pytest.importorskip("_testcapi", reason="this interpreter was built without its test modules")
    run_child(
        SUBINTERPRETER
        + """
    import _testcapi
    for _ in range(5):
        assert _testcapi.run_in_subinterp(textwrap.dedent(source)) == 0
    import kestrune.search_analytics as search_analytics
    assert search_analytics._singleton is None
    """
    )
