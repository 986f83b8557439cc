"""How long Ctrl-C and other threads wait for the extension, on inputs that make them wait.

Both are measured in CPU time of the process, so that other processes on the machine do not count.
Ctrl-C: from the moment when another process sends the signal to the exception in the caller, at
several moments of each call. Threads: the
longest time for which a second thread that always has something to do was not let run, which
includes its own waiting for the interpreter's switch interval of 5 ms. What the interpreter does
itself without a break (collecting garbage, one sort of its own, freeing the result) counts, too.

    python waits.py [--attempts N] [--records N]
"""

import argparse
import gc
import os
import random
import signal
import threading
import time
from collections.abc import Callable, Iterator
from types import SimpleNamespace
from typing import Any

import paths

paths.prepare()

from kestrune.search_analytics import AggregateBy, SearchAnalytics  # noqa: E402
from operations import History  # noqa: E402
from workloads import POOLS  # noqa: E402

ONE_HASH = 2**61 - 1  # ints that differ by a multiple of this have one hash

Call = Callable[[], Any]


def record(items: list[Any], **changes: Any) -> SimpleNamespace:
    """A complete evaluation that used these functions."""
    values = {
        "eval_id": "e",
        "era_id": "era",
        "eval_type": "signal",
        "submitted": False,
        "passed_thresholds": True,
        "timestamp": time.time(),
        "correlation": 0.25,
        "sharpe": 1.0,
        "returns": 0.5,
        "turnover": 0.5,
        "drawdown": 0.5,
        "per_column_stats": {},
        "tree_depth": 3,
        "function_metadata": items,
        "feature_metadata": [named("close", side="feature")],
    }
    return SimpleNamespace(**{**values, **changes})


def named(name: Any, family: Any = "family", side: str = "function") -> dict[str, Any]:
    return {f"{side}_name": name, f"{side}_family": family, f"{side}_subfamily": family}


def asked(records: list[Any], method: str, **arguments: Any) -> Call:
    engine = SearchAnalytics(History(records), POOLS)
    return lambda: getattr(engine, method)(**arguments)


def calls(count: int) -> Iterator[tuple[str, Call]]:
    """Yield what is asked for, and the call; each makes its records when its turn comes."""
    long_list = [named(f"f{i % 100}", f"F{i % 10}") for i in range(300_000)]
    shared = [record(long_list) for _ in range(100)]
    for method in ("get_search_stats", "get_search_patterns", "get_correlation_patterns"):
        yield f"{method}, 300000 items a record", asked(shared, method)
    yield (
        "family filter, 300000 items a record",
        asked(shared, "get_search_patterns", function_family="none"),
    )
    texts = ["x" * 5_000_000 + str(i) for i in range(10)]
    long_texts = [record([named("f", text) for text in texts]) for _ in range(200)]
    yield (
        "family filter, texts of 5000000 letters",
        asked(long_texts, "get_search_patterns", function_family="x" * 5_000_000 + "y"),
    )
    del texts, long_texts
    colliding = [record([named(ONE_HASH * (20 * i + j), j) for j in range(20)]) for i in range(40)]
    yield "get_correlation_patterns, one hash", asked(colliding, "get_correlation_patterns")
    del colliding
    many = [record([named(str(i), str(i))], sharpe=i % 1000 / 10) for i in range(count)]
    by_name: dict[str, Any] = {"aggregate_by": AggregateBy.NONE, "min_sample_size": 0}
    yield f"get_search_stats, {count} rows", asked(many, "get_search_stats", **by_name)
    yield f"get_suggestions, {count} rows", asked(many, "get_suggestions", **by_name)
    yield f"get_search_patterns, {count} families", asked(many, "get_search_patterns")
    yield f"get_yield_analysis, {count} records", asked(many, "get_yield_analysis")
    del many
    pairs = [record([named(str(i)) for i in range(1000)])]
    yield "get_correlation_patterns, 1000 names", asked(pairs, "get_correlation_patterns")
    usual = [record([named(f"f{i % 7}", f"F{i % 5}"), named("g")]) for i in range(1000)]
    million = usual * 1000
    for method in (
        "get_search_stats",
        "get_search_patterns",
        "get_correlation_patterns",
        "get_search_velocity",
        "get_yield_analysis",
    ):
        yield f"{method}, 1000000 records", asked(million, method)


def cpu_of(call: Call) -> float:
    started = time.process_time()
    call()
    return time.process_time() - started


def interrupt_delay(call: Call, after: float) -> float:
    """The CPU time from the signal to the exception; 0 if the call was over before.

    The signal is sent by another process, which reads the clock of this one's CPU time.
    """
    me, (reading, writing) = os.getpid(), os.pipe()
    sender = os.fork()
    if sender == 0:
        clock = (~me << 3) | 2  # the clock of the CPU time of that process, as Linux numbers them
        due = time.clock_gettime(clock) + after
        while time.clock_gettime(clock) < due:
            time.sleep(0.0002)
        os.write(writing, repr(time.clock_gettime(clock)).encode())
        os.kill(me, signal.SIGINT)
        os._exit(0)
    over = 0.0
    try:
        kept = call()
        over = time.process_time()
        while True:  # the signal comes when the clock has gone on
            pass
    except KeyboardInterrupt:
        ended = over or time.process_time()
        kept = None
    os.waitpid(sender, 0)
    sent = float(os.read(reading, 100))
    os.close(reading)
    os.close(writing)
    del kept
    return max(ended - sent, 0.0)


def longest_silence(call: Call) -> float:
    """The longest time for which another thread that always has work was not let run."""
    longest, stop, ready = 0.0, False, threading.Event()

    def work() -> None:
        nonlocal longest
        last = time.process_time()
        while not stop:
            now = time.process_time()
            longest = max(longest, now - last)
            last = now
            ready.set()

    thread = threading.Thread(target=work)
    thread.start()
    ready.wait()
    longest = 0.0
    kept = call()
    measured = longest
    stop = True
    thread.join()
    del kept
    return measured


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--attempts", type=int, default=8, help="Ctrl-C so often in each call")
    parser.add_argument("--records", type=int, default=200_000, help="records with a row each")
    arguments = parser.parse_args()
    signal.signal(signal.SIGINT, signal.default_int_handler)
    moments = random.Random(1)
    print(f"{'':46} {'whole call':>12} {'Ctrl-C, worst':>14} {'silence':>10}")
    for label, call in calls(arguments.records):
        gc.collect()
        whole = cpu_of(call)
        delays = [
            interrupt_delay(call, max(moments.random() * whole, 0.001))
            for _ in range(arguments.attempts)
        ]
        silence = longest_silence(call)
        delay = max(delays)
        print(
            f"{label:46} {whole * 1e3:9.1f} ms {delay * 1e3:11.1f} ms {silence * 1e3:7.1f} ms",
            flush=True,
        )


if __name__ == "__main__":
    main()
