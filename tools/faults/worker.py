"""Lets chosen calls fail in one process, and judges what comes of it.

Reads a plan from its standard input and writes what it does to its standard output, one pickled
line at a time: who started it knows what was being tried when it crashed.
"""

from __future__ import annotations

import gc
import pickle
import signal
import sys
from array import array
from base64 import b64decode, b64encode
from collections.abc import Iterable, Iterator
from typing import Any

import kestrune.search_analytics as search_analytics
from scenarios import Scenario, named, tracked
from support.outcome import Outcome, capture
from watch import Chain, Injected, Trial, Watch

# The failures of one operation are tried at a call's first, second and last time.
TIMES = (1, 2)

# Seconds after which a call hangs; that ends the process, as a crash does.
PATIENCE = 300

# How often all trials of an operation are run again, to see what grows each time; and how often,
# and in how many rounds, one that is suspected is, until what the interpreter keeps has settled.
ROUNDS = 4
SURE_ROUNDS = 12
SURE_REPETITIONS = 40

ERRORS = {"Injected": Injected, "MemoryError": MemoryError}


def tell(kind: str, *values: Any) -> None:
    """Write a message to whoever started this process."""
    sys.__stdout__.write(b64encode(pickle.dumps((kind, *values))).decode() + "\n")
    sys.__stdout__.flush()


class Worker:
    """Runs scenarios with and without faults.

    `turns` are the calls for which each step of a loop has to give others their turn, which takes
    long; `known` are those that need not be tried as a second failure.
    """

    def __init__(
        self, helpers: Iterable[int], turns: Iterable[Chain], known: Iterable[Chain] = ()
    ) -> None:
        self.turns = set(turns)
        self.known = set(known)
        self.is_short = bool(self.known)
        self.watch = Watch(search_analytics, helpers)
        self.unraisable: list[str] = []
        sys.unraisablehook = lambda info: self.unraisable.append(
            f"{info.exc_type.__name__} in {info.object!r}"
        )

    def run(
        self, scenario: Scenario, trial: Trial | None = None, every_turn: bool = False
    ) -> tuple[Outcome, int]:
        """The outcome of a scenario, watched; and how many calls were made to fail."""
        every_turn |= trial is not None and any(call in self.turns for call, _ in trial.calls)
        call, done = scenario.build()
        fired = 0

        def watched() -> Any:
            nonlocal fired
            if trial is not None:
                self.watch.choose(*trial.calls)
            self.watch.start(ERRORS[trial.error] if trial else Injected, every_turn)
            try:
                return call()
            finally:
                fired = self.watch.stop()

        signal.alarm(PATIENCE)
        try:
            outcome = capture(watched)
        finally:
            signal.alarm(0)
            done()
        return outcome, fired

    def met(self, scenario: Scenario) -> dict[Chain, int]:
        """The calls that come by in a scenario without faults, once it is warm."""
        self.run(scenario, every_turn=True)
        return self.watch.met()

    def judge(self, scenario: Scenario, expected: Outcome, trial: Trial) -> int:
        """Try one failure, and the scenario without it. Returns how many calls failed."""
        tell("trying", trial)
        self.unraisable.clear()
        found, fired = self.run(scenario, trial)
        if fired and not allowed(scenario, expected, found, trial):
            tell("problem", trial, f"came out as {found.kind} {found.tree!r:.300}")
        if self.unraisable:
            tell("problem", trial, f"raised where nobody sees it: {self.unraisable}")
        after = self.run(scenario)[0]
        if (after.kind, after.tree) != (expected.kind, expected.tree):
            tell("problem", trial, f"spoilt the next call: {after.kind} {after.tree!r:.300}")
        return fired

    def examine(self, scenario: Scenario, chains: set[Chain] | None) -> None:
        """Let every call of a scenario fail (or those of `chains`), and what follows it."""
        tell("trying", Trial(scenario.name))
        for _ in range(3):
            expected = self.run(scenario)[0]
        met = self.met(scenario)
        tell("met", scenario.name, met)
        tried = []
        for chain, count in met.items():
            if chains is not None and chain not in chains:
                continue
            times = sorted({*(time for time in TIMES if time <= count), count})
            for trial in trials(scenario.name, chain, times if chains is None else [1]):
                fired = self.judge(scenario, expected, trial)
                tell("failed" if fired else "missed", trial)
                tried.append(trial)
            if not scenario.is_long:
                tried += self.examine_pairs(scenario, expected, chain, met)
        self.weigh(scenario, tried)

    def examine_pairs(
        self, scenario: Scenario, expected: Outcome, chain: Chain, met: dict[Chain, int]
    ) -> list[Trial]:
        """Let calls fail that come by only after another one failed."""
        first = Trial(scenario.name, ((chain, 1),))
        self.run(scenario, first)
        later = {call for call in self.watch.met() if call not in met and call not in self.known}
        if self.is_short:
            self.known |= later
        tell("met", scenario.name, dict.fromkeys(later, 1))
        tried = []
        for call in later:
            trial = Trial(scenario.name, ((chain, 1), (call, 1)))
            if self.judge(scenario, expected, trial) == 2:
                tell("failed", Trial(scenario.name, ((call, 1),)))
            tried.append(trial)
        return tried

    def weigh(self, scenario: Scenario, tried: list[Trial]) -> None:
        """Run all trials again and again; if what is in use grows each time, find out by which."""
        if self.grows(scenario, tried, 1):
            for trial in tried:
                found = self.grows(scenario, [trial], SURE_REPETITIONS)
                if found:
                    tell("problem", trial, f"left behind: {found}")

    def grows(self, scenario: Scenario, tried: list[Trial], repetitions: int) -> str:
        """What every round of these trials leaves behind, beyond what the scenario itself may."""
        objects = tracked()
        names = ["blocks", "C++ blocks", *(f"references to {o!r:.60}" for o in objects)]
        bounds = [repetitions if len(tried) == 1 else 1] * len(names)
        bounds[0] = max(bounds[0], int(repetitions * len(tried) * scenario.allowed))
        # Rows that are there before anything is counted: counting is not to be counted.
        before, after = (array("q", bytes(8 * len(names))) for _ in range(2))
        least = array("q", [sys.maxsize] * len(names))
        for number in range(ROUNDS if len(tried) > 1 else SURE_ROUNDS):
            self.fill_in_use(before, objects)
            for trial in tried:
                tell("trying", trial)
                for _ in range(repetitions):
                    self.run(scenario, trial)
            self.fill_in_use(after, objects)
            for place in range(len(names)):
                # The first round fills what is made once.
                if number > 0:
                    least[place] = min(least[place], after[place] - before[place])
            if number > 0 and all(map(int.__lt__, least, bounds)):
                return ""
        found = zip(least, bounds, names, strict=True)
        return ", ".join(f"{gain} {name}" for gain, bound, name in found if gain >= bound)

    def fill_in_use(self, sample: array[int], objects: list[Any]) -> None:
        """Count blocks of memory and references to objects, without garbage."""
        gc.collect()
        sample[0] = sys.getallocatedblocks()
        sample[1] = self.watch.live_blocks()
        for place, thing in enumerate(objects):
            sample[place + 2] = sys.getrefcount(thing)


