"""The distribution: it changes nothing of the module, is light to import, and ships its schemas."""

from __future__ import annotations

import subprocess
import sys
import zipfile
from pathlib import Path

import pytest
from hatchling import build

ROOT = Path(__file__).parents[1]

# Prints what differs in the module and its classes after the import of the package.
UNCHANGED = """
import sys
sys.path[:0] = sys.argv[1:]
import kestrune.search_analytics as module
def look():
    found = {"module": dict(vars(module))}
    for name, value in vars(module).items():
        if isinstance(value, type) and value.__module__ == module.__name__:
            found[name] = dict(vars(value))
    return found
before = look()
import kestrune_search_report, kestrune_search_report.cli, kestrune_search_report.notebook
from kestrune_search_report import Snapshot, collect
from support.searches import records
collect(Snapshot.from_records(records(50)), min_sample_size=1)
after = look()
for owner in before:
    assert before[owner].keys() == after[owner].keys(), owner
    for name, value in before[owner].items():
        assert after[owner][name] is value, (owner, name)
assert len(before) > 12, before.keys()
print("unchanged")
"""

LIGHT = """
import sys
sys.path[:0] = sys.argv[1:]
import kestrune_search_report
heavy = {"scipy", "numpy", "narwhals", "pandas", "polars", "pyarrow", "optuna", "rich", "typer"}
print(sorted(heavy & set(sys.modules)))
"""


def run(program: str) -> str:
    done = subprocess.run(
        [sys.executable, "-c", program, *sys.path], capture_output=True, text=True, check=True
    )
    return done.stdout.strip()


def test_using_the_package_changes_nothing_of_the_module() -> None:
    assert run(UNCHANGED) == "unchanged"


def test_nothing_heavy_is_imported_with_the_package() -> None:
    assert run(LIGHT) == "[]"


def test_the_wheel_holds_the_package_and_nothing_of_kestrune(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(ROOT)
    with zipfile.ZipFile(tmp_path / build.build_wheel(str(tmp_path))) as wheel:
        names = wheel.namelist()
    own = {path.relative_to(ROOT / "src").as_posix() for path in (ROOT / "src").rglob("*.py")}
    assert own <= set(names)
    assert "kestrune_search_report/schemas/answer-1.json" in names
    assert "kestrune_search_report/py.typed" in names
    assert "kestrune_search_report/page/assets/page.css" in names
    assert "kestrune_search_report/page/assets/page.js" in names
    folders = {name.partition("/")[0] for name in names}
    assert {name for name in folders if not name.endswith(".dist-info")} == {
        "kestrune_search_report"
    }


def test_every_file_is_named_in_the_architecture() -> None:
    text = (ROOT / "ARCHITECTURE.md").read_text(encoding="utf-8")
    package = ROOT / "src" / "kestrune_search_report"
    names = {path.name for path in package.rglob("*.py")} - {"__init__.py", "__main__.py"}
    assert {name for name in names if f"`{name}`" not in text} == set()
