"""Memory that runs out at any allocation: MemoryError or the right answer, never a crash.

Each public call runs in a child interpreter that lets its first, second, third, ... allocation fail
until the call comes through untouched.
"""

from __future__ import annotations

import os
import sys

import pytest
from support.children import run_child

pytestmark = pytest.mark.faults
pytest.importorskip("_testcapi", reason="this interpreter was built without its test modules")

# Where a call needs something that runs as Python code, a cached answer stands in: the interpreter
# itself does not always survive a frame for which there is no memory.
DRIVER = """
    import sys
    from functools import lru_cache, partial
    from types import SimpleNamespace
    from _testcapi import remove_mem_hooks, set_nomemory
    import kestrune.search_analytics as search_analytics
    from kestrune.search_analytics import AggregateBy, EvalPool, TimeWindow
    from support.parts import evaluation, function_item, pool, using

    def starve(call, once, error=()):
        '''Let every allocation of `call` fail in turn: that one alone, or all from it on.

        Each time the call raises MemoryError, or does what it does with memory: answer, or raise
        `error`. Returns how often it ran out of memory; ends when fifty runs did not.
        '''
        def run():
            try:
                return call()
            except error as refused:
                return type(refused)  # before 3.12 it may have lost its text

        expected = repr(run())  # the first run also makes whatever is made once
        assert repr(run()) == expected
        starved = untouched = number = 0
        while untouched < 50:
            number += 1
            set_nomemory(number, number + 1 if once else 0)
            try:
                found = run()
            except MemoryError:
                remove_mem_hooks()
                starved += 1
                untouched = 0
                continue
            except BaseException:
                remove_mem_hooks()
                raise
            remove_mem_hooks()
            untouched += 1
            assert repr(found) == expected, (number, found)
        return starved

    def answering(answer):
        '''A callable that gives `answer` without running Python code after its first call.'''
        return lru_cache(maxsize=None)(lambda *args, **kwargs: answer)

    def engine_over(evals):
        row = answering(("useful", None, "late", "p1"))
        tracker = SimpleNamespace(
            get_evaluation_history=answering(evals),
            _conn=SimpleNamespace(execute=answering(SimpleNamespace(fetchone=row))),
        )
        return search_analytics.SearchAnalytics(tracker, [pool()])

    items = [function_item("f", "F", "S"), function_item("g", "G", "T")]
    records = [
        evaluation(function_metadata=items, timestamp=9e9, eval_id=1),
        evaluation(function_metadata=list(reversed(items)), correlation=0.9, eval_id=2),
        using("bare", "names", timestamp=0, passed_thresholds=False, failure_reason="Tampering"),
        evaluation(per_column_stats={"gross_returns_sharpe": 2}, agent_is_pnl_mi=1, is_pnl_mi=2),
        evaluation(sharpe=10**30, returns=True, tree_depth=3, submitted=True),
    ]
    engine, broken = engine_over(records), engine_over([SimpleNamespace()])
    pools = {"era": {"signal_pools": {"x": {"name": "a", "is_correlation_threshold": 0.5}}}}
"""

# The arguments of a partial: a function and what it is called with.
CALLS = {
    "get_search_stats": "engine.get_search_stats, min_sample_size=0, era_id='era-1'",
    "get_search_stats of names": (
        "engine.get_search_stats, min_sample_size=0, aggregate_by=AggregateBy.NONE"
    ),
    "get_search_stats of one window": (
        "engine.get_search_stats, min_sample_size=0, time_windows=[TimeWindow.LAST_24H]"
    ),
    "get_suggestions": "engine.get_suggestions, min_sample_size=0",
    "get_search_patterns": "engine.get_search_patterns",
    "get_search_velocity": "engine.get_search_velocity, windows=[60, 0.5]",
    "get_yield_analysis": "engine.get_yield_analysis",
    "get_correlation_patterns": "engine.get_correlation_patterns, top_n=2",
    "submitted pool": "engine._fetch_evaluations, eval_pool=EvalPool.SUBMITTED",
    "family filter": "engine._fetch_evaluations, function_family='F', feature_family='price'",
    "group key": "engine._build_group_key, records[0], AggregateBy.FUNCTION_FEATURE",
    "statistic": "engine._get_stat, records[3], None, 'sharpe'",
    "time window": "engine._filter_by_time_window, records * 20, TimeWindow.LAST_WEEK, None, 1e9",
    "pools": "search_analytics._resolve_pool_configs, pools",
    "usage": "search_analytics._feature_items, SimpleNamespace(features=['a', 'b'] * 100)",
}


