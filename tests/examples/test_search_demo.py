"""The demo as a user runs it."""

from __future__ import annotations

import contextlib
import os
import re
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path

import pytest

SCRIPT = Path(__file__).parents[2] / "examples" / "search_demo.py"


def command(*arguments: str) -> list[str]:
    """Return the command line of the demo, in dev mode with warnings as errors."""
    return [sys.executable, "-X", "dev", "-W", "error", str(SCRIPT), *arguments]


def environment(folder: Path) -> dict[str, str]:
    """Return an environment in which temporary files lie in `folder`.

    The extension is found where this process found it.
    """
    path = os.pathsep.join(entry for entry in sys.path if entry)
    return {**os.environ, "PYTHONPATH": path, "TMPDIR": str(folder)}


@pytest.fixture
def scratch() -> Iterator[Path]:
    """A folder for temporary files that any account may enter, and with a short name."""
    with tempfile.TemporaryDirectory(prefix="demo-") as folder:
        os.chmod(folder, 0o711)
        yield Path(folder)


def run(scratch: Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        command(*arguments),
        env=environment(scratch),
        capture_output=True,
        encoding="utf-8",
        timeout=300,
    )


@pytest.mark.usefixtures("programs")
def test_both_databases_print_the_same_answers(scratch: Path) -> None:
    outputs = {}
    for database in ("sqlite", "postgres"):
        done = run(scratch, "--evaluations", "400", "--seed", "5", "--database", database)
        assert done.returncode == 0, done.stderr
        assert done.stderr == ""
        assert list(scratch.iterdir()) == []
        outputs[database] = done.stdout.splitlines()
    different = [
        (ours, theirs)
        for ours, theirs in zip(outputs["sqlite"], outputs["postgres"], strict=True)
        if ours != theirs
    ]
    assert [ours[:17] for ours, _ in different] == ["Database: SQLite,"]


def test_a_pipe_gets_plain_text_with_every_answer(scratch: Path) -> None:
    done = run(scratch, "--evaluations", "300")
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert "\x1b" not in done.stdout
    assert max(map(len, lines)) <= 100
    assert len(lines) < 150
    sections = [line[0] for line in lines if re.match(r"\d\. ", line)]
    assert sections == list("12345678")
    assert lines[-1].startswith("Done: evaluated 300 candidates, submitted ")
    assert "Warning" not in done.stdout


def test_a_database_is_kept_in_place_of_the_one_before(scratch: Path) -> None:
    kept = scratch / "some" / "where"
    for count in (60, 40):
        done = run(scratch, "--evaluations", str(count), "--keep", str(kept))
        assert done.returncode == 0, done.stderr
        assert f"SQLite, a file in {kept}; " in done.stdout
    (database,) = kept.iterdir()
    with contextlib.closing(sqlite3.connect(database)) as connection:
        assert connection.execute("SELECT count(*) FROM evaluations").fetchone() == (40,)


@pytest.mark.parametrize(
    ("arguments", "code", "text"),
    [
        (["--help"], 0, "usage: search_demo.py"),
        (["--evaluations", "0"], 2, "--evaluations must be at least 1"),
        (["--seed", "-1"], 2, "--seed must not be negative"),
        (["--database", "other"], 2, "invalid choice"),
        (["--database", "postgres", "--keep", "x"], 2, "--keep is for SQLite"),
    ],
    ids=["help", "no evaluations", "negative seed", "other database", "kept server"],
)
def test_the_command_line_explains_itself(
    scratch: Path, arguments: list[str], code: int, text: str
) -> None:
    done = run(scratch, *arguments)
    assert done.returncode == code
    assert text in done.stdout + done.stderr


def running_server(folder: Path) -> int | None:
    """Return the process id of the server that runs in `folder`, or None.

    The file that says it comes empty, and initdb has one of its own for a while, which it removes:
    that one names a process that is no server by a negative number.
    """
    for file in folder.glob("kestrune-pg-*/data/postmaster.pid"):
        with contextlib.suppress(FileNotFoundError):
            first = file.read_text().partition("\n")[0]
            if first.isdigit():
                return int(first)
    return None


@pytest.mark.usefixtures("programs")
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM], ids=["ctrl-c", "terminate"])
def test_an_ended_demo_leaves_no_server_and_no_files(scratch: Path, number: signal.Signals) -> None:
    def listen_to_ctrl_c() -> None:
        # A background job of a shell starts with Ctrl-C ignored.
        signal.signal(signal.SIGINT, signal.SIG_DFL)

    process = subprocess.Popen(
        command("--evaluations", "100000", "--database", "postgres"),
        env=environment(scratch),
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        preexec_fn=listen_to_ctrl_c,
    )
    try:
        deadline = time.monotonic() + 300.0
        while (server := running_server(scratch)) is None:
            assert process.poll() is None
            assert time.monotonic() < deadline
            time.sleep(0.05)
        time.sleep(1.0)
        process.send_signal(number)
        assert process.wait(300.0) != 0
    finally:
        process.kill()
        process.wait()
    assert list(scratch.iterdir()) == []
    with pytest.raises(ProcessLookupError):
        os.kill(server, 0)
