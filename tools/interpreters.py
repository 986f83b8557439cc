"""Get the CPythons that this machine lacks from Debian's unstable suite, into build/interpreters.

Nothing is installed and no rights are needed. apt, with lists and a state of its own, downloads the
packages from the archive that it is set up for; they are unpacked into a folder, and the
interpreters there are told where their libraries are. So they run like any other, and what is built
for them is built by this machine's compiler. `tools/find_pythons.py` finds them. Says which ones it
got, and why it could not get others, which is no error.
"""

from __future__ import annotations

import argparse
import shutil
import subprocess
import tempfile
from pathlib import Path

from find_pythons import INTERPRETERS, MINORS, usable

ROOT = INTERPRETERS.parents[1]
FOLDER = ROOT.parent
# What ROOT was made for, written last.
CONTENTS = FOLDER / "contents.txt"

SUITE = "sid"
KEYRING = Path("/usr/share/keyrings/debian-archive-keyring.gpg")
# Where the values of an interpreter's build variables begin that are places.
PLACES = ("/usr/include", "/usr/lib", "/usr/share/python-wheels")


class UnavailableError(Exception):
    """Why nothing can be had on this machine."""


def run(command: list[str | Path]) -> str:
    """Run a program and return its output; raise UnavailableError with what it says of an error."""
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        lines = (done.stderr or done.stdout).strip().splitlines() or ["it says nothing"]
        error = next((line for line in lines if line.startswith("E:")), lines[-1])
        raise UnavailableError(f"{Path(command[0]).name} failed: {error}")
    return done.stdout


def archive() -> str:
    """Return the address of the Debian archive that apt is set up for."""
    for program in ("apt-get", "apt-cache", "dpkg-deb"):
        if not shutil.which(program):
            raise UnavailableError(f"there is no {program}")
    main = ("Created-By: Packages", "Origin: Debian", "Label: Debian")
    lines = run(["apt-get", "indextargets", "--format", "$(REPO_URI)", *main])
    if not lines:
        raise UnavailableError("apt knows no archive of Debian's, or needs an `apt-get update`")
    return lines.splitlines()[0]


class Apt:
    """apt in a folder of its own: another suite, an empty machine."""

    def __init__(self, folder: Path) -> None:
        for name in ("parts", "lists/partial", "cache/archives/partial"):
            (folder / name).mkdir(parents=True)
        (folder / "status").touch()
        signed = f"[signed-by={KEYRING}] " if KEYRING.is_file() else ""
        (folder / "sources.list").write_text(f"deb {signed}{archive()} {SUITE} main\n")
        self.packages = folder / "cache" / "archives"
        settings = {
            "Dir::Etc::sourcelist": folder / "sources.list",
            "Dir::Etc::sourceparts": folder / "parts",
            "Dir::Etc::preferences": folder / "none",
            "Dir::Etc::preferencesparts": folder / "parts",
            "Dir::State": folder,
            "Dir::State::lists": folder / "lists",
            "Dir::State::status": folder / "status",
            "Dir::Cache": folder / "cache",
            "Acquire::Languages": "none",
            "APT::Sandbox::User": "root",
            "APT::Install-Recommends": "false",
            "APT::Update::Error-Mode": "any",
            "Acquire::http::Timeout": "30",
        }
        self.options = [f"-o{name}={value}" for name, value in settings.items()]

    def update(self) -> None:
        """Learn what the suite has."""
        run(["apt-get", *self.options, "--quiet", "update"])

    def has(self, package: str) -> bool:
        """Tell whether the suite has a package."""
        return package in run(["apt-cache", *self.options, "pkgnames", package]).splitlines()

    def download(self, packages: list[str]) -> list[Path]:
        """Download packages with all that they depend on; return their files."""
        run(["apt-get", *self.options, "--quiet", "--yes", "--download-only", "install", *packages])
        return sorted(self.packages.glob("*.deb"))


def relocate(root: Path, place: Path) -> None:
    """Let the interpreters that stand unpacked in `root` work once it has become `place`."""
    loader = next(root.glob("usr/lib*/ld-linux*.so.*")).resolve()
    moved_loader = place / loader.relative_to(root.resolve())
    patchelf = [loader, "--library-path", loader.parent, root / "usr/bin/patchelf"]
    for program in root.glob("usr/bin/python3.*"):
        if program.is_symlink() or program.read_bytes()[:4] != b"\x7fELF":
            continue
        # Both at once, or the other way round, gives a program that does not start.
        run([*patchelf, "--force-rpath", "--set-rpath", moved_loader.parent, program])
        run([*patchelf, "--set-interpreter", moved_loader, program])
    for variables in root.glob("usr/lib/python3.*/_sysconfigdata*.py"):
        text = variables.read_text()
        for name in PLACES:
            text = text.replace(f"'{name}", f"'{place}{name}")
        variables.write_text(text)
    # The header of that name asks the compiler for this one, below /usr/include.
    for header in root.glob("usr/include/*-linux-gnu*/python3.*/pyconfig.h"):
        wrapper = root / "usr/include" / header.parent.name / header.name
        wrapper.unlink()
        shutil.copy(header, wrapper)


def fetch(minors: list[int], debug: bool) -> None:
    """Put those of the CPythons that Debian has into ROOT, and nothing else."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=FOLDER) as name:
        work = Path(name)
        apt = Apt(work / "apt")
        apt.update()
        kinds = ("dev", "venv", "dbg") if debug else ("dev", "venv")
        had = [minor for minor in minors if apt.has(f"python3.{minor}-venv")]
        for minor in minors:
            if minor not in had:
                print(f"CPython 3.{minor}: Debian's {SUITE} does not have it")
        if had:
            wanted = [f"python3.{minor}-{kind}" for minor in had for kind in kinds]
            for package in apt.download([*wanted, "patchelf"]):
                run(["dpkg-deb", "--extract", package, work / "tree"])
            relocate(work / "tree", ROOT)
        CONTENTS.unlink(missing_ok=True)
        shutil.rmtree(ROOT, ignore_errors=True)
        if had:
            (work / "tree").rename(ROOT)


def is_foreign(minor: int) -> bool:
    """Tell whether the machine itself lacks CPython 3.`minor`."""
    found = usable(minor, say=False)
    return found is None or Path(found).is_relative_to(ROOT)


def main() -> None:
    """Get what is lacking, and tell what there is."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--debug", action="store_true", help="debug builds, too (python3.14d)")
    debug = parser.parse_args().debug
    minors = [minor for minor in MINORS if is_foreign(minor)]
    contents = " ".join([*(f"3.{minor}" for minor in minors), *(["debug"] if debug else [])])
    kept = CONTENTS.is_file() and set(contents.split()) <= set(CONTENTS.read_text().split())
    if not kept and minors:
        try:
            fetch(minors, debug)
            CONTENTS.write_text(contents + "\n")
        except UnavailableError as reason:
            print(f"No other CPythons from Debian's {SUITE}: {reason}")
    for minor in minors:
        found = usable(minor, say=False)
        print(f"CPython 3.{minor}: {found or 'left out'}")
    if not minors:
        print("This machine has all CPythons that the extension is tested with.")


if __name__ == "__main__":
    main()
