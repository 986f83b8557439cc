"""Threads: the first call from two at once, and readers beside writers of one history."""

from __future__ import annotations

import sys
import threading

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.environment import raw_pool, session
from support.parts import RecordingTracker, pool


@pytest.fixture
def fast_switching():
    """Let threads take turns as often as they can."""
    before = sys.getswitchinterval()
    sys.setswitchinterval(1e-6)
    yield
    sys.setswitchinterval(before)


def in_threads(count, target):
    """Run `target(number)` in `count` threads; their results, errors raised."""
    results, errors = [None] * count, []

    def run(number):
        try:
            results[number] = target(number)
        except BaseException as error:
            errors.append(error)

    threads = [threading.Thread(target=run, args=(number,)) for number in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(60)
        assert not thread.is_alive()
    if errors:
        raise errors[0]
    return results


def test_two_first_calls_at_once_each_resolve_and_both_are_served(monkeypatch, client):
    barrier = threading.Barrier(2)
    built = []

    def resolve(onboarding_mod):
        barrier.wait(30)  # both have seen that there is no engine
        tracker = RecordingTracker()
        built.append(tracker)
        return tracker, [pool()]

    monkeypatch.setattr(search_analytics, "_resolve_tracker_and_pools", resolve)
    engines = in_threads(2, lambda number: search_analytics._get_or_init())
    assert len(built) == 2
    assert search_analytics._singleton in engines
    assert all(engine._tracker in built for engine in engines)
    assert search_analytics._get_or_init() is search_analytics._singleton


def test_the_later_assignment_wins_and_the_slow_call_returns_it(monkeypatch, client):
    """The attribute is read again at the end: a call returns what stands there by then."""
    first_inside, second_done = threading.Event(), threading.Event()

    class Slow:
        """The second value of the pair; unpacking is over when its truth is asked."""

        def __bool__(self):
            first_inside.set()
            second_done.wait(30)
            return True

        def __iter__(self):
            return iter([pool()])

    def resolve(onboarding_mod):
        slow = threading.current_thread().name == "slow"
        return RecordingTracker(), Slow() if slow else [pool()]

    monkeypatch.setattr(search_analytics, "_resolve_tracker_and_pools", resolve)
    engines = {}

    def call():
        engines[threading.current_thread().name] = search_analytics._get_or_init()

    slow = threading.Thread(target=call, name="slow")
    slow.start()
    assert first_inside.wait(30)
    fast = threading.Thread(target=call, name="fast")
    fast.start()
    fast.join(30)
    second_done.set()
    slow.join(30)
    assert engines["slow"] is not engines["fast"]
    assert search_analytics._singleton is engines["slow"]


def test_many_first_calls_at_once(client, fast_switching):
    client.onboarding._auth_manager = session()
    client.onboarding._config = {"era": {"signal_pools": [raw_pool()]}}
    client.run_search(RecordingTracker())
    for _ in range(20):
        search_analytics._singleton = None
        engines = in_threads(8, lambda number: search_analytics._get_or_init())
        assert all(type(engine) is search_analytics.SearchAnalytics for engine in engines)
        assert search_analytics._singleton in engines


def test_threads_with_histories_of_their_own_get_their_own_answers(fast_switching):
    from support.parts import engine_over, evaluation, using

    def work(number):
        engine = engine_over([using("a", f"b{number}")] * (number + 1) + [evaluation()])
        counts = set()
        for _ in range(30):
            pairs = engine.get_correlation_patterns().pairs
            counts.add((pairs[0].function_b, pairs[0].total_cooccurrences))
            rows = engine.get_search_stats(min_sample_size=0).rows
            counts.add(sum(row.evaluation_count for row in rows))
        return counts

    for number, counts in enumerate(in_threads(6, work)):
        if number:
            assert counts == {(f"b{number}", number + 1), number + 2}


# Lets the threads run for a while, and on until each kind of answer was among what they saw.
UNTIL_ALL_WERE_SEEN = """
        for thread in threads:
            thread.start()
        wanted = {"SearchStatsResult", "YieldAnalysisResult", "CorrelationPatternsResult"}
        started = time.monotonic()
        while time.monotonic() < started + (0.7 if wanted <= kinds else 60):
            time.sleep(0.05)
        stop.set()
        for thread in threads:
            thread.join(60)
            assert not thread.is_alive()
        assert wanted <= kinds, kinds
        """


def test_eight_readers_beside_two_writers():
    """In a child: whatever the readers get, it is an answer or an ordinary error."""
    run_child(
        """
        import random, sys, threading, time
        from support.operations import WALKS, ending, walk
        from support.parts import engine_over, evaluation, function_item

        sys.setswitchinterval(1e-6)
        items = [function_item(f"f{n}", "F", "S") for n in range(10)]
        evals = [evaluation(function_metadata=list(items)) for _ in range(50)]
        engine = engine_over(evals)
        stop = threading.Event()
        kinds = set()

        def read(number):
            names = list(WALKS)
            while not stop.is_set():
                kinds.add(type(ending(lambda: walk(engine, names[number % len(names)]))).__name__)
                number += 1

        def write(seed):
            choice = random.Random(seed)
            while not stop.is_set():
                record = evaluation(function_metadata=items[:choice.randrange(10)])
                evals[choice.randrange(50):] = [record] * choice.randrange(50)
                while len(evals) < 50:
                    evals.append(record)
                evals[0].function_metadata = choice.choice([None, items, items[:3]])
                evals[-1].per_column_stats = choice.choice([None, {"gross_returns_sharpe": 1.0}])
                del evals[60:]

        threads = [threading.Thread(target=read, args=(n,)) for n in range(8)]
        threads += [threading.Thread(target=write, args=(n,)) for n in range(2)]
        """
        + UNTIL_ALL_WERE_SEEN,
    )


def test_eight_threads_that_change_what_all_of_them_use():
    """In a child: records, items, pools, functions, the namespace, a record class, a generator."""
    run_child(
        """
        import sys, threading, time
        import kestrune.search_analytics as search_analytics
        from support.operations import WALKS, ending, walk
        from support.parts import engine_over, evaluation, function_item, pool

        sys.setswitchinterval(1e-6)
        items = [function_item(f"f{n}", "F", "S") for n in range(6)]
        evals = [evaluation(function_metadata=items, eval_id=str(n)) for n in range(30)]
        shared = type("Record", (), {})()
        for name, value in vars(evals[0]).items():
            setattr(shared, name, value)
        pools = [pool("a"), pool("b")]
        engine = engine_over(evals, *pools)
        engine._pool_configs = pools
        function = search_analytics.get_search_patterns
        helper = search_analytics._usage_value
        candidates = [search_analytics._candidate_era_configs({"era": {}, "b": {}})]
        stop = threading.Event()
        kinds = set()

        def change(number):
            fresh = evaluation(function_metadata=list(items), sharpe=float(number))
            evals[number % 30 :] = [fresh, shared] * (15 - number % 30 // 2)
            items[number % 6] = function_item(f"g{number % 50}", "G", "T")
            items[0].update(function_name=f"h{number % 9}", **{f"key{number % 40}": number})
            pools[:] = [pool(f"p{number % 7}")] * (1 + number % 3)
            function.__defaults__ = tuple(list(function.__defaults__))
            function.__doc__ = function.__name__ = f"named {number}"
            function.__annotations__ = {"return": str(number)}
            function.note = repr(function), function.__annotations__, function.__code__
            search_analytics._usage_value = (helper, lambda *args: helper(*args))[number % 2]
            search_analytics.DepthBucket.label = f"label {number}"
            shared.__dict__ = dict(vars(shared), sharpe=0.5)
            shared.sharpe = float(number)

        def work(number):
            names = list(WALKS)
            while not stop.is_set():
                number += 1
                change(number)
                kinds.add(type(ending(lambda: walk(engine, names[number % len(names)]))).__name__)
                ending(lambda: function(number, nothing=1))
                if ending(lambda: next(candidates[0])) is StopIteration:
                    made = search_analytics._candidate_era_configs({"era": {}, "b": {}})
                    candidates[0] = made

        threads = [threading.Thread(target=work, args=(n * 5,)) for n in range(8)]
        """
        + UNTIL_ALL_WERE_SEEN,
        timeout=150,
    )


def test_an_import_in_one_thread_while_another_imports():
    run_child(
        """
        import importlib, sys, threading

        barrier = threading.Barrier(8)
        modules = []

        def load():
            barrier.wait(30)
            modules.append(importlib.import_module("kestrune.search_analytics"))

        threads = [threading.Thread(target=load) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(30)
        assert len(modules) == 8
        assert {id(module) for module in modules} == {id(sys.modules["kestrune.search_analytics"])}
        """
    )


def test_threads_with_a_small_stack():
    """A quarter of a megabyte is enough for every call."""
    run_child(
        """
        import threading
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation

        threading.stack_size(256 * 1024)
        results = []

        def work():
            for name in WALKS:
                results.append(walk(engine_over([evaluation()] * 50), name))

        thread = threading.Thread(target=work)
        thread.start()
        thread.join(30)
        assert len(results) == len(WALKS)
        """
    )


def test_names_that_hand_over_the_lock_while_they_are_hashed_and_compared():
    """In a child: other threads change everything while a set, a dictionary or a sort is busy."""
    run_child(
        """
        import sys, threading, time
        from support.operations import WALKS, ending, walk
        from support.parts import engine_over, evaluation, using

        class Name(str):
            def __hash__(self):
                time.sleep(0)
                return hash(str(self)) % 3
            def __eq__(self, other):
                time.sleep(0)
                return str(self) == str(other)
            def __lt__(self, other):
                time.sleep(0)
                return str(self) < str(other)
            def __del__(self):
                time.sleep(0)

        sys.setswitchinterval(1e-6)
        functions = [Name(letter) for letter in "abcdef"]
        evals = [evaluation(function_metadata=None, functions=functions) for _ in range(10)]
        engine = engine_over(evals)
        stop, rounds = threading.Event(), []

        def read(number):
            names = list(WALKS)
            while not stop.is_set():
                ending(lambda: walk(engine, names[number % len(names)]))
                number += 1
                rounds.append(number)

        def write():
            while not stop.is_set():
                functions[:] = [Name(letter) for letter in "fedcba"]
                evals[:] = [evaluation(function_metadata=None, functions=functions)] * 7

        threads = [threading.Thread(target=read, args=(n,)) for n in range(8)]
        threads += [threading.Thread(target=write)]
        for thread in threads:
            thread.start()
        started = time.monotonic()
        while time.monotonic() < started + (0.7 if len(rounds) > 50 else 60):
            time.sleep(0.05)
        stop.set()
        for thread in threads:
            thread.join(60)
            assert not thread.is_alive()
        assert len(rounds) > 50
        """,
    )
