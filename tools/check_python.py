"""Say in plain words what the interpreter that runs this lacks for building the extension.

Exits with 1 when something is missing. Written so that any Python 3 can run it.
"""

import importlib.util
import os
import sys
import sysconfig


def shortcomings():
    """Return one sentence for each thing that is missing."""
    found = []
    if sys.version_info < (3, 10) or sys.implementation.name != "cpython":
        found.append("CPython 3.10 or later is needed: make PYTHON=python3.12 ...")
    if importlib.util.find_spec("ensurepip") is None or importlib.util.find_spec("venv") is None:
        found.append("It cannot make virtual environments (Debian: apt install python3-venv).")
    if not os.path.isfile(os.path.join(sysconfig.get_path("include"), "Python.h")):
        found.append("Its C headers are not installed (Debian: apt install python3-dev).")
    return found


if __name__ == "__main__":
    sentences = shortcomings()
    if sentences:
        version = ".".join(str(number) for number in sys.version_info[:3])
        print("Cannot build with " + sys.executable + " (" + version + "):", file=sys.stderr)
        for sentence in sentences:
            print("  - " + sentence, file=sys.stderr)
        sys.exit(1)
