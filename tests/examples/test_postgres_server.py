"""The throw-away server starts without rights, and leaves nothing behind."""

from __future__ import annotations

import os
import signal
import stat
import time
from pathlib import Path
from traceback import walk_stack
from types import FrameType
from typing import Any

import pytest


def ended(pid: int) -> bool:
    """Whether no process of this id is there any more."""
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return True
    return False


@pytest.mark.usefixtures("programs")
@pytest.mark.parametrize("failure", [None, KeyboardInterrupt], ids=["done", "interrupted"])
def test_the_server_ends_with_its_block(demo: Any, failure: type[BaseException] | None) -> None:
    import psycopg
    from demo.postgres_server import PostgresServer

    server = PostgresServer()
    try:
        with server:
            pid, folder = server.pid, server._folder
            # A client that never goes away does not keep it from ending.
            forgotten = psycopg.connect(server.url)
            assert forgotten.execute("SELECT 1").fetchone() == (1,)
            assert stat.S_IMODE(os.stat(folder).st_mode) == 0o700
            if failure:
                raise failure
    except KeyboardInterrupt:
        assert failure
    forgotten.close()
    assert ended(pid)
    assert not folder.exists()
    assert server.pid is None


def test_the_server_listens_on_no_network(server: Any) -> None:
    import psycopg

    with psycopg.connect(server.url) as connection:
        assert connection.execute("SHOW listen_addresses").fetchone() == ("",)


def test_without_programs_there_is_a_plain_error(
    demo: Any, monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    from demo import postgres_server

    monkeypatch.setattr(postgres_server, "_program_folders", list)
    monkeypatch.setattr(postgres_server.tempfile, "tempdir", str(tmp_path))
    with (
        pytest.raises(postgres_server.PostgresServerError, match="No PostgreSQL programs"),
        postgres_server.PostgresServer(),
    ):
        pass
    assert list(tmp_path.iterdir()) == []


@pytest.mark.usefixtures("programs")
def test_a_server_that_fails_to_start_shows_its_log(
    demo: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    from demo import postgres_server

    monkeypatch.setitem(postgres_server._OPTIONS, "shared_buffers", "nonsense")
    server = postgres_server.PostgresServer()
    with pytest.raises(postgres_server.PostgresServerError, match="shared_buffers"), server:
        pass
    assert server.pid is None
    assert server._folder is None


def test_an_interrupted_program_takes_its_children_along(demo: Any, tmp_path: Path) -> None:
    from demo import postgres_server

    written = tmp_path / "written"

    def interrupt(_: int, frame: FrameType | None) -> None:
        waits = any(each.f_code.co_name == "communicate" for each, _ in walk_stack(frame))
        if waits and written.exists():
            signal.setitimer(signal.ITIMER_REAL, 0.0)  # once: not while children are being ended
            raise KeyboardInterrupt

    script = f"(while :; do echo more >> {written}; sleep 0.01; done) & wait"
    before = signal.signal(signal.SIGALRM, interrupt)
    signal.setitimer(signal.ITIMER_REAL, 0.05, 0.05)
    try:
        with pytest.raises(KeyboardInterrupt):
            postgres_server._run(["sh", "-c", script], {})
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0.0)
        signal.signal(signal.SIGALRM, before)
    time.sleep(0.1)
    size = written.stat().st_size
    time.sleep(0.3)
    assert written.stat().st_size == size


def test_programs_in_a_private_folder_are_copied(demo: Any, tmp_path: Path) -> None:
    from demo import postgres_server

    site = tmp_path / "site"
    programs = site / postgres_server.PACKAGE / "pginstall" / "bin"
    programs.mkdir(parents=True)
    (programs / "postgres").write_text("#!/bin/sh\n")
    libraries = site / f"{postgres_server.PACKAGE}.libs"
    libraries.mkdir()
    (libraries / "lib.so").write_text("")
    copied = postgres_server._copy_package(programs, tmp_path / "copy")
    assert copied == tmp_path / "copy" / postgres_server.PACKAGE / "pginstall" / "bin"
    assert (copied / "postgres").is_file()
    assert (tmp_path / "copy" / libraries.name / "lib.so").is_file()
