"""Make one small change after the other to the sources, and see that some test notices each.

The list of changes is kept (`catalogue.py`). Exits with 1 where a mutant that tests should kill
survives, where one that nothing can tell from the original is killed after all, and where the text
of a mutant does not stand in its source any more.
"""

from __future__ import annotations

import argparse
import os
import random
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from threading import Lock

from catalogue import Mutant, all_mutants
from schemata import render, replace

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutants"
SOURCES = "search_analytics"
COPIED = ("CMakeLists.txt", "stubs", SOURCES)

# What is tried where the tests of the list notice nothing: all but what looks at texts, at the
# wheel and at the examples.
ROOMS = ("tables", "records", "engine", "analytics", "environment", "module", "names", "python")
EVERYTHING = [f"tests/{room}" for room in (*ROOMS, "facade", "differential", "robustness")]
# A mutant that never ends is killed as well as one that answers wrongly.
LONGEST_HINT = 120.0
LONGEST_RUN = 900.0


@dataclass
class Outcome:
    """What became of a mutant."""

    mutant: Mutant
    killed_by: str
    seconds: float

    @property
    def is_expected(self) -> bool:
        """Whether it is what the list says."""
        return bool(self.killed_by) != bool(self.mutant.survives)

    def __str__(self) -> str:
        fate = f"killed by {self.killed_by}" if self.killed_by else "survived"
        return f"{self.mutant.place} ({self.seconds:.0f} s) {fate}: {self.mutant}"


def write(path: Path, text: str) -> None:
    """Write a file, unless that is what it holds: what is as new as before is not built again."""
    if not path.exists() or path.read_text("utf-8") != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, "utf-8")


class Build:
    """A copy of the sources, built with assertions, for one set of changes at a time."""

    def __init__(self, name: str) -> None:
        self.folder = WORK / name

    def make(self, changed: dict[str, str]) -> Path:
        """Build with the texts of some sources changed; return the folder to import from."""
        copy = self.folder / "src"
        for top in COPIED:
            paths = [ROOT / top] if (ROOT / top).is_file() else (ROOT / top).rglob("*")
            for path in paths:
                if path.is_file():
                    name = path.relative_to(ROOT)
                    text = changed.get(name.as_posix())
                    write(copy / name, path.read_text("utf-8") if text is None else text)
        for path in [path for path in (copy / SOURCES).rglob("*") if path.is_file()]:
            if not (ROOT / path.relative_to(copy)).exists():
                path.unlink()
        header = Path(__file__).with_name("chosen.h")
        build = self.folder / "build"
        options = {
            "Python_EXECUTABLE": sys.executable,
            "CMAKE_BUILD_TYPE": "Debug",
            "CMAKE_CXX_FLAGS_DEBUG": "-O1",
            "CMAKE_CXX_FLAGS": f"-w -include {header}",
        }
        settings = [f"-D{name}={value}" for name, value in options.items()]
        places = ["-S", str(copy), "-B", str(build), "-G", "Ninja", "--log-level=WARNING"]
        self._run(["cmake", *places, *settings])
        self._run(["cmake", "--build", str(build)])
        self._run(["cmake", "--install", str(build), "--prefix", str(self.folder / "site")])
        return self.folder / "site"

    def _run(self, command: list[str]) -> None:
        outcome = subprocess.run(command, capture_output=True, text=True, check=False)
        if outcome.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}\n{outcome.stdout}{outcome.stderr}")


