"""What the figures were taken on."""

import os
import platform
import sysconfig
from datetime import datetime, timezone
from importlib.metadata import PackageNotFoundError, version
from pathlib import Path

import compiling
import contestants

# Sizes of memory in MiB: what a few thousand records take, and what a million does.
_SIZES = (0.25, 2, 16, 256)
_PACKAGES = ("Cython", "pandas", "polars", "duckdb", "pyarrow", "numpy", "psycopg")


def facts(started_load: float) -> list[tuple[str, str]]:
    """Return the machine, the compilers and the versions, as pairs of what and which.

    `started_load` is the load average when the run began.
    """
    return [
        ("Date", datetime.now(timezone.utc).strftime("%Y-%m-%d %H:%M UTC")),
        ("Processor", f"{_processor()}, {os.cpu_count()} cores seen"),
        ("Caches", _caches()),
        ("Memory", _memory()),
        *_lines(),
        ("Load when the run began", f"{started_load:.2f}"),
        ("System", f"{platform.system()} {platform.release()}, {platform.machine()}"),
        (
            "Python",
            f"{platform.python_implementation()} {platform.python_version()}, "
            f"built with {platform.python_compiler()}, {_optimisation()}",
        ),
        ("C++ compiler", compiling.compiler_version()),
        ("Libraries", ", ".join(f"{name} {_version(name)}" for name in _PACKAGES)),
    ]


def load() -> float:
    """The system's load average over the last minute."""
    return os.getloadavg()[0]


def extension_size() -> int:
    """The size of the extension's file in bytes."""
    return os.path.getsize(contestants.extension().__spec__.origin)


def _processor() -> str:
    try:
        lines = Path("/proc/cpuinfo").read_text().splitlines()
    except OSError:
        return platform.processor() or platform.machine()
    names = [line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")]
    return names[0] if names else platform.machine()


def _caches() -> str:
    found = []
    for folder in sorted(Path("/sys/devices/system/cpu/cpu0/cache").glob("index*")):
        kind = (folder / "type").read_text().strip()
        if kind != "Instruction":
            level, size = ((folder / name).read_text().strip() for name in ("level", "size"))
            found.append(f"L{level} {size}")
    return ", ".join(found) or "unknown"


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


def _optimisation() -> str:
    options = sysconfig.get_config_var("CONFIG_ARGS") or ""
    parts = [name for name in ("--enable-optimizations", "--with-lto") if name in options]
    return f"configured {' '.join(parts)}" if parts else "configured without optimisation options"


def _version(package: str) -> str:
    try:
        return version(package)
    except PackageNotFoundError:
        return "(none)"
