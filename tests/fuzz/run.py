"""Run random hostile programs on the model and on the module, and compare all that happens.

    PYTHONPATH=tests python -m fuzz.run --seconds 60        as many programs as that allows
    PYTHONPATH=tests python -m fuzz.run --programs 100000   so many
    PYTHONPATH=tests python -m fuzz.run --seed 123          that one: shrunk and shown if it fails

Programs run in child processes, in batches with a hash seed of their own; a crash or a hang of a
child is a failure of the program that it was at. Ends with code 1 when any program fails.
"""

from __future__ import annotations

import argparse
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from differential.cases import SUBJECT, subject
from fuzz.avoided import AVOIDED
from fuzz.compare import choices_of, difference, shown
from fuzz.shrink import AGREES, DIFFERS, HANG_SECONDS, shrunk, verdict
from model import search_analytics_model as model

BATCH = 1000
SEEDS_A_DAY = 100_000_000
MOST_FAILURES = 5
DECIDING = ("PYTHONHASHSEED", "PYTHONMALLOC")


def hash_seed(seed: int) -> str:
    """The PYTHONHASHSEED under which the program of a seed runs: that of its batch."""
    return str(seed // BATCH % 2**32)


def environment(seed: int) -> dict[str, str]:
    """The environment in which the program of a seed runs."""
    search_path = os.pathsep.join(path for path in sys.path if path)
    made = {**os.environ, "PYTHONPATH": search_path, "PYTHONHASHSEED": hash_seed(seed)}
    if seed // BATCH % 2:
        # What was freed is overwritten: whoever uses it still does not get away with it.
        made.setdefault("PYTHONMALLOC", "debug")
    return made


class Child:
    """A process that runs one batch."""

    def __init__(self, first: int, count: int, folder: str) -> None:
        self.first, self.count = first, count
        self._progress = Path(folder, f"{first}.progress")
        self._progress.write_text("")
        self._found = Path(folder, f"{first}.found")
        self._errors = Path(folder, f"{first}.errors")
        command = [sys.executable, "-X", "faulthandler", "-m", "fuzz.batch", str(first), str(count)]
        with self._found.open("w") as found, self._errors.open("w") as errors:
            self.process = subprocess.Popen(
                [*command, str(self._progress)], stdout=found, stderr=errors, env=environment(first)
            )
        self._moved, self._seen_at = "", time.monotonic()
        self._hangs = False

    def seed(self) -> int:
        """The program that it is at."""
        return int(self._progress.read_text() or self.first)

    def is_over(self) -> bool:
        """Whether it is done, has crashed, or hangs (and is ended)."""
        if self.process.poll() is not None:
            return True
        place = self._progress.read_text()
        if place != self._moved:
            self._moved, self._seen_at = place, time.monotonic()
        # An interpreter on a busy machine takes its time to start.
        if time.monotonic() - self._seen_at > (HANG_SECONDS if place else 10 * HANG_SECONDS):
            # With it the fault handler shows where it hangs.
            self.process.send_signal(signal.SIGABRT)
            self.process.wait()
            self._hangs = True
            return True
        return False

    def failures(self) -> dict[int, str]:
        """What went wrong, by the seeds of the programs."""
        found = {int(line): DIFFERS for line in self._found.read_text().split()}
        if self.process.returncode != 0:
            code = f"exit code {self.process.returncode} of the child"
            what = "it hangs" if self._hangs else code
            # Enough for a stack of Python and, from 3.14 on, one of C after it.
            found[self.seed()] = f"{what}\n{self._errors.read_text()[-12000:]}"
        return found


def run(first: int, programs: int, seconds: float, jobs: int) -> tuple[int, dict[int, str]]:
    """Run programs until there are enough or the time is over; how many, and the failures."""
    started = time.monotonic()
    following, done = first, 0
    failures: dict[int, str] = {}
    children: list[Child] = []
    with tempfile.TemporaryDirectory() as folder:
        while True:
            is_time = not seconds or time.monotonic() - started < seconds
            goes_on = is_time and following < first + programs and len(failures) < MOST_FAILURES
            while goes_on and len(children) < jobs and following < first + programs:
                count = min(BATCH - following % BATCH, first + programs - following)
                children.append(Child(following, count, folder))
                following += count
            if not children:
                return done, failures
            time.sleep(0.02)
            for child in [child for child in children if child.is_over()]:
                children.remove(child)
                failures.update(child.failures())
                whole = child.process.returncode == 0
                done += child.count if whole else child.seed() - child.first


def show(seed: int) -> bool:
    """Show one program, shrunk if it fails; whether it does not."""
    module = subject()
    choices = choices_of(seed, model)
    outcome = verdict(choices, module, model)
    if outcome == DIFFERS:
        choices = shrunk(choices, lambda other: difference(other, module, model) != "")
    elif outcome != AGREES:
        choices = shrunk(choices, lambda other: verdict(other, module, model) == outcome, 300)
    print(shown(choices, model))
    print(f"\nSeed {seed}, under PYTHONHASHSEED={hash_seed(seed)}: {outcome}.")
    if outcome == DIFFERS:
        print(f"First difference: {difference(choices, module, model)}")
    return outcome == AGREES


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=float, default=60.0, help="for how long")
    parser.add_argument("--programs", type=int, help="how many, however long it takes")
    today = int(time.time() // 86400) * SEEDS_A_DAY
    parser.add_argument("--first-seed", type=int, default=today, help="else another one each day")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--seed", type=int, help="show one program")
    parser.add_argument("--avoided", action="store_true", help="say what no program does, and why")
    chosen = parser.parse_args()
    if chosen.avoided:
        print("\n".join(f"{what}: {why}" for what, why in AVOIDED.items()))
        return 0
    if chosen.seed is not None:
        wanted = environment(chosen.seed)
        if any(os.environ.get(name) != wanted.get(name) for name in DECIDING):
            command = [sys.executable, "-m", "fuzz.run", "--seed", str(chosen.seed)]
            return subprocess.run(command, env=wanted, check=False).returncode
        return 0 if show(chosen.seed) else 1
    seconds = 0.0 if chosen.programs else chosen.seconds
    programs = chosen.programs or SEEDS_A_DAY
    started = time.perf_counter()
    done, failures = run(chosen.first_seed, programs, seconds, chosen.jobs)
    took = time.perf_counter() - started
    for seed, what in sorted(failures.items()):
        print(f"Seed {seed}: {what}")
        print(f'    make fuzz ARGS="--seed {seed}", or the batch up to it:')
        first = seed - seed % BATCH
        print(f'    make fuzz ARGS="--first-seed {first} --programs {seed - first + 1}"')
    print(
        f"{done} programs from seed {chosen.first_seed} on against {SUBJECT} in {took:.1f} s, "
        f"{done / took:.0f} a second: {len(failures)} failures"
    )
    return 1 if failures else 0


if __name__ == "__main__":
    raise SystemExit(main())