def trials(name: str, chain: Chain, times: list[int]) -> Iterator[Trial]:
    """The ways to let one call fail."""
    for time in times:
        yield Trial(name, ((chain, time),))
    yield Trial(name, ((chain, 1),), "MemoryError")


def allowed(scenario: Scenario, expected: Outcome, found: Outcome, trial: Trial) -> bool:
    """Whether an outcome is the error that was set, the right answer, or tolerated by contract."""
    if (found.kind, found.tree) == (expected.kind, expected.tree):
        return True
    # An error without room for its traceback is that error nevertheless.
    if found.kind == expected.kind == "error" and found.tree[:4] == expected.tree[:4]:
        return True
    # The answer of a scenario that goes on after an error holds that error.
    errors = {trial.error, "MemoryError"}
    if found.kind == "value":
        return any(error in repr(found.tree) for error in errors)
    name = str(found.tree[1])
    if not scenario.tolerates or name in errors:
        return name in errors
    # It may have been turned into another error, or dropped. Cause and context stand last.
    behind = {str(error[1]) for error in found.tree[-2:] if len(error) > 1}
    return bool(behind & errors) or (trial.error == "MemoryError" and name in scenario.tolerates)


def serve() -> None:
    """Do what the plan says: scout scenarios, or examine each."""
    plan = pickle.loads(b64decode(sys.stdin.readline()))
    worker = Worker(plan["helpers"], plan["turns"], plan["known"])
    gc.collect()
    gc.freeze()
    for name, chains in plan["scenarios"].items():
        tell("trying", Trial(name))
        if plan["scout"]:
            worker.run(named(name))
            tell("met", name, worker.met(named(name)))
        else:
            worker.examine(named(name), chains)
    tell("done")


if __name__ == "__main__":
    serve()
