"""The rules that keep the C++ sources safe and layered, checked on their text."""

from __future__ import annotations

import re
from dataclasses import dataclass
from functools import cache
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2] / "search_analytics"
FILES = sorted(
    path.relative_to(ROOT).as_posix() for path in ROOT.rglob("*") if path.suffix in {".cpp", ".h"}
)
MAX_LINES = 400

# What the files of a folder may include, besides their own folder.
LOWER_LAYERS = {
    "host": set(),
    "environment": {"host"},
    "engine": {"host"},
    "analytics": {"host", "environment", "engine"},
    "module": {"host", "environment", "engine", "analytics"},
}

_NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:[^"\\\n]|\\.)*"|\'(?:[^\'\\\n]|\\.)*\'', re.DOTALL)


def code_of(text: str) -> str:
    """`text` without comments, and with empty string and character literals."""
    return _NOT_CODE.sub(lambda match: match[0][0] * 2 if match[0][0] in "\"'" else " ", text)


@cache
def text_of(name: str) -> str:
    """The text of a source file, by its path below `search_analytics/`."""
    return (ROOT / name).read_text()


@dataclass(frozen=True)
class Rule:
    """Something that only the files in `allowed` (regular expression) may say, and why."""

    name: str
    pattern: str
    example: str
    why: str
    allowed: str = "(?!)"

    def broken_in(self, text: str) -> list[str]:
        """Return the passages of `text` that break the rule."""
        return [match[0] for match in re.finditer(self.pattern, code_of(text))]


RULES = [
    Rule(
        "walking a dictionary in place",
        r"\bPyDict_Next\b",
        "while (PyDict_Next(d, &position, &key, &value)) {",
        "any call in between may change the dictionary",
    ),
    Rule(
        "borrowing from a list or a sequence",
        r"\bPyList_(GET_ITEM|GetItem)\b|\bPySequence_Fast\w*",
        "PyObject* item = PyList_GET_ITEM(list, 0);",
        "the list may drop the item while it is in use",
        allowed=r"host/.*",
    ),
    Rule(
        "a look-up that swallows errors",
        r"\bPyDict_GetItem(String)?\b|\bPyObject_HasAttr(String)?\b|\bPyMapping_HasKey\w*",
        "if (PyObject_HasAttr(object, name)) {",
        "only a missing attribute means absent; other errors belong to the caller",
    ),
    Rule(
        "borrowing from a dictionary",
        r"\bPyDict_GetItem\w+",
        "PyDict_GetItemWithError(dict, key)",
        "the dictionary may drop the value while it is in use",
        allowed=r"host/.*",
    ),
    Rule(
        "dropping an error",
        r"\bPyErr_Clear\b",
        "PyErr_Clear();",
        "what is tolerated goes through forget_error()",
        allowed=r"host/error\.cpp",
    ),
    Rule(
        "counting references by hand",
        r"\bPy_X?(INC|DEC)REF\b",
        "Py_XDECREF(object);",
        "Ref owns",
        allowed=r"host/(ref|compat)\.h",
    ),
    Rule(
        "making references outside the host layer",
        r"\bPy_(NewRef|XNewRef|CLEAR|SETREF|XSETREF|RETURN_\w+)\b",
        "return Py_NewRef(object);",
        "Ref owns",
        allowed=r"host/.*|module/search_analytics\.cpp",
    ),
    Rule(
        "sorting with the C++ library",
        r"\bstd::(ranges::)?(stable_sort|sort|partial_sort|nth_element|sort_heap)\b",
        "std::ranges::sort(rows);",
        "NaN breaks its contract; values of records are sorted by the interpreter's list",
        # Sorts positions of its own by exact strings, and rows by floats that are no NaN: these
        # have one order.
        allowed=r"engine/(pair_table|row_order)\.cpp",
    ),
    Rule(
        "objects in static storage",
        r"\bstatic\s+(PyObject\s*\*|(host::)?Ref\s)\s*\w+\s*[=;{]|\bthread_local\b",
        "static PyObject* cache = nullptr;",
        "state belongs to one module object",
    ),
    Rule(
        "the interpreter's header",
        r"#\s*include\s*<(Python|structmember)\.h>",
        "#include <Python.h>",
        "everything else includes host/python.h",
        allowed=r"host/(python|compat)\.h",
    ),
    Rule(
        "a macro",
        r"#\s*define\b",
        "#define TWICE(x) x x",
        "only the list of names and the differences of versions need any",
        allowed=r"host/(names\.(h|cpp)|compat\.h|python\.h)",
    ),
    Rule(
        "catching everything",
        r"catch\s*\(\s*\.\.\.\s*\)",
        "} catch (...) {",
        "the boundary knows the two exceptions that there are; a generator passes them on",
        allowed=r"host/(error\.h|generator\.cpp)",
    ),
    Rule("a jump", r"\bgoto\b", "goto failed;", "owners clean up by themselves"),
    Rule(
        "raw memory",
        r"\b(malloc|free|PyMem_\w+)\s*\(|\bnew\b(?![_>])|\bdelete\b(?!\s*;|\s*,)",
        "int* numbers = new int[3];",
        "containers own memory",
    ),
    Rule(
        "a setting of the whole process",
        r"\bPyGC_(Disable|Enable)\b|\bPyEval_(SetTrace|SetProfile)\b|\bsetlocale\b",
        "PyGC_Disable();",
        "it is the caller's",
    ),
]


