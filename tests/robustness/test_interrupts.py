"""Ctrl-C stops every long walk, also one that runs no Python code, and harms nothing."""

from __future__ import annotations

import itertools
import signal

import pytest
from kestrune import search_analytics
from kestrune.search_analytics import EvalPool
from support.children import run_child
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation

pytestmark = pytest.mark.skipif(
    not hasattr(signal, "setitimer"), reason="this platform has no interval timers"
)

ENDLESS = """
    import itertools, signal, sys
    from kestrune.search_analytics import EvalPool, TimeWindow
    from support.parts import engine_over, evaluation, using

    class Endless:
        '''A history that never ends and whose iterator runs no Python code.'''
        def __init__(self, record):
            self.record = record
        def __len__(self):
            return 10_000
        def __iter__(self):
            return itertools.repeat(self.record)

    def interrupted(call):
        try:
            signal.setitimer(signal.ITIMER_REAL, 0.05)
            call()
        except KeyboardInterrupt:
            return
        raise SystemExit("the walk came to an end")

    signal.signal(signal.SIGALRM, signal.default_int_handler)
    engine = engine_over(Endless(evaluation(submitted=False)))
"""

CALLS = {
    "get_search_stats": "engine.get_search_stats()",
    "get_search_stats over narrow windows": (
        "engine.get_search_stats(time_windows=[TimeWindow.LAST_24H])"
    ),
    "get_suggestions": "engine.get_suggestions()",
    "get_search_patterns": "engine.get_search_patterns()",
    "get_search_velocity": "engine.get_search_velocity(windows=[1e-9])",
    "get_yield_analysis": "engine.get_yield_analysis()",
    "get_correlation_patterns": "engine.get_correlation_patterns()",
    "submitted pool": "engine._fetch_evaluations(eval_pool=EvalPool.SUBMITTED)",
    "family filter": "engine._fetch_evaluations(function_family='none')",
    "era window": "engine._filter_by_time_window(engine._tracker.evals, TimeWindow.ERA, 'x', 0)",
    "week": "engine._filter_by_time_window(engine._tracker.evals, TimeWindow.LAST_WEEK, 'x', 9e9)",
}


@pytest.mark.parametrize("call", CALLS.values(), ids=CALLS)
def test_a_walk_that_never_ends_is_interrupted(call):
    run_child(f"{ENDLESS}\n    interrupted(lambda: {call})")


ENDLESS_ITEMS = {
    "group key": "engine.get_search_stats()",
    "families": "engine.get_search_patterns()",
    "names": "engine.get_correlation_patterns()",
    "filter": "engine._fetch_evaluations(function_family='none')",
}


@pytest.mark.parametrize("call", ENDLESS_ITEMS.values(), ids=ENDLESS_ITEMS)
def test_a_record_whose_items_never_end_is_interrupted(call):
    run_child(
        f"""{ENDLESS}
    items = Endless({{"function_name": "f"}})
    engine = engine_over([evaluation(function_metadata=items)])
    interrupted(lambda: {call})"""
    )


def test_pairs_without_end_are_interrupted():
    """Thousands of functions in one candidate make millions of pairs."""
    run_child(
        f"""{ENDLESS}
    engine = engine_over([using(*map(str, range(6000)))])
    interrupted(engine.get_correlation_patterns)"""
    )


LONG_WALKS = {
    "many items": ("many", "engine.get_search_stats()"),
    "families of many items": ("many", "engine.get_search_patterns()"),
    "pairs of many items": ("many", "engine.get_correlation_patterns()"),
    "filter over many items": ("many", "engine.get_search_patterns(function_family='none')"),
    "filter over long texts": (
        "long",
        "engine.get_search_patterns(function_family='x' * 1_000_000 + '-')",
    ),
}


@pytest.mark.parametrize(("items", "call"), LONG_WALKS.values(), ids=LONG_WALKS)
def test_an_interrupt_does_not_wait_for_many_records(items, call):
    """It is the work that counts: these records are few, and each takes milliseconds."""
    run_child(
        f"""{ENDLESS}
    class Tell:
        def __getattr__(self, name):
            if name == "function_metadata":
                raise SystemExit("nothing stopped the walk before this record")
            return getattr(template, name)

    template = evaluation()
    many = [{{"function_name": "f", "function_family": "F"}}] * 100_000
    long = [{{"function_name": "f", "function_family": "x" * 1_000_000 + str(i)}} for i in range(9)]
    engine = engine_over([evaluation(function_metadata={items}) for _ in range(900)] + [Tell()])
    interrupted(lambda: {call})""",
        timeout=60,
    )


def test_an_interrupt_stops_a_sort():
    """The rows are there already: ordering them is all that is left to do."""
    run_child(
        f"""{ENDLESS}
    from kestrune.search_analytics import StatsRow, WindowStats

    rows = [StatsRow(windows=[WindowStats(composite_score=float(n % 97))]) for n in range(100_000)]
    class Engine(type(engine)):
        def get_search_stats(self, **arguments):
            signal.setitimer(signal.ITIMER_REAL, 0.001)
            return SimpleNamespace(rows=rows)
    from types import SimpleNamespace
    try:
        Engine(engine._tracker, engine._pool_configs).get_suggestions()
    except KeyboardInterrupt:
        pass
    else:
        raise SystemExit("nothing stopped the sort")""",
        timeout=60,
    )


