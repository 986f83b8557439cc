"""A CPython newer than any that we know: the extension builds for it, and gives right answers."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]

# What the sources see before anything else: a version in which everything may be elsewhere.
NEWER = """
#include <patchlevel.h>
#undef PY_VERSION_HEX
#define PY_VERSION_HEX 0x03FF0000
"""


def run(*command: str | Path, **environment: str) -> str:
    """Run a command to its end and return all that it wrote; its errors fail the test."""
    outcome = subprocess.run(
        command,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        timeout=600,
        cwd=ROOT,
        env={**os.environ, **environment},
    )
    assert outcome.returncode == 0, outcome.stdout
    return outcome.stdout


@pytest.mark.skipif(sys.version_info < (3, 15), reason="its headers lack what newer ones have")
def test_a_version_that_is_not_known_reads_no_record_in_place_and_says_so(tmp_path: Path) -> None:
    header, build = tmp_path / "newer.h", tmp_path / "build"
    header.write_text(NEWER)
    flags = f"-DCMAKE_CXX_FLAGS_DEBUG=-O0 -include {header}"
    python = f"-DPython_EXECUTABLE={sys.executable}"
    run("cmake", "--preset", "debug", "-B", build, python, flags)
    run("cmake", "--build", build)
    cases = ("-m", "differential.run_cases", "--cases", "300")
    said = run(sys.executable, *cases, PYTHONPATH=f"{build}{os.pathsep}{ROOT / 'tests'}")
    # Only this build can say it: the one that is installed has no assertions.
    assert "reads no record in place" in said
    assert ": 0 differences" in said
