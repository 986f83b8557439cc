"""What the figures were taken on."""

import gzip
import hashlib
import os
import platform
import re
import shlex
import sys
import sysconfig
from datetime import datetime, timezone
from importlib.metadata import PackageNotFoundError, version
from pathlib import Path

import compiling
import contestants
import paths

# Sizes of memory in MiB: what a few thousand records take, and what a million does.
_SIZES = (0.25, 2, 16, 256)
_USUAL_LAST_CACHE = 64 * 2**20
_PACKAGES = (
    *("Cython", "pandas", "polars", "duckdb", "pyarrow", "numpy", "psycopg", "attrs", "pydantic"),
)
_TELLING_OPTIONS = (
    r"--(enable-optimizations|with-lto|enable-bolt|enable-experimental-jit|with-tail-call-interp"
    r"|with-computed-gotos|enable-shared|with-pydebug|disable-gil|with-assertions)"
)
_TELLING_FLAGS = r"-(O|flto|fprofile-use|fno-semantic-interposition|m(arch|tune)=)"


def machine() -> list[tuple[str, str]]:
    """Return the machine and what compiled the extension, as pairs of what and which."""
    return [
        ("Processor", f"{_processor()}, {os.cpu_count()} cores seen"),
        ("Caches", _caches()),
        ("Memory", _memory()),
        *_lines(),
        ("System", f"{platform.system()} {platform.release()}, {platform.machine()}"),
    ]


def interpreter() -> list[tuple[str, str]]:
    """Return how the interpreter was built, and what it was used with, when the run begins."""
    return [
        ("CPython", platform.python_version()),
        ("from", f"Debian's {package}" if (package := _package()) else "built by hand"),
        ("configured", _options()),
        ("compiled", f"{platform.python_compiler()}, {_flags()}"),
        ("extension compiled", compiling.compiler_version()),
        ("libraries", ", ".join(f"{name} {_version(name)}" for name in _PACKAGES)),
        ("date", datetime.now(timezone.utc).strftime("%Y-%m-%d %H:%M UTC")),
        ("load when it began", f"{os.getloadavg()[0]:.2f}"),
    ]


def sources() -> str:
    """Return a digest of what the extension is built from and of what it is compared with."""
    digest = hashlib.sha256()
    folder = paths.ROOT / "search_analytics"
    for file in sorted([*folder.rglob("*.cpp"), *folder.rglob("*.h"), paths.MODEL]):
        digest.update(file.read_bytes())
    return digest.hexdigest()[:12]


def _processor() -> str:
    try:
        lines = Path("/proc/cpuinfo").read_text().splitlines()
    except OSError:
        return platform.processor() or platform.machine()
    names = [line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")]
    return names[0] if names else platform.machine()


def _caches() -> str:
    return ", ".join(f"L{level} {size}" for level, size in _data_caches()) or "unknown"


def last_cache() -> int:
    """The size of the last cache in bytes; a guess where the system does not tell."""
    sizes = [size for _, size in _data_caches() if size.endswith("K")]
    return int(sizes[-1].removesuffix("K")) * 1024 if sizes else _USUAL_LAST_CACHE


def _data_caches() -> list[tuple[str, str]]:
    """Return the level and the size of each cache, the last one last."""
    found = []
    for folder in sorted(Path("/sys/devices/system/cpu/cpu0/cache").glob("index*")):
        level, size, kind = (
            (folder / name).read_text().strip() for name in ("level", "size", "type")
        )
        if kind != "Instruction":
            found.append((level, size))
    return found


def _lines() -> list[tuple[str, str]]:
    """What reading a line of memory costs, where the whole of it has some size."""
    probe = contestants.floor().memory
    measured = [(size, probe(int(size * 2**20))) for size in _SIZES]
    return [
        (name, ", ".join(f"{times[i]:.0f} ns in {size:g} MiB" for size, times in measured))
        for i, name in enumerate(("A line, one by one", "A line, read ahead"))
    ]


def _memory() -> str:
    size = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    return f"{size / 2**30:.0f} GiB"


def _package() -> str | None:
    """Return the version of Debian's package that the interpreter is from, or None."""
    program = Path(getattr(sys, "_base_executable", None) or sys.executable).resolve()
    history = program.parents[1] / "share" / "doc" / program.name / "changelog.Debian.gz"
    try:
        with gzip.open(history, "rt", encoding="utf-8") as lines:
            return next(lines).partition(";")[0]
    except (OSError, StopIteration):
        return None


def _options() -> str:
    """The options of the interpreter's configuration that make it quicker or slower."""
    options = shlex.split(sysconfig.get_config_var("CONFIG_ARGS") or "")
    telling = [option for option in options if re.match(_TELLING_OPTIONS, option)]
    if not any(re.match("--(enable-optimizations|with-lto)", option) for option in telling):
        hidden = "what Debian's rules add is not told"
        telling.append(f"({hidden if _package() else 'neither PGO nor LTO'})")
    return " ".join(telling)


def _flags() -> str:
    """The flags of the interpreter's compiler that make it quicker or slower."""
    flags = (sysconfig.get_config_var("PY_CFLAGS") or "").split()
    flags += (sysconfig.get_config_var("PY_CFLAGS_NODIST") or "").split()
    return " ".join(dict.fromkeys(flag for flag in flags if re.match(_TELLING_FLAGS, flag)))


def _version(package: str) -> str:
    try:
        return version(package)
    except PackageNotFoundError:
        return "(none)"
