"""What CONTRIBUTING.md asks of the project, as far as a text can show it.

The rules of the C++ and those of the tests have files of their own. Each look at the texts has a
counter-example, which shows that it can fail.
"""

from __future__ import annotations

import ast
import re
from pathlib import PurePosixPath

import pytest
from support.texts import ROOT, paths, public_functions, sections, spans, text_of, tree_of

RULES = text_of("CONTRIBUTING.md")
MAKEFILE = text_of("Makefile")
TESTS = [name for name in paths("*.py") if name.startswith("tests/")]
SOURCES = [
    name for name in (*paths("*.h"), *paths("*.cpp")) if name.startswith("search_analytics/")
]
FOLDERS = {name.split("/")[1] for name in SOURCES}


def test_there_is_something_to_look_at() -> None:
    assert len(TESTS) > 50
    assert len(SOURCES) > 50
    assert len(FOLDERS) > 3


# What to have, and what to run.


def test_every_text_names_the_same_oldest_python() -> None:
    patterns = {
        "CONTRIBUTING.md": r"Python (3\.\d+) or later",
        "README.md": r"Python (3\.\d+) or later",
        "CHANGES.md": r"CPython (3\.\d+) and later",
        "CMakeLists.txt": r"find_package\(Python (3\.\d+)",
        "pyproject.toml": r'requires-python = ">=(3\.\d+)"',
        "tools/check_python.py": r"CPython (3\.\d+) or later",
    }
    found = {name: re.findall(pattern, text_of(name)) for name, pattern in patterns.items()}
    assert found == {name: ["3.10"] for name in patterns}
    settings = text_of("pyproject.toml")
    assert re.findall(r'^target-version = "(\w+)"', settings, re.MULTILINE) == ["py310"]
    assert re.findall(r'^python_version = "([\d.]+)"', settings, re.MULTILINE) == ["3.10"]


def unlisted_targets(makefile: str) -> set[str]:
    """Return the targets to call by name that `make help` does not list."""
    phony = set(" ".join(re.findall(r"^\.PHONY: (.*)$", makefile, re.MULTILINE)).split())
    return phony - set(re.findall(r"^([a-z]+):.*## \S", makefile, re.MULTILINE))


def test_make_help_lists_every_target() -> None:
    assert unlisted_targets(MAKEFILE) == set()


def test_a_target_without_a_description_is_noticed() -> None:
    makefile = ".PHONY: one\none: two ## does one\n.PHONY: two\ntwo:\n\techo\n"
    assert unlisted_targets(makefile) == {"two"}


def test_make_check_does_what_ci_does() -> None:
    assert "\ncheck: ## " in MAKEFILE
    assert re.search(r"^check:.*\n\t@\.ci/run$", MAKEFILE, re.MULTILINE)
    steps = re.findall(r"^ *step \w+ make (?:-j\d+ )?(\w+)", text_of(".ci/run"), re.MULTILINE)
    checks = ["test", "lint", "sanitize", "fuzz", "debug", "faults", "interpreters", "matrix"]
    assert steps == [*checks, "bench"]


# Where things go.


def paragraph(title: str) -> str:
    """Return the paragraph of the rules that begins with a title in bold."""
    return next(part for part in RULES.split("\n\n") if part.startswith(f"**{title}"))


