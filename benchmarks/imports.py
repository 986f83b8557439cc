"""How long importing takes: the module, beside the standard modules that it imports."""

import subprocess
import sys

import contestants
import paths
from timing import Race

STANDARD = "standard modules"

_SCRIPT = """
import sys
sys.path[:0] = {path!r}
import kestrune
from time import perf_counter
started = perf_counter()
{statements}
print(perf_counter() - started)
"""
# Each needs what the others have already loaded, so each gets an interpreter of its own.
_STATEMENTS = {
    STANDARD: "import os, sys, time, math, dataclasses, enum, types, typing",
    contestants.EXTENSION: "import kestrune.search_analytics",
    contestants.MODEL: "import search_analytics_model",
}


def measure(rounds: int) -> Race:
    """Time each import in fresh interpreters, in turns; one more round first warms the disk."""
    race = Race({name: [] for name in _STATEMENTS})
    for number in range(rounds + 1):
        for name, statements in _STATEMENTS.items():
            seconds = _seconds(statements)
            if number > 0:
                race.seconds[name].append(seconds)
    for name in _STATEMENTS:
        print(f"  {name:<20}{race.time(name).median * 1e3:8.2f} ms", flush=True)
    return race


def _seconds(statements: str) -> float:
    # The package is imported beforehand, without the rest of the client: it is not ours to time.
    path = [str(paths.MODEL.parent), str(contestants.extension_folder())]
    script = _SCRIPT.format(path=path, statements=statements)
    command = [sys.executable, "-I", "-S", "-c", script]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return float(done.stdout)
