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

# The rooms from the bottom to the top, and what the files of each may include besides their own.
LOWER_ROOMS = {
    "python": set(),
    "layout": {"python"},
    "facade": {"python", "layout"},
    "records": {"python", "layout"},
    "tables": {"python", "layout"},
    "names": {"python"},
    "engine": {"python", "layout", "facade", "records", "tables", "names"},
    "environment": {"python", "facade", "names"},
    "analytics": {"python", "facade", "records", "tables", "names", "engine"},
    "module": {
        *("python", "layout", "facade", "records", "tables", "names"),
        *("engine", "environment", "analytics"),
    },
}

# The rooms that speak to the interpreter by its own functions; all others do so through python/.
# The two files of module/ are the entry, which is one of the interpreter's tables.
SPEAKS_C_API = r"(python|layout|facade|records)/.*|module/search_analytics\.cpp"

# Plain values and constants, which everybody may name.
VALUES = r"Py(?:_None|_True|_False|_ssize_t|_hash_t|_EQ|_LT|_LE|_GT|_GE|Object|Exc_\w+)"

# The fields of result records, by which a room would know of an answer what it is not to know.
RESULT_FIELDS = (
    *("avoid", "composite_score", "depth_distribution", "diminishing_returns"),
    *("evaluations_per_hour", "family_yield_rates", "filters_applied", "focus", "function_a"),
    *("function_b", "groups_shown", "lifetime_yield_rate", "lift", "not_useful_evaluations"),
    *("passed_cooccurrences", "passes_per_hour", "recent_yield_rate", "scoring_formula"),
    *("submittable_yield", "tamper_candidate_count", "tamper_candidates", "tamper_reasons"),
    *("total_cooccurrences", "total_groups", "total_passing_evaluations", "useful_evaluations"),
    *("usefulness_rationale", "usefulness_unknown_evaluations", "window_minutes", "yield_rate"),
)

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
        # Only looks at the types of keys, which calls nothing.
        allowed=r"python/object\.h",
    ),
    Rule(
        "borrowing from a list or a sequence",
        r"\bPyList_(GET_ITEM|GetItem)\b|\bPySequence_Fast\w*",
        "PyObject* item = PyList_GET_ITEM(list, 0);",
        "the list may drop the item while it is in use",
        allowed=r"(python|layout)/.*",
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
        allowed=r"python/compat\.h",
    ),
    Rule(
        "dropping an error",
        r"\bPyErr_Clear\b",
        "PyErr_Clear();",
        "what is tolerated goes through forget_error()",
        allowed=r"python/error\.cpp",
    ),
    Rule(
        "counting references by hand",
        r"\bPy_X?(INC|DEC)REF\b",
        "Py_XDECREF(object);",
        "Ref owns",
        allowed=r"python/(ref|compat)\.h",
    ),
    Rule(
        "making references by hand",
        r"\bPy_(NewRef|XNewRef|CLEAR|SETREF|XSETREF|RETURN_\w+)\b",
        "return Py_NewRef(object);",
        "Ref owns",
        allowed=SPEAKS_C_API,
    ),
    Rule(
        "sorting with the C++ library",
        r"\bstd::(ranges::)?(stable_sort|sort|partial_sort|nth_element|sort_heap)\b",
        "std::ranges::sort(rows);",
        "NaN breaks its contract; values of records are sorted by the interpreter's list",
        # Sorts positions of its own by exact strings, and rows by floats that are no NaN: these
        # have one order.
        allowed=r"tables/pair_table\.cpp|engine/row_order\.cpp",
    ),
    Rule(
        "objects in static storage",
        r"\bstatic\s+(PyObject\s*\*|Ref\s)\s*\w+\s*[=;{]|\bthread_local\b",
        "static PyObject* cache = nullptr;",
        "state belongs to one module object",
    ),
    Rule(
        "the interpreter's header",
        r"#\s*include\s*<(Python|structmember)\.h>",
        "#include <Python.h>",
        "everything else includes python/python.h",
        allowed=r"python/(python|compat)\.h",
    ),
    Rule(
        "a macro",
        r"#\s*define\b",
        "#define TWICE(x) x x",
        "only lists of names and the differences of versions need any",
        allowed=r"python/(interned|compat|python)\.h|facade/words\.h|names/names\.h"
        r"|layout/(table\.h|check\.cpp)",
    ),
    Rule(
        "catching everything",
        r"catch\s*\(\s*\.\.\.\s*\)",
        "} catch (...) {",
        "the boundary knows the two exceptions that there are; a generator passes them on",
        allowed=r"python/error\.h|facade/generator\.cpp",
    ),
    Rule(
        "the interpreter's functions",
        rf"\b(?!{VALUES}\b)_?Py[A-Z_]\w+",
        "check(PyList_Append(list, item));",
        "rooms above speak through python/, whose functions check and own",
        allowed=SPEAKS_C_API,
    ),
    Rule(
        "the memory layout",
        r"\b(dk_\w+|ma_(keys|values)|ob_item|ht_cached_keys|d_member)\b"
        r"|\bPyASCIIObject\b|\binstance_values\s*\(PyObject",
        "auto* keys = dict->ma_keys;",
        "one room is taught a new version of CPython",
        allowed=r"layout/.*",
    ),
    Rule(
        "a field of a result",
        rf"\bnames(_|\(\))?\.({'|'.join(RESULT_FIELDS)})\b",
        "attribute(row, names.composite_score)",
        "what an answer holds is known to its question",
        # The order of rows is the order of two questions.
        allowed=r"analytics/.*|engine/row_order\.cpp",
    ),
    Rule(
        "a borrowed variable",
        r"\bArg\s+\w+\s*(=|\{)|\bArg\s+\w+_;",
        "const Arg name = attribute(object, key);",
        "Arg is for parameters: what it borrows from is gone after the statement",
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
    assert {name.split("/")[0] for name in FILES} == set(LOWER_ROOMS)


def includes(name: str) -> list[str]:
    """Return what a source file includes of our own, in order."""
    return re.findall(r'^#include "([^"]+)"', text_of(name), re.MULTILINE)


def header_of(name: str) -> str:
    """Return the path of the header that belongs to a source file."""
    return Path(name).with_suffix(".h").as_posix()


def test_includes_name_files_below_the_source_folder() -> None:
    unknown = {name: set(includes(name)) - set(FILES) for name in FILES}
    assert {name: paths for name, paths in unknown.items() if paths} == {}


def test_lower_rooms_do_not_include_upper_ones() -> None:
    def upper(name: str) -> list[str]:
        room = name.split("/")[0]
        permitted = LOWER_ROOMS[room] | {room}
        return [path for path in includes(name) if path.split("/")[0] not in permitted]

    assert {name: paths for name in FILES if (paths := upper(name))} == {}


def test_rooms_do_not_know_each_other_in_circles() -> None:
    above: set[str] = set()
    for room in reversed(LOWER_ROOMS):
        assert not LOWER_ROOMS[room] & above
        above.add(room)


def test_operations_do_not_include_each_other() -> None:
    def others(name: str) -> list[str]:
        return [
            path
            for path in includes(name)
            if path.startswith("analytics/") and path != "analytics/questions.h"
        ]

    operations = [name for name in FILES if name.startswith("analytics/")]
    assert len(operations) > 7
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


REQUIRED = re.compile(r"REQUIRES\b")
ASSERTED = re.compile(r"\bassert\(")


def contracts(name: str) -> tuple[int, int]:
    """How many contracts a header states, and how many assertions it and its source make."""
    source = Path(name).with_suffix(".cpp").as_posix()
    texts = [text_of(name), text_of(source) if source in FILES else ""]
    comments = "\n".join(re.findall(r"//[^\n]*", "\n".join(texts)))
    code = "\n".join(code_of(text) for text in texts)
    return len(REQUIRED.findall(comments)), len(ASSERTED.findall(code))


# What a caller has to see to and no assertion can: that something outlives something else, or that
# a list is one of our own.
NOT_ASSERTED = re.compile(r"REQUIRES[^.]*\b(outlives?|of our own making)\b")


def test_contracts_are_assertions() -> None:
    lacking = {}
    for name in FILES:
        if name.endswith(".h"):
            comments = " ".join(re.findall(r"//([^\n]*)", text_of(name)))
            stated, asserted = contracts(name)
            checkable = stated - len(NOT_ASSERTED.findall(comments))
            if checkable > asserted:
                lacking[name] = (checkable, asserted)
    assert lacking == {}


def test_a_contract_without_an_assertion_is_noticed(monkeypatch: pytest.MonkeyPatch) -> None:
    stated, asserted = contracts("engine/bound.h")
    assert stated >= 2
    assert asserted >= 2
    bare = text_of("engine/bound.h").replace("assert(", "ignore(")
    monkeypatch.setitem(globals(), "text_of", lambda name: bare)
    assert contracts("engine/bound.h") == (stated, 0)
