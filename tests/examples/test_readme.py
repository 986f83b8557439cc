"""What the README shows to paste prints what the README says."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SNIPPETS = re.findall(
    r"```python\n(.*?)\n```\n\n```text\n(.*?)\n```",
    (ROOT / "README.md").read_text(encoding="utf-8"),
    re.DOTALL,
)


def test_there_are_three_snippets():
    assert len(SNIPPETS) == 3


@pytest.mark.parametrize(("source", "printed"), SNIPPETS, ids=["records", "names", "client"])
def test_a_snippet_prints_what_stands_below_it(source, printed, tmp_path):
    path = os.pathsep.join([str(ROOT / "examples" / "client"), *filter(None, sys.path)])
    found = subprocess.run(
        [sys.executable, "-X", "dev", "-W", "error", "-c", source],
        capture_output=True,
        text=True,
        check=False,
        cwd=tmp_path,
        env={**os.environ, "PYTHONPATH": path},
    )
    assert (found.stdout.rstrip(), found.returncode) == (printed, 0), found.stderr
