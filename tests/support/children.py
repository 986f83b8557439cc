"""Child interpreters for whatever might crash, hang or change a whole process."""

from __future__ import annotations

import os
import subprocess
import sys
import textwrap

# A child that hangs fails its test; one that is slow, as on a busy machine, does not.
TIMEOUT = 180.0

# Children see the modules that this process sees, and the test helpers.
_SEARCH_PATH = os.pathsep.join(path for path in sys.path if path)


def run_child(
    source: str, *arguments: str, timeout: float = TIMEOUT, check: bool = True, **environment: str
) -> subprocess.CompletedProcess[str]:
    """Run `source` in a new interpreter (dev mode, warnings are errors).

    With `check`, an exit code other than 0 fails the test and shows what the child wrote. A
    negative code is the number of the signal that ended it: a crash.
    """
    outcome = subprocess.run(
        [sys.executable, "-X", "dev", "-W", "error", "-c", textwrap.dedent(source), *arguments],
        capture_output=True,
        text=True,
        timeout=timeout,
        env={**os.environ, "PYTHONPATH": _SEARCH_PATH, **environment},
    )
    if check:
        assert outcome.returncode == 0, (
            f"exit code {outcome.returncode}\n{outcome.stdout}\n{outcome.stderr}"
        )
    return outcome
