"""What the documents name exists: tests, files and folders, functions.

Each look at the documents has a counter-example beside it, which shows that it can fail.
"""

from __future__ import annotations

import ast
import re
from pathlib import Path, PurePosixPath

import pytest
from support.texts import (
    ROOT,
    broken,
    paths,
    public_functions,
    sections,
    spans,
    text_of,
    tree_of,
)

DOCUMENTS = paths("*.md")
SOURCES = "search_analytics"
ARCHITECTURE = text_of("docs/architecture.md")


def test_there_are_documents() -> None:
    assert {"README.md", "CONTRIBUTING.md", "docs/architecture.md"} <= set(DOCUMENTS)


# Tests: `tests/folder/test_file.py`, perhaps `::TestClass`, `::test_name`, `[id of a case]`.

TEST_NAME = re.compile(r"\b(tests/[\w/]+\.py)((?:::\w+)*)(?:\[([^\]`]+)\])?")


def definitions(name: str) -> set[str]:
    """Return the tests of a file and their classes, as pytest names them after the file."""
    found: set[str] = set()

    def visit(body: list[ast.stmt], prefix: str) -> None:
        for node in body:
            if isinstance(node, ast.FunctionDef) and node.name.startswith("test"):
                found.add(prefix + node.name)
            elif isinstance(node, ast.ClassDef) and node.name.startswith("Test"):
                found.add(prefix + node.name)
                visit(node.body, f"{prefix}{node.name}::")

    visit(tree_of(name).body, "::")
    return found


def case_ids(name: str) -> set[str]:
    """Return the texts of a file that can be the id of a case."""
    return {
        node.value
        for node in ast.walk(tree_of(name))
        if isinstance(node, ast.Constant) and isinstance(node.value, str)
    }


def unknown_tests(text: str, _: str = "") -> list[str]:
    """Return the tests that a text names and that are not defined."""
    return [
        match[0]
        for match in TEST_NAME.finditer(text)
        if not (ROOT / match[1]).is_file()
        or (match[2] and match[2] not in definitions(match[1]))
        or (match[3] and match[3] not in case_ids(match[1]))
    ]


def test_named_tests_are_defined() -> None:
    assert broken(unknown_tests, DOCUMENTS) == {}


def test_the_promises_name_hundreds_of_tests() -> None:
    assert len(TEST_NAME.findall(text_of("docs/python-semantics.md"))) > 300


@pytest.mark.parametrize(
    ("named", "known"),
    [
        ("tests/lint/test_claims.py", True),
        ("tests/lint/test_claims.py::test_named_tests_are_defined", True),
        ("tests/lint/test_claims.py::test_a_test_is_known_by_its_whole_name[file]", True),
        ("tests/analytics/test_search_stats.py::TestResult", True),
        ("tests/lint/test_claim.py::test_named_tests_are_defined", False),
        ("tests/lint/test_claims.py::test_named_tests_are", False),
        ("tests/lint/test_claims.py::TestClaims::test_named_tests_are_defined", False),
        ("tests/lint/test_claims.py::unknown_tests", False),
        ("tests/lint/test_claims.py::test_named_tests_are_defined[no such" + " case]", False),
    ],
    ids=[
        "file",
        "function",
        "case",
        "class",
        "no file",
        "cut name",
        "no class",
        "no test",
        "no case",
    ],
)
def test_a_test_is_known_by_its_whole_name(named: str, known: bool) -> None:
    assert unknown_tests(f"- So it is.\n  `{named}`\n") == ([] if known else [named])


# Files of the sources: sections `### folder/` with a table whose first column holds `name` for
# whichever of name.h and name.cpp there are, or a whole file name.


def tables(text: str) -> dict[str, set[str]]:
    """Return what the first column of each folder's table names."""
    found = {}
    for title, body in sections(text, 3).items():
        folder = re.match(r"`?(\w[\w/]*)/", title)
        if folder is not None:
            cells = re.findall(r"^\|([^|]*)\|", body, re.MULTILINE)
            found[folder[1]] = set(re.findall(r"`([^`]+)`", "".join(cells)))
    return found


def stem(name: str) -> str:
    """Return the name of a file without its suffix."""
    return PurePosixPath(name).stem


def folders_and_files() -> dict[str, set[str]]:
    """Return the files of every folder of the sources."""
    found: dict[str, set[str]] = {}
    for name in (*paths("*.h"), *paths("*.cpp")):
        path = PurePosixPath(name)
        if path.parts[0] == SOURCES:
            folder = path.parent.relative_to(SOURCES).as_posix()
            found.setdefault(folder, set()).add(path.name)
    return found