def test_windows_without_number_are_interrupted():
    run_child(
        f"""{ENDLESS}
    class Windows(Endless):
        __hash__ = object.__hash__
    interrupted(lambda: engine_over([]).get_search_velocity(windows=Endless(60)))"""
    )


def test_a_record_that_appends_a_record_at_each_reading_is_interrupted():
    run_child(
        f"""{ENDLESS}
    class Growing:
        def __getattr__(self, name):
            if name == "passed_thresholds":
                evals.append(self)
            return getattr(template, name)
    template = evaluation()
    evals = [Growing()]
    interrupted(engine_over(evals).get_search_patterns)
    assert len(evals) > 1"""
    )


def test_interrupts_at_random_moments_leave_every_answer_right():
    """10,000 records of up to 50 functions; forty attempts at each operation."""
    run_child(
        """
        import random, signal
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation, function_item

        functions = [function_item(f"f{n}", f"F{n % 7}", f"S{n % 11}") for n in range(50)]
        few = [evaluation(function_metadata=functions) for _ in range(20)]
        many = [evaluation(function_metadata=functions[n % 40:]) for n in range(10_000)]
        signal.signal(signal.SIGALRM, signal.default_int_handler)
        small, engine = engine_over(few), engine_over(many)
        moment, stopped = random.Random(7), 0
        for name in WALKS:
            expected = walk(small, name)
            for _ in range(40):
                try:
                    try:
                        signal.setitimer(signal.ITIMER_REAL, moment.uniform(0.0001, 0.006))
                        walk(engine, name)
                    finally:
                        signal.setitimer(signal.ITIMER_REAL, 0)
                except KeyboardInterrupt:
                    stopped += 1
            again = walk(small, name)
            assert type(again) is type(expected), again
            if name in ("get_search_patterns", "get_correlation_patterns"):
                assert again == expected
        assert stopped
        """
    )


@pytest.mark.parametrize("name", WALKS)
def test_an_error_of_a_signal_handler_passes_unchanged(name):
    class HandlerError(Exception):
        pass

    error = HandlerError("mine")

    def handler(number, frame):
        raise error

    class Endless(list):
        def __iter__(self):
            signal.setitimer(signal.ITIMER_REAL, 0.01)
            return itertools.repeat(evaluation(timestamp=0))

        def __len__(self):
            return 1

        def __bool__(self):
            return True

    before = signal.signal(signal.SIGALRM, handler)
    try:
        with pytest.raises(HandlerError) as caught:
            walk(engine_over(Endless()), name)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert caught.value is error


@pytest.mark.parametrize("name", WALKS)
def test_a_signal_handler_may_change_the_history(name):
    """The handler runs inside the walk: it empties the list and calls the module again."""
    calls = []

    def handler(number, frame):
        calls.append(walk(engine_over([evaluation()]), name))
        evals.clear()

    evals = [evaluation()] * 2_000
    before = signal.signal(signal.SIGALRM, handler)
    try:
        while not calls:
            evals[:] = [evaluation()] * 2_000
            signal.setitimer(signal.ITIMER_REAL, 0.0005)
            walk(engine_over(evals), name)
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert type(calls[0]).__name__.endswith("Result")


def test_a_helper_that_a_signal_handler_replaces_among_pairs_counts_at_once(monkeypatch):
    """The history is too short for the handler to have run between two records only."""

    class Record:
        def __init__(self, **values):
            for key, value in values.items():
                setattr(self, key, value)

    calls = []
    original = search_analytics._usage_value

    def replacement(*arguments):
        calls.append(arguments)
        return original(*arguments)

    def handler(number, frame):
        monkeypatch.setattr(search_analytics, "_usage_value", replacement)

    items = [{"function_name": f"function {index:03}"} for index in range(120)]
    evals = [Record(**vars(evaluation(function_metadata=items))) for _ in range(1000)]
    before = signal.signal(signal.SIGALRM, handler)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.005)
        engine_over(evals).get_correlation_patterns()
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert calls


def test_a_pending_interrupt_does_not_spoil_a_short_call():
    assert engine_over([evaluation()])._fetch_evaluations(eval_pool=EvalPool.SUBMITTED) == []

    def interrupt_and_call():
        signal.raise_signal(signal.SIGINT)
        engine_over([evaluation()] * 5).get_search_patterns()

    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        with pytest.raises(KeyboardInterrupt):
            interrupt_and_call()
    finally:
        signal.signal(signal.SIGINT, before)
    assert engine_over([evaluation()]).get_search_patterns().total_evaluations == 1


@pytest.mark.parametrize("kind", ["str", "Own"])
def test_many_pairs_are_interrupted_in_the_midst(kind):
    """While pairs are counted, the walk holds the names; when it is over, it does not."""
    run_child(
        f"""
        import signal, sys
        from support.parts import engine_over, using

        class Own(str):
            pass

        def note(*_):
            held.append(sys.getrefcount(names[0]))
            raise KeyboardInterrupt

        names = [{kind}(f"name {{number}}") for number in range(1200)]
        engine = engine_over([using(*names)])
        signal.signal(signal.SIGALRM, note)
        held, at_rest = [], sys.getrefcount(names[0])
        for delay in (0.02, 0.04, 0.08, 0.16):
            signal.setitimer(signal.ITIMER_REAL, delay)
            try:
                engine.get_correlation_patterns()
            except KeyboardInterrupt:
                pass
        assert max(held) > at_rest + 2, (held, at_rest)
        """
    )
