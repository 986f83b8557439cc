"""What the texts say that the demo prints is what it prints."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
LEFT_OUT = "..."


def masked(text: str) -> list[str]:
    """Return the lines of `text`, the seconds of the search masked: they are the machine's."""
    return re.sub(r"(searched and recorded in) \d+\.\d s\.", r"\1 # s.", text).splitlines()


def shown_in(name: str) -> list[str]:
    """Return the lines of the one block of a text that shows what the demo prints.

    Blocks that follow a piece of source show what that prints.
    """
    text = (ROOT / name).read_text(encoding="utf-8")
    text = re.sub(r"```python\n.*?\n```\n\n```text\n.*?\n```", "", text, flags=re.DOTALL)
    (block,) = re.findall(r"^```text\n(.*?)\n```$", text, re.DOTALL | re.MULTILINE)
    return masked(block)


def missing_from(printed: list[str], shown: list[str]) -> list[str]:
    """Return what `printed` lacks of the lines `shown`; "..." stands for lines left out.

    Lines with nothing left out between them must follow each other; all must stand in order.
    """
    passages: list[list[str]] = [[]]
    for line in shown:
        if line == LEFT_OUT:
            passages.append([])
        else:
            passages[-1].append(line)
    start = 0
    for passage in passages:
        places = [
            place
            for place in range(start, len(printed) - len(passage) + 1)
            if printed[place : place + len(passage)] == passage
        ]
        if not places:
            return passage
        start = places[0] + len(passage)
    return []


# Runs a script while the clock stands still: however long the search takes on a busy machine, no
# evaluation drops out of the last hour before it is asked for.
AT_ONE_MOMENT = """
import os, runpy, sys, time

moment = time.time()
time.time = lambda: moment
sys.argv = sys.argv[1:]
sys.path[0] = os.path.dirname(sys.argv[0])
runpy.run_path(sys.argv[0], run_name="__main__")
"""


@pytest.fixture(scope="module")
def printed() -> list[str]:
    """The lines that the demo prints as `make demo` runs it."""
    path = os.pathsep.join(entry for entry in sys.path if entry)
    with tempfile.TemporaryDirectory(prefix="demo-") as folder:
        done = subprocess.run(
            [sys.executable, "-c", AT_ONE_MOMENT, str(ROOT / "examples" / "search_demo.py")],
            env={**os.environ, "PYTHONPATH": path, "TMPDIR": folder},
            capture_output=True,
            encoding="utf-8",
            timeout=600,
        )
    assert done.returncode == 0, done.stderr
    return masked(done.stdout)


def test_the_text_about_the_example_shows_the_whole_output(printed: list[str]) -> None:
    assert shown_in("examples/README.md") == printed


def test_the_first_page_shows_passages_of_the_output(printed: list[str]) -> None:
    shown = shown_in("README.md")
    assert 8 <= len(shown) <= 15
    assert missing_from(printed, shown) == []


@pytest.mark.parametrize(
    ("shown", "missing"),
    [
        (["a", "b"], []),
        (["a", LEFT_OUT, "c"], []),
        ([LEFT_OUT, "c", "d", LEFT_OUT], []),
        (["a", "c"], ["a", "c"]),
        (["a", LEFT_OUT, "other"], ["other"]),
        (["c", LEFT_OUT, "b"], ["b"]),
        (["b", LEFT_OUT, "b"], ["b"]),
    ],
    ids=["beginning", "gap", "end", "hidden gap", "other line", "other order", "said twice"],
)
def test_only_lines_of_the_output_in_their_order_are_accepted(
    shown: list[str], missing: list[str]
) -> None:
    assert missing_from(["a", "b", "c", "d"], shown) == missing


def test_only_the_seconds_of_the_search_are_masked() -> None:
    line = "Database: SQLite; searched and recorded in {} s."
    assert masked(line.format("19.9")) == masked(line.format("7.2"))
    assert masked("Yield: 10.9% in all") == ["Yield: 10.9% in all"]