def run_tests(tests: list[str], site: Path, number: int, timeout: float) -> str:
    """Run tests on a build with one mutant alive; return what noticed it, or an empty text."""
    environment = {
        **os.environ,
        "PYTHONPATH": str(site),
        "SEARCH_ANALYTICS_MUTANT": str(number),
        "DIFFERENTIAL_CASES": os.environ.get("DIFFERENTIAL_CASES", "2000"),
    }
    # The plugin of hypothesis takes most of a second to load, and its tests need none of it.
    plugins = ["-p", "no:cacheprovider", "-p", "no:hypothesispytest"]
    pytest = [sys.executable, "-X", "dev", "-W", "error", "-m", "pytest", "-x", "-q", "--tb=short"]
    log = WORK / "logs" / f"{number}.txt"
    log.parent.mkdir(parents=True, exist_ok=True)
    with (
        log.open("w", encoding="utf-8") as output,
        # In a session of its own: some tests send signals, and what hangs ends with its children.
        subprocess.Popen(
            [*pytest, *plugins, *tests],
            cwd=ROOT,
            env=environment,
            stdout=output,
            stderr=output,
            start_new_session=True,
        ) as process,
    ):
        try:
            code = process.wait(timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return "a hang"
    if code in (3, 4, 5):
        raise RuntimeError(f"pytest could not run {' '.join(tests)}: see {log}")
    if code < 0:
        return f"a crash (signal {-code})"
    failed = [line for line in log.read_text("utf-8").splitlines() if line.startswith("FAILED ")]
    return (failed[-1].split()[1] if failed else "an error") if code != 0 else ""


class Run:
    """One run: a build with all mutants, then the tests with one after the other."""

    def __init__(self, mutants: list[Mutant]) -> None:
        self.mutants = mutants
        self.own_build = Build("own")
        self.own_lock = Lock()
        self.site = Path()

    def build_all(self) -> None:
        """Build the sources with all mutants that have no build of their own."""
        texts = {}
        for source in {mutant.source for mutant in self.mutants}:
            here = [m for m in self.mutants if m.source == source and not m.own_build]
            texts[source] = render((ROOT / source).read_text("utf-8"), here)
        self.site = Build("all").make(texts)

    def judge(self, mutant: Mutant) -> Outcome:
        """Find out what kills one mutant."""
        started = time.monotonic()
        if not mutant.own_build:
            killer = self._killer(mutant, self.site)
        else:
            with self.own_lock:
                text = (ROOT / mutant.source).read_text("utf-8")
                site = self.own_build.make({mutant.source: replace(text, mutant)})
                killer = self._killer(mutant, site)
        return Outcome(mutant, killer, time.monotonic() - started)

    def _killer(self, mutant: Mutant, site: Path) -> str:
        killer = run_tests(mutant.tests, site, mutant.number, LONGEST_HINT) if mutant.tests else ""
        return killer or run_tests(EVERYTHING, site, mutant.number, LONGEST_RUN)

    def check_original(self) -> None:
        """See that the build answers rightly while none of its mutants is chosen."""
        killer = run_tests(EVERYTHING, self.site, 0, LONGEST_RUN)
        if killer:
            raise RuntimeError(f"without a mutant, {killer} notices something")


def arguments() -> argparse.Namespace:
    """Read the command line."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--sample", type=int, default=0, help="only so many, taken by chance")
    parser.add_argument("--seed", type=int, default=None, help="the chance, as a run has told it")
    parser.add_argument("--only", default="", help="those with this text in their source or place")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--no-original", action="store_true", help="do not check the original")
    return parser.parse_args()


def selected(mutants: list[Mutant], options: argparse.Namespace) -> list[Mutant]:
    """Return the mutants that the command line asks for."""
    chosen = [m for m in mutants if options.only in f"{m.source} {m.place}"]
    if options.sample:
        seed = random.randrange(10**6) if options.seed is None else options.seed
        print(f"a sample of {options.sample} (--seed {seed})")
        chosen = random.Random(seed).sample(chosen, min(options.sample, len(chosen)))
    return chosen


def main() -> int:
    """Judge the mutants and print what became of them."""
    options = arguments()
    mutants = all_mutants()
    run = Run(mutants)
    started = time.monotonic()
    run.build_all()
    print(f"built {len(mutants)} mutants in {time.monotonic() - started:.0f} s", flush=True)
    outcomes = []
    with ThreadPoolExecutor(options.workers) as pool:
        original = pool.submit((lambda: None) if options.no_original else run.check_original)
        for future in [pool.submit(run.judge, m) for m in selected(mutants, options)]:
            try:
                outcome = future.result()
                if original.done():
                    original.result()
            except BaseException:
                pool.shutdown(cancel_futures=True)
                raise
            print("  " if outcome.is_expected else "! ", outcome, sep="", flush=True)
            outcomes.append(outcome)
        original.result()
    unexpected = [outcome for outcome in outcomes if not outcome.is_expected]
    survivors = [outcome for outcome in outcomes if not outcome.killed_by]
    print(
        f"{len(outcomes)} mutants in {(time.monotonic() - started) / 60:.0f} minutes: "
        f"{len(outcomes) - len(survivors)} killed, {len(survivors)} survived, of which nothing can "
        f"tell {sum(outcome.is_expected for outcome in survivors)}"
    )
    for outcome in unexpected:
        print("not as the list says:", outcome)
    return 1 if unexpected else 0


if __name__ == "__main__":
    sys.exit(main())
