"""Reading the project's own texts and sources, for the tests that compare the two."""

from __future__ import annotations

import ast
import os
import re
from collections.abc import Callable, Iterable
from fnmatch import fnmatchcase
from functools import cache
from pathlib import Path, PurePosixPath

ROOT = Path(__file__).resolve().parents[2]

_MADE = {"build", "dist", "__pycache__"}
_FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


@cache
def files() -> tuple[str, ...]:
    """Return the project's own files, none that a tool made, by their paths in the repository."""
    found = []
    for folder, folders, names in os.walk(ROOT):
        here = Path(folder).relative_to(ROOT)
        folders[:] = [
            name
            for name in folders
            if (name == ".ci" or not name.startswith(".")) and name not in _MADE
        ]
        found += [(here / name).as_posix() for name in names]
    return tuple(sorted(found))


def paths(pattern: str) -> tuple[str, ...]:
    """Return the project's own files whose names match `pattern`."""
    return tuple(name for name in files() if fnmatchcase(PurePosixPath(name).name, pattern))


@cache
def text_of(name: str) -> str:
    """Return the text of a file, by its path in the repository."""
    return (ROOT / name).read_text(encoding="utf-8")


@cache
def tree_of(name: str) -> ast.Module:
    """Return the syntax tree of a Python file, by its path in the repository."""
    return ast.parse(text_of(name), filename=name)


def prose(text: str) -> str:
    """Return a text in Markdown without its blocks of code."""
    return _FENCE.sub("", text)


def blocks(text: str, language: str) -> list[str]:
    """Return the blocks of code in one language that a text in Markdown shows."""
    return [body for found, body in _FENCE.findall(text) if found == language]


def spans(text: str) -> list[str]:
    """Return what stands between backticks in a text, a line break inside being a blank."""
    return [" ".join(span.split()) for span in re.findall(r"`([^`]+)`", prose(text))]


def sections(text: str, depth: int) -> dict[str, str]:
    """Return what stands under each heading of a depth, up to the next one as high, by title."""
    marks = "#" * depth
    found = re.findall(
        rf"^{marks} (.+?)\n(.*?)(?=^#{{1,{depth}}} |\Z)", text, re.MULTILINE | re.DOTALL
    )
    return dict(found)


def public_functions() -> set[str]:
    """Return the names of the module's public functions, as its typed description has them."""
    return {
        node.name
        for node in tree_of("stubs/search_analytics.pyi").body
        if isinstance(node, ast.FunctionDef) and not node.name.startswith("_")
    }


def broken(check: Callable[[str, str], list[str]], names: Iterable[str]) -> dict[str, list[str]]:
    """Return what `check(text, name)` finds wrong in the texts of these names, by name."""
    return {name: found for name in names if (found := check(text_of(name), name))}
