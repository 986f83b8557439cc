"""Let each call that can fail do so once, and say which did; see README.md beside this file."""

from __future__ import annotations

import argparse
import json
import os
import pickle
import subprocess
import sys
import time
from base64 import b64decode, b64encode
from collections import defaultdict
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from listing import ROOT, TOOLS, Chain, Listing, Site
from unreachable import RULES
from watch import Trial

# How many generated cases of each kind are looked at.
CANDIDATES = 40

CORES = os.cpu_count() or 1


class Run:
    """One run over all scenarios: what was met, what failed, and what was wrong."""

    def __init__(self, site: Path, is_short: bool) -> None:
        self.site = site.resolve()
        (library,) = self.site.glob("kestrune/search_analytics.*.so")
        self.listing = Listing(library)
        self.is_short = is_short
        self.reached: dict[Site, str] = {}
        self.failed: set[Site] = set()
        self.problems: list[str] = []
        self.trials = self.missed = 0
        # Calls that come by without another failure, where a short run tries only the others.
        self.known: set[Chain] = set()

    def environment(self) -> dict[str, str]:
        """What a process needs to find the build, the tests' helpers and the tools."""
        path = os.pathsep.join(map(str, (self.site, ROOT / "tests", TOOLS)))
        return {**os.environ, "PYTHONPATH": path, "PYTHONHASHSEED": "0"}

    def worker(self, **plan: Any) -> Iterator[tuple[Any, ...]]:
        """The messages of a worker with this plan; ends where it crashes, too."""
        with subprocess.Popen(
            [sys.executable, "-W", "error", str(TOOLS / "worker.py")],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            env=self.environment(),
        ) as process:
            assert process.stdin is not None
            assert process.stdout is not None
            whole = {"helpers": self.listing.helpers, "turns": self.listing.turns, **plan}
            process.stdin.write(b64encode(pickle.dumps(whole)).decode() + "\n")
            process.stdin.close()
            for line in process.stdout:
                yield pickle.loads(b64decode(line))
        yield "ended", process.returncode

    def take(self, message: tuple[Any, ...]) -> None:
        """Note what a worker says."""
        kind, *values = message
        if kind == "met":
            for chain in values[1]:
                if chain not in self.listing.sites:
                    self.problems.append(f"[{values[0]}] a call that is not listed: {chain}")
                    continue
                self.reached.setdefault(self.listing.sites[chain], values[0])
        elif kind == "failed":
            self.trials += 1
            site = self.listing.sites.get(values[0].calls[-1][0])
            self.failed |= {site} if site else set()
        elif kind == "missed":
            self.missed += 1
        elif kind == "problem":
            self.problems.append(f"{self.describe(values[0])}\n    {values[1]}")

    def describe(self, trial: Trial) -> str:
        calls = [f"{self.listing.sites.get(chain)} (time {time})" for chain, time in trial.calls]
        return f"[{trial.scenario}] {trial.error} at\n    " + "\n    then ".join(calls)

    def examine(self, scenarios: dict[str, set[Chain] | None]) -> None:
        """Let calls fail in these scenarios, one after the other; goes on after a crash."""
        while scenarios:
            trying = Trial("")
            plan = {"scenarios": scenarios, "scout": False, "known": self.known}
            code = 1
            for message in self.worker(**plan):
                if message[0] == "trying":
                    trying = message[1]
                elif message[0] == "done":
                    code = 0
                elif message[0] == "ended":
                    code = code and message[1]
                else:
                    self.take(message)
            if code == 0:
                return
            self.problems.append(f"{self.describe(trying)}\n    ended the process: {code}")
            names = list(scenarios)
            begin = names.index(trying.scenario) + 1 if trying.scenario in names else len(names)
            scenarios = {name: scenarios[name] for name in names[begin:]}

    def scout(self, names: list[str]) -> dict[str, dict[Chain, int]]:
        """The calls that come by in each of these scenarios."""
        plan = {"scenarios": dict.fromkeys(names), "scout": True, "known": ()}
        met = {}
        last: tuple[Any, ...] = ()
        for message in self.worker(**plan):
            if message[0] == "met":
                met[message[1]] = message[2]
            elif message[0] == "trying":
                last = message
            elif message[0] == "ended" and message[1] != 0:
                self.problems.append(f"[{last[1].scenario}] without a failure: {message[1]}")
        return met

    def choose(self, names: dict[str, list[str]]) -> dict[str, set[Chain] | None]:
        """The scenarios, and the calls that are to fail in each: None for all that come by.

        Of what is generated, that is kept which reaches something more. In long scenarios, and in
        all of a short run, only calls are tried that no scenario before it reaches.
        """
        chosen: dict[str, set[Chain] | None] = {}
        known: set[Chain] = set()
        with ThreadPoolExecutor(CORES) as pool:
            scouted = dict(zip(names, pool.map(self.scout, names.values()), strict=True))
        for kind in ("written", "generated", "long"):
            for name, met in scouted[kind].items():
                new = set(met) - known
                known |= new
                if kind == "long" or self.is_short:
                    chosen[name] = new
                elif new or kind == "written":
                    chosen[name] = None
        if self.is_short:
            self.known = known
        return {name: chains for name, chains in chosen.items() if chains is None or chains}

    def go(self) -> int:
        """The whole run; returns 0 where nothing is wrong."""
        started = time.perf_counter()
        chosen = self.choose(self.names())
        order = list(chosen)
        parts = [{n: chosen[n] for n in order[i::CORES]} for i in range(CORES)]
        with ThreadPoolExecutor(CORES) as pool:
            list(pool.map(self.examine, parts))
        return self.report(len(chosen), time.perf_counter() - started)

    def names(self) -> dict[str, list[str]]:
        """The names of all scenarios."""
        source = f"import json, scenarios; print(json.dumps(scenarios.names({CANDIDATES})))"
        done = subprocess.run(
            [sys.executable, "-c", source],
            env=self.environment(),
            stdout=subprocess.PIPE,
            text=True,
            check=True,
        )
        found: dict[str, list[str]] = json.loads(done.stdout)
        return found

    def report(self, scenarios: int, seconds: float) -> int:
        """Say what came of it."""
        sites = set(self.listing.sites.values())
        excused, stale = self.excused(sites)
        open_sites = sorted(sites - self.failed - set().union(*excused.values(), set()))
        wrong = [
            *(f"called past the wrappers: {name}" for name in self.listing.unknown()),
            *(f"called through a class: {text}" for text in self.listing.through_pointers()),
            *stale,
            *(
                f"never failed{'' if s in self.reached else ', never reached'}: {s}"
                for s in open_sites
            ),
            *self.problems,
        ]
        for line in wrong:
            print(line)
        print()
        for reason, found in excused.items():
            print(f"{len(found):5} cannot be reached: {reason}")
        print(f"{len(sites):5} sites there")
        print(f"{len(self.reached):5} reached")
        print(f"{len(self.failed):5} failed, in {self.trials} trials of {scenarios} scenarios")
        print(f"{len(set().union(*excused.values(), set())):5} listed as unreachable")
        print(f"{len(open_sites):5} left")
        print(f"{self.missed:5} trials in which the call did not come by again")
        print(f"{len(self.problems):5} problems; {seconds:.0f} s")
        return 1 if wrong else 0

    def excused(self, sites: set[Site]) -> tuple[dict[str, set[Site]], list[str]]:
        """The sites of each reason why they cannot be reached; and what is wrong with the list."""
        found: dict[str, set[Site]] = defaultdict(set)
        stale = []
        for rule in RULES:
            matching = {site for site in sites if rule.matches(site)}
            found[rule.reason] |= matching
            if not matching:
                stale.append(f"unreachable.py lists what is not there: {rule}")
            stale += [
                f"unreachable.py lists what {self.reached[site]} reaches: {site}"
                for site in sorted(matching & set(self.reached))
            ]
        return found, stale


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument(
        "--site", type=Path, required=True, help="where the fault build is installed"
    )
    parser.add_argument("--short", action="store_true", help="each call in one scenario only")
    arguments = parser.parse_args()
    return Run(arguments.site, arguments.short).go()


if __name__ == "__main__":
    raise SystemExit(main())