def differences(named: dict[str, set[str]], there: dict[str, set[str]]) -> list[str]:
    """Return what is named and not there, and what is there and not named.

    A header stands for its source, and a source for its header.
    """
    found = []
    for folder in sorted({*named, *there}):
        names, files = named.get(folder, set()), there.get(folder, set())
        known = {stem(name) for name in names}
        gone = names - files - {stem(file) for file in files}
        found += [f"{folder}/{name} is named, but not there" for name in sorted(gone)]
        new = {file for file in files if stem(file) not in known}
        found += [f"{folder}/{file} is there, but not named" for file in sorted(new)]
    return found


def test_the_tables_name_every_source_file() -> None:
    assert differences(tables(ARCHITECTURE), folders_and_files()) == []


def test_a_renamed_or_added_source_file_is_noticed() -> None:
    text = """
### upper/

| file | what for |
|---|---|
| `one`, `two.h` | the `other` |

### lower/ and below

| file | what for |
|---|---|
| `three` | more |

## Else

| `nothing` | |
"""
    there = {"upper": {"one.h", "one.cpp", "two.h"}, "lower": {"three.cpp"}}
    assert differences(tables(text), there) == []
    there = {"upper": {"one.h", "two.cpp", "four.h"}, "lowest": {"three.cpp"}}
    assert differences(tables(text), there) == [
        "lower/three is named, but not there",
        "lowest/three.cpp is there, but not named",
        "upper/two.h is named, but not there",
        "upper/four.h is there, but not named",
    ]


# Other files and folders, named between backticks.

KINDS = {".cpp", ".h", ".json", ".md", ".py", ".pyi", ".svg", ".toml"}
# What belongs to somebody else, or is made by a tool.
FOREIGN = re.compile(r"kestrune/__init__\.py|\.?(build|dist|venv)/.*")


def unknown_paths(text: str, name: str) -> list[str]:
    """Return the files and folders that a text names and that are not there.

    They may be named from the repository's root, from the sources' folder, or from the text's own;
    a file also by its bare name.
    """
    own = (ROOT / name).parent
    unknown = []
    for span in spans(text):
        path = span.partition("::")[0]
        if not re.fullmatch(r"[\w.][\w.-]*(/[\w.-]+)*/?", path) or FOREIGN.fullmatch(path):
            continue
        bare = "/" not in path
        if not path.endswith("/") and Path(path).suffix not in KINDS:
            continue
        if not Path(path).stem or (path.startswith(".") and bare):
            continue
        known = any((place / path).exists() for place in (ROOT, ROOT / SOURCES, own))
        if not known and not (bare and paths(path)):
            unknown.append(span)
    return unknown


def test_named_files_and_folders_are_there() -> None:
    assert broken(unknown_paths, DOCUMENTS) == {}


def test_the_picture_of_the_rooms_shows_the_folders() -> None:
    drawn = re.findall(r"^    (\w+)/", sections(ARCHITECTURE, 2)["Rooms"], re.MULTILINE)
    assert sorted(drawn) == sorted(folders_and_files())


@pytest.mark.parametrize(
    ("named", "known"),
    [
        ("tests/lint/", True),
        ("tests/lint/test_claims.py", True),
        ("python-semantics.md", True),
        ("test_claims.py", True),
        ("vars/list", True),
        ("types.FunctionType", True),
        ("tests/lint/test_claim.py", False),
        ("no_such_folder/", False),
        ("no_such_file.h", False),
        ("lint/test_claims.py", False),
    ],
    ids=[
        "folder",
        "file",
        "neighbour",
        "bare",
        "no suffix",
        "class",
        "no file",
        "no folder",
        "no bare",
        "not root",
    ],
)
def test_a_path_is_known_by_its_whole_name(named: str, known: bool) -> None:
    text = f"See `{named}`.\n\n```text\n`made_up.py`\n```\n"
    assert unknown_paths(text, "docs/text.md") == ([] if known else [named])


# Functions.


def unnamed_functions(text: str, _: str = "") -> list[str]:
    """Return the public functions that a text does not name."""
    return sorted(public_functions() - set(spans(text)))


@pytest.mark.parametrize("name", ["README.md", "CHANGES.md", "examples/README.md"])
def test_every_public_function_is_named(name: str) -> None:
    assert unnamed_functions(text_of(name)) == []


def test_a_function_that_is_not_named_is_noticed() -> None:
    text = text_of("CHANGES.md").replace("`get_suggestions`", "suggestions")
    assert unnamed_functions(text) == ["get_suggestions"]


def test_there_are_nine_questions_and_eleven_filters() -> None:
    assert len(public_functions()) == 9
    shared = [
        {argument.arg for argument in (*node.args.args, *node.args.kwonlyargs)}
        for node in tree_of("stubs/search_analytics.pyi").body
        if isinstance(node, ast.FunctionDef)
        and node.name in public_functions()
        and not node.name.startswith("get_available_")
    ]
    assert len(set.intersection(*shared)) == 11
