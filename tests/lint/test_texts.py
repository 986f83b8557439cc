"""What every text file of the project keeps to, whatever its language."""

from __future__ import annotations

import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = [
    ".ci",
    "benchmarks",
    "docs",
    "examples",
    "report",
    "requirements",
    "search_analytics",
    "stubs",
    "tests",
    "tools",
]
KINDS = {"", ".cpp", ".h", ".json", ".md", ".py", ".pyi", ".toml", ".txt", ".yml"}


def is_ours(path: Path) -> bool:
    """Whether `path` is a text file that we wrote."""
    return path.is_file() and path.suffix in KINDS and path.name not in {"LICENSE", "py.typed"}


FILES = sorted(
    path.relative_to(ROOT).as_posix()
    for path in [
        *ROOT.glob("*"),
        *(path for folder in FOLDERS for path in (ROOT / folder).rglob("*")),
    ]
    if is_ours(path) and not any(part.endswith(("cache", "cache__")) for part in path.parts)
)

# A text explains itself to whoever has the repository: it names no folder of somebody's machine,
# no ticket, and no document that does not ship with it. (Written so as not to match itself.)
ELSEWHERE = re.compile(
    r"/(?:hom[e]|roo[t]|wor[k]|User[s])/\w"
    r"|\.pyen[v]\b"
    r"|\bissu[e] #?\d"
    r"|\b[Pp]art[s]? \d+(?:\.\d+)?\b"
    r"|\b[Tt]he spe[c]\b|\bspec\.m[d]\b|\b[Ss]pecificatio[n]\b"
)


def text_of(name: str) -> str:
    """Return the text of a file, by its path in the repository."""
    return (ROOT / name).read_text(encoding="utf-8")


def test_texts_stand_on_their_own() -> None:
    named = {name: found for name in FILES if (found := ELSEWHERE.findall(text_of(name)))}
    assert named == {}


def shortcomings(name: str) -> list[str]:
    """Return what is untidy about the text of one file."""
    text = text_of(name)
    found = []
    if not text.endswith("\n") or text.endswith("\n\n"):
        found.append("must end with one line break")
    if "\r" in text or ("\t" in text and name != "Makefile"):
        found.append("holds tabs or carriage returns")
    if not name.endswith(".md") and re.search(r"[ \t]$", text, re.MULTILINE):
        found.append("has blanks at the end of a line")
    if name.endswith(".py") and not re.match(r'(#![^\n]+\n)?r?"""', text):
        found.append("does not say what it is for")
    return found


def test_texts_are_tidy() -> None:
    assert {name: found for name in FILES if (found := shortcomings(name))} == {}


def test_tests_are_no_package() -> None:
    # Test files are imported by path; a package would hide two files of one name.
    assert list((ROOT / "tests").rglob("__init__.py")) == []


def test_all_kinds_of_files_were_looked_at() -> None:
    assert {"Makefile", ".ci/run", "pyproject.toml", "stubs/search_analytics.pyi"} <= set(FILES)