@pytest.mark.parametrize("once", [True, False], ids=["one fails", "all fail from there"])
@pytest.mark.parametrize("call", CALLS.values(), ids=CALLS)
def test_a_call_without_memory_raises_memory_error_or_answers(call, once):
    outcome = run_child(f"{DRIVER}\n    print(starve(partial({call}), {once}))")
    assert int(outcome.stdout) > 0
    assert "SystemError" not in outcome.stderr


ERRORS = {
    "sample size": "engine.get_search_stats, min_sample_size=-1",
    "evaluation type": "engine.get_search_stats, eval_type='x'",
    "window": "engine.get_search_velocity, windows=[0]",
    "pools": "search_analytics._resolve_pool_configs, None",
    "keyword": "engine.get_search_stats, nothing=1",
    "missing": "search_analytics._usage_items, 1",
    "too many": "search_analytics.get_available_eras, 1, 2",
    "statistic": "broken.get_search_stats",
    "pool": "search_analytics.SearchAnalytics, 1, [pool('a', 0)]",
}


@pytest.mark.parametrize("once", [True, False], ids=["one fails", "all fail from there"])
@pytest.mark.parametrize("call", ERRORS.values(), ids=ERRORS)
def test_an_error_without_memory_is_a_memory_error_or_that_error(call, once):
    errors = "(ValueError, TypeError, AttributeError)"
    outcome = run_child(f"{DRIVER}\n    print(starve(partial({call}), {once}, {errors}))")
    assert int(outcome.stdout) > 0
    assert "SystemError" not in outcome.stderr


def test_candidates_without_memory_end_in_a_memory_error_or_come():
    outcome = run_child(f"""{DRIVER}
    from collections import deque

    class Rounds:
        '''Each round walks a new generator; only the walking may starve.'''
        def __call__(self):
            return list(search_analytics._candidate_era_configs(pools, engine, engine))

    print(starve(Rounds().__call__, True))
    """)
    assert int(outcome.stdout) > 0


@pytest.mark.skipif(
    sys.version_info >= (3, 12),
    reason="the compiler and the type machinery of these interpreters crash without memory",
)
def test_importing_without_memory_fails_and_the_next_import_is_whole():
    """Every allocation of the module body fails in turn.

    Classes are made without the Python code of `dataclass` and `Enum`, in which interpreters crash
    when there is no memory. Their compiler, which import statements need, does not always say that
    it ran out of it: the interpreter calls that a SystemError.
    """
    run_child(
        """
        import _imp, dataclasses, enum, importlib.util, sys
        from functools import partial
        from types import SimpleNamespace
        from _testcapi import remove_mem_hooks, set_nomemory
        import kestrune.search_analytics as search_analytics

        origin = search_analytics.__spec__.origin
        spec = importlib.util.spec_from_file_location("kestrune.search_analytics", origin)
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)
        names = list(vars(module))

        originals = dataclasses.dataclass, dataclasses.field, enum.Enum
        dataclasses.dataclass = partial({}.get, None)  # hands on the class
        dataclasses.field, enum.Enum = dict, object

        starved = untouched = number = 0
        while untouched < 30:
            module = importlib.util.module_from_spec(spec)
            number += 1
            set_nomemory(number, number + 1)
            try:
                _imp.exec_dynamic(module)
            except (MemoryError, SystemError):
                remove_mem_hooks()
                starved += 1
                untouched = 0
            else:
                remove_mem_hooks()
                untouched += 1
                assert vars(module)["_singleton"] is None
        assert starved > 500, starved

        dataclasses.dataclass, dataclasses.field, enum.Enum = originals
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)
        assert list(vars(module)) == names
        """
    )


@pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""), reason="the sanitizer ends without memory"
)
def test_sums_that_no_memory_holds_are_a_memory_error():
    """Thousands of windows beside a hundred thousand pools: more than the process may have."""
    pytest.importorskip("resource", reason="this platform limits no memory")
    run_child(
        """
        import resource
        from support.parts import engine_over, evaluation, pool

        record, limit = evaluation(), 3 << 30
        engine = engine_over([record], *[pool()] * 200_000)
        resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
        try:
            engine.get_search_stats(min_sample_size=0, time_windows=list(range(5000)))
        except MemoryError:
            pass
        else:
            raise SystemExit("there was memory for all of it")
        assert engine.get_search_patterns().total_evaluations == 1
        """
    )
