"""The wheel: what it holds, and that it imports beside the package that it extends."""

from __future__ import annotations

import re
import shutil
import subprocess
import sys
import sysconfig
import venv
import zipfile
from email.message import Message
from email.parser import Parser
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
EXTENSION = f"kestrune/search_analytics{sysconfig.get_config_var('EXT_SUFFIX')}"

# What another distribution brings: the package itself, with code of its own in it.
FOREIGN_PACKAGE = 'OWNER = "another distribution"\n'


def run(*command: str | Path) -> str:
    """Run a command to its end and return what it wrote; its errors fail the test."""
    outcome = subprocess.run(command, capture_output=True, text=True, timeout=600)
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    return outcome.stdout


@pytest.fixture(scope="module")
def wheel(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The wheel that `pip wheel .` builds."""
    folder = tmp_path_factory.mktemp("wheel")
    run(sys.executable, "-m", "pip", "wheel", "--no-deps", "--wheel-dir", folder, ROOT)
    (built,) = folder.glob("*.whl")
    return built


@pytest.fixture(scope="module")
def bare_python(wheel: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """An interpreter that has the wheel, a foreign `kestrune` package, and nothing else."""
    folder = tmp_path_factory.mktemp("bare")
    venv.create(folder, with_pip=False, symlinks=True)
    python = folder / "bin" / "python"
    site = Path(run(python, "-c", "import sysconfig; print(sysconfig.get_path('platlib'))").strip())
    (site / "kestrune").mkdir()
    (site / "kestrune" / "__init__.py").write_text(FOREIGN_PACKAGE)
    run(sys.executable, "-m", "pip", "--python", python, "install", "--no-index", wheel)
    return python


def names(wheel: Path) -> list[str]:
    """Return the files of the wheel but those of its `.dist-info` folder, sorted."""
    with zipfile.ZipFile(wheel) as archive:
        return sorted(name for name in archive.namelist() if ".dist-info/" not in name)


def metadata(wheel: Path, name: str) -> Message:
    """Return one of the wheel's own descriptions."""
    with zipfile.ZipFile(wheel) as archive:
        (path,) = [path for path in archive.namelist() if path.endswith(f".dist-info/{name}")]
        return Parser().parsestr(archive.read(path).decode())


def test_wheel_holds_the_extension_and_its_types_only(wheel: Path) -> None:
    assert names(wheel) == [
        "kestrune-stubs/py.typed",
        "kestrune-stubs/search_analytics.pyi",
        EXTENSION,
        "kestrune/search_analytics.pyi",
    ]


def test_wheel_carries_the_licence(wheel: Path) -> None:
    with zipfile.ZipFile(wheel) as archive:
        (path,) = [path for path in archive.namelist() if path.endswith("/LICENSE")]
        assert archive.read(path) == (ROOT / "LICENSE").read_bytes()


def test_stub_package_leaves_the_rest_of_the_package_alone(wheel: Path) -> None:
    stub = (ROOT / "stubs" / "search_analytics.pyi").read_bytes()
    with zipfile.ZipFile(wheel) as archive:
        assert archive.read("kestrune-stubs/py.typed") == b"partial\n"
        assert archive.read("kestrune-stubs/search_analytics.pyi") == stub
        assert archive.read("kestrune/search_analytics.pyi") == stub


def test_wheel_is_for_this_interpreter_only(wheel: Path) -> None:
    tag = f"cp{sys.version_info.major}{sys.version_info.minor}"
    (line,) = metadata(wheel, "WHEEL").get_all("Tag", [])
    assert line.startswith(f"{tag}-{tag}-")


def test_wheel_needs_nothing_but_the_interpreter(wheel: Path) -> None:
    description = metadata(wheel, "METADATA")
    assert description["Name"] == "kestrune-search-analytics"
    assert description["Requires-Python"] == ">=3.10"
    assert description.get_all("Requires-Dist") is None


def test_installed_wheel_imports_beside_a_foreign_package(bare_python: Path) -> None:
    source = "import kestrune, kestrune.search_analytics as s; print(kestrune.OWNER, s.__name__)"
    printed = run(bare_python, "-I", "-X", "dev", "-W", "error", "-c", source)
    assert printed == "another distribution kestrune.search_analytics\n"


def test_installing_the_wheel_leaves_the_foreign_package_alone(bare_python: Path) -> None:
    source = "import kestrune; print(kestrune.__file__)"
    (package,) = run(bare_python, "-I", "-c", source).splitlines()
    assert Path(package).read_text() == FOREIGN_PACKAGE


def test_installed_extension_shows_whole_signatures(bare_python: Path) -> None:
    source = (
        "import inspect\n"
        "from kestrune.search_analytics import get_search_stats\n"
        "print(inspect.signature(get_search_stats))"
    )
    printed = run(bare_python, "-I", "-c", source)
    assert printed.startswith("(era_id=None, eval_type=None, ")
    assert printed.endswith("min_sample_size=100, sort_ascending=False) -> 'SearchStatsResult'\n")


@pytest.mark.skipif(shutil.which("nm") is None, reason="needs nm, which comes with the compiler")
@pytest.mark.skipif(sys.platform != "linux", reason="asks nm for ELF symbols")
def test_extension_exports_its_entry_only(wheel: Path, tmp_path: Path) -> None:
    with zipfile.ZipFile(wheel) as archive:
        extension = archive.extract(EXTENSION, tmp_path)
    symbols = run("nm", "--dynamic", "--defined-only", extension).split("\n")
    assert [line.split()[-1] for line in symbols if line] == ["PyInit_search_analytics"]


@pytest.mark.skipif(shutil.which("readelf") is None, reason="needs readelf of the compiler")
@pytest.mark.skipif(sys.platform != "linux", reason="asks readelf for ELF dependencies")
def test_extension_needs_no_library_but_the_systems(wheel: Path, tmp_path: Path) -> None:
    with zipfile.ZipFile(wheel) as archive:
        extension = archive.extract(EXTENSION, tmp_path)
    needed = set(re.findall(r"\(NEEDED\).*\[(\S+?)\.so", run("readelf", "--dynamic", extension)))
    assert needed <= {"libc", "libgcc_s", "libm", "ld-linux-x86-64", "ld-linux-aarch64"}
