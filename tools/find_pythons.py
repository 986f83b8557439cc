"""List the CPythons of this machine that the extension can be built for.

Prints one line `version path` for each minor version from 3.10 on, oldest first, and says on
standard error which ones are left out and why. Looks for `python3.N` on PATH, then among the
interpreters that pyenv manages, then among those that `make interpreters` got.
"""

from __future__ import annotations

import argparse
import os
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

MINORS = range(10, 16)
INTERPRETERS = Path(__file__).resolve().parents[1] / "build/interpreters/tree/usr/bin"

PROBE = """
import importlib.util, os, sys, sysconfig
version = "%d.%d" % sys.version_info[:2]
if sys.implementation.name != "cpython":
    print("is not CPython")
elif sysconfig.get_config_var("Py_GIL_DISABLED"):
    print("is a free-threaded build")
elif importlib.util.find_spec("ensurepip") is None:
    print("cannot make virtual environments")
elif not os.path.isfile(os.path.join(sysconfig.get_path("include"), "Python.h")):
    print("has no C headers")
else:
    print("ok", version, getattr(sys, "_base_executable", None) or sys.executable)
"""


def pyenv_versions() -> Path | None:
    """Return the folder of pyenv's interpreters, or None without pyenv."""
    root = os.environ.get("PYENV_ROOT")
    if not root and shutil.which("pyenv"):
        root = subprocess.run(["pyenv", "root"], capture_output=True, text=True).stdout.strip()
    return Path(root) / "versions" if root else None


def candidates(minor: int) -> Iterator[str]:
    """Yield the paths at which CPython 3.`minor` might stand."""
    name = f"python3.{minor}"
    on_path = shutil.which(name)
    if on_path:
        yield on_path
    versions = pyenv_versions()
    if versions is not None:
        yield from (str(path) for path in sorted(versions.glob(f"3.{minor}.*/bin/{name}")))
    if (INTERPRETERS / name).is_file():
        yield str(INTERPRETERS / name)


def usable(minor: int, say: bool = True) -> str | None:
    """Return the first interpreter that answers as 3.`minor`; say why others do not serve."""
    seen = not say
    for path in candidates(minor):
        probe = subprocess.run([path, "-c", PROBE], capture_output=True, text=True)
        state, _, rest = probe.stdout.strip().partition(" ")
        version, _, executable = rest.partition(" ")
        if probe.returncode == 0 and state == "ok" and version == f"3.{minor}":
            return executable
        if probe.returncode == 0 and say:  # Otherwise a shim for a version that is not switched on.
            print(f"CPython 3.{minor}: {path} {probe.stdout.strip()}", file=sys.stderr)
            seen = True
    if not seen:
        print(f"CPython 3.{minor}: not found, left out", file=sys.stderr)
    return None


def main() -> None:
    """Print what was found."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--skip", default="", help="a version to leave out, like 3.11")
    skip = parser.parse_args().skip
    for minor in MINORS:
        if f"3.{minor}" == skip:
            continue
        executable = usable(minor)
        if executable is not None:
            print(f"3.{minor} {executable}")


if __name__ == "__main__":
    main()