def test_the_rooms_are_the_folders_of_the_sources() -> None:
    text = paragraph("Where things go")
    assert set(spans(text)) >= FOLDERS
    counts = ["none", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine", "ten"]
    assert re.findall(r"has (\w+) rooms", text) == [counts[len(FOLDERS)]]


# The model is one module, as what it is the model of; the stub describes that module.
LONG = {"tests/model/search_analytics_model.py", "stubs/search_analytics.pyi"}


def too_long(lengths: dict[str, int], limit: int) -> dict[str, int]:
    """Return the files with more lines than allowed."""
    return {name: length for name, length in lengths.items() if length > limit}


def test_files_have_no_more_lines_than_allowed() -> None:
    (limit,) = map(int, re.findall(r"at most (\d+) lines", RULES))
    names = [*SOURCES, *paths("*.py"), *paths("*.pyi")]
    lengths = {name: text_of(name).count("\n") for name in names}
    assert too_long(lengths, limit).keys() == LONG
    assert too_long({"a": limit, "b": limit + 1}, limit) == {"b": limit + 1}


# What holds.


def bare_promises(text: str) -> list[str]:
    """Return the promises of a text, but for the differences that it admits, without a test."""
    return [
        promise.splitlines()[0]
        for title, body in sections(text, 2).items()
        if not title.startswith("Known differences")
        for promise in re.findall(r"^- .*?(?=^- |^\n|^#|\Z)", body, re.MULTILINE | re.DOTALL)
        if not re.search(r"`tests/\w+/test_\w+\.py(::\w+)*`", promise)
    ]


def test_every_promise_names_its_test() -> None:
    assert bare_promises(text_of("docs/python-semantics.md")) == []


def test_a_promise_without_a_test_is_noticed() -> None:
    text = (
        "# All\n\n## One\n\n- Kept.\n  `tests/lint/test_texts.py`\n- Said\n  only.\n\n- Alone.\n"
        "\n## Known differences from others\n\n- Not promised.\n"
    )
    assert bare_promises(text) == ["- Said", "- Alone."]


# Tests mirror the sources.

# What belongs to no folder of the sources.
COMMON = {
    *("differential", "examples", "fuzz", "lint", "model", "packaging", "robustness", "support"),
}
# What concerns a folder as a whole, or a subject that several of its files share.
SHARED = {"era_candidates", "needed_names", "package", "replaceable", "replaceable_helpers"}


def strangers(tests: list[str], sources: list[str]) -> list[str]:
    """Return the tests that belong to no source: by their folder, or by the name of their file."""
    stems: dict[str, set[str]] = {}
    for name in sources:
        path = PurePosixPath(name)
        stems.setdefault(path.parts[1], set()).add(path.stem)
    found = []
    for name in tests:
        parts = PurePosixPath(name).parts
        if len(parts) == 2:
            continue
        subject = PurePosixPath(name).stem.removeprefix("test_")
        if parts[1] in COMMON or subject in SHARED:
            continue
        if not any(f"{subject}_".startswith(f"{stem}_") for stem in stems.get(parts[1], ())):
            found.append(name)
    return found


def test_tests_belong_to_a_source_of_their_folder() -> None:
    assert strangers(TESTS, SOURCES) == []


def test_folders_of_tests_are_those_of_the_sources_or_common() -> None:
    folders = {name.split("/")[1] for name in TESTS if name.count("/") > 1}
    assert folders - COMMON == FOLDERS
    assert folders >= COMMON


@pytest.mark.parametrize(
    ("name", "belongs"),
    [
        ("tests/conftest.py", True),
        ("tests/upper/test_one.py", True),
        ("tests/upper/test_one_calls.py", True),
        ("tests/robustness/test_anything.py", True),
        ("tests/upper/test_package.py", True),
        ("tests/upper/test_ones.py", False),
        ("tests/lower/test_one.py", False),
        ("tests/gone/test_one.py", False),
    ],
)
def test_a_test_of_nothing_is_noticed(name: str, belongs: bool) -> None:
    sources = ["search_analytics/upper/one.cpp", "search_analytics/lower/two.h"]
    assert strangers([name], sources) == ([] if belongs else [name])


def untested(tests: list[str], sources: list[str]) -> set[str]:
    """Return the questions, one for each source in `analytics/`, without a test of their name."""
    files = [PurePosixPath(name) for name in sources if "/analytics/" in name]
    questions = {file.stem for file in files if file.suffix == ".cpp"}
    return {name for name in questions if f"tests/analytics/test_{name}.py" not in tests}


def test_every_question_has_a_test_of_its_name() -> None:
    assert untested(TESTS, SOURCES) == set()
    assert untested(TESTS, ["search_analytics/analytics/no_such.cpp"]) == {"no_such"}


# Public behaviour.


def test_the_changes_begin_with_the_version_to_come() -> None:
    (version,) = re.findall(r'^version = "(.*)"', text_of("pyproject.toml"), re.MULTILINE)
    assert re.findall(r"^## (\S+)", text_of("CHANGES.md"), re.MULTILINE)[0] == version


def test_the_model_and_the_stub_have_the_same_public_functions() -> None:
    model = tree_of("tests/model/search_analytics_model.py").body
    functions = {node.name for node in model if isinstance(node, ast.FunctionDef)}
    assert {name for name in functions if not name.startswith("_")} == public_functions()
    assert (ROOT / "stubs" / "py.typed").is_file()