@pytest.mark.parametrize("rule", RULES, ids=lambda rule: rule.name)
def test_rule_recognises_what_it_forbids(rule: Rule) -> None:
    assert rule.broken_in(rule.example)
    assert not rule.broken_in(f"// {rule.example}")


@pytest.mark.parametrize("rule", RULES, ids=lambda rule: rule.name)
def test_sources_keep_the_rule(rule: Rule) -> None:
    broken = {
        name: passages
        for name in FILES
        if not re.fullmatch(rule.allowed, name) and (passages := rule.broken_in(text_of(name)))
    }
    assert not broken, rule.why


def test_literals_and_comments_are_not_code() -> None:
    text = 'f("goto \\" // x", \'"\'); // goto\n/* goto\n */ g();'
    assert code_of(text).split() == ['f("",', "'');", "g();"]


def test_there_are_sources() -> None:
    assert len(FILES) > 20
    assert {name.split("/")[0] for name in FILES} == set(LOWER_LAYERS)


def includes(name: str) -> list[str]:
    """Return what a source file includes of our own, in order."""
    return re.findall(r'^#include "([^"]+)"', text_of(name), re.MULTILINE)


def header_of(name: str) -> str:
    """Return the path of the header that belongs to a source file."""
    return Path(name).with_suffix(".h").as_posix()


def test_includes_name_files_below_the_source_folder() -> None:
    unknown = {name: set(includes(name)) - set(FILES) for name in FILES}
    assert {name: paths for name, paths in unknown.items() if paths} == {}


def test_lower_layers_do_not_include_upper_ones() -> None:
    def upper(name: str) -> list[str]:
        layer = name.split("/")[0]
        permitted = LOWER_LAYERS[layer] | {layer}
        return [path for path in includes(name) if path.split("/")[0] not in permitted]

    assert {name: paths for name in FILES if (paths := upper(name))} == {}


def test_operations_do_not_include_each_other() -> None:
    def others(name: str) -> list[str]:
        return [
            path
            for path in includes(name)
            if path.startswith("analytics/") and path != header_of(name)
        ]

    operations = [name for name in FILES if name.startswith("analytics/")]
    assert {name: paths for name in operations if (paths := others(name))} == {}


def test_headers_can_be_included_twice() -> None:
    headers = [name for name in FILES if name.endswith(".h")]
    assert [name for name in headers if text_of(name).count("\n#pragma once\n") != 1] == []


def test_sources_include_their_own_header_first() -> None:
    # So that each header is compiled at least once with nothing before it.
    sources = [name for name in FILES if name.endswith(".cpp") and header_of(name) in FILES]
    assert [name for name in sources if includes(name)[0] != header_of(name)] == []


def test_files_say_what_they_are_for() -> None:
    assert [name for name in FILES if not text_of(name).startswith("// ")] == []


def test_files_keep_to_one_subject() -> None:
    lengths = {name: text_of(name).count("\n") for name in FILES}
    assert {name: length for name, length in lengths.items() if length > MAX_LINES} == {}
