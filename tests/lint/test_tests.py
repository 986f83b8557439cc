"""What CONTRIBUTING.md asks of the tests, as far as a text can show it.

Each look at the tests has a counter-example beside it, which shows that it can fail.
"""

from __future__ import annotations

import ast
import re
from collections.abc import Callable
from pathlib import Path, PurePosixPath

import pytest
from support.children import run_child
from support.texts import paths, text_of, tree_of

TESTS = [name for name in paths("*.py") if name.startswith("tests/")]


def broken(check: Callable[[ast.Module, str], list[str]]) -> dict[str, list[str]]:
    """Return what `check(tree, name)` finds wrong in the Python files of the tests, by path."""
    return {name: found for name in TESTS if (found := check(tree_of(name), name))}


def test_there_are_tests() -> None:
    assert len(TESTS) > 50


# Names state behaviour, cases are tables.


def defined_tests(tree: ast.Module) -> list[ast.FunctionDef]:
    """Return the tests of a file, those in classes too."""
    return [
        node
        for node in ast.walk(tree)
        if isinstance(node, ast.FunctionDef) and node.name.startswith("test")
    ]


def test_tests_stand_only_in_files_that_pytest_looks_into() -> None:
    hidden = {
        name: [node.name for node in defined_tests(tree_of(name))]
        for name in TESTS
        if not PurePosixPath(name).name.startswith("test_") and defined_tests(tree_of(name))
    }
    assert hidden == {}


def empty_names(tree: ast.Module, _: str) -> list[str]:
    """Return the names of tests too short to say who does what, and numbered ones."""
    return [
        test.name
        for test in defined_tests(tree)
        if len(test.name.split("_")) < 4 or re.search(r"_(\d+|ok|misc|basics?)$", test.name)
    ]


def test_names_of_tests_state_behaviour() -> None:
    assert broken(empty_names) == {}


@pytest.mark.parametrize(
    ("name", "empty"),
    [
        ("test_counts_are_ints", False),
        ("test_a_window_of_24_hours", False),
        ("test_counts", True),
        ("test_no_windows", True),
        ("test_rows_of_case_2", True),
        ("test_rows_and_columns_misc", True),
    ],
)
def test_a_name_without_behaviour_is_noticed(name: str, empty: bool) -> None:
    assert empty_names(ast.parse(f"def {name}(): ..."), "") == ([name] if empty else [])


def is_named(value: ast.expr) -> bool:
    """Whether pytest finds a name for a case by itself, other than its number."""
    if isinstance(value, ast.UnaryOp):
        return is_named(value.operand)
    if isinstance(value, ast.BinOp):
        return is_named(value.left) and is_named(value.right)
    return isinstance(value, ast.Constant | ast.Name | ast.Attribute | ast.Starred)


def numbered_cases(tree: ast.Module, _: str) -> list[str]:
    """Return the cases that a report would call by a number: written out, and without ids."""
    found = []
    for test in defined_tests(tree):
        for call in test.decorator_list:
            if not isinstance(call, ast.Call) or not ast.unparse(call).startswith(
                "pytest.mark.parametrize"
            ):
                continue
            if any(keyword.arg == "ids" for keyword in call.keywords):
                continue
            cases = call.args[1].elts if isinstance(call.args[1], ast.List | ast.Tuple) else []
            for case in cases:
                if isinstance(case, ast.Call) and any(word.arg == "id" for word in case.keywords):
                    continue
                values = case.elts if isinstance(case, ast.Tuple) else [case]
                found += [ast.unparse(case)] * (not all(map(is_named, values)))
    return found


def test_cases_have_names() -> None:
    assert broken(numbered_cases) == {}


@pytest.mark.parametrize(
    ("cases", "numbered"),
    [
        ("'n', [1, -2.0, 'a', None, int]", []),
        ("'n, m', [(1, 'a'), pytest.param([], {}, id='empty')]", []),
        ("'n', [[], {}], ids=['list', 'dictionary']", []),
        ("'n', [1, []]", ["[]"]),
        ("'n, m', [(1, call()), (1, 2)]", ["(1, call())"]),
        ("'n', [pytest.param([])]", ["pytest.param([])"]),
    ],
    ids=["plain", "id", "ids", "list", "call", "no id"],
)
def test_a_case_without_a_name_is_noticed(cases: str, numbered: list[str]) -> None:
    source = f"@pytest.mark.parametrize({cases})\ndef test_it(n): ..."
    assert numbered_cases(ast.parse(source), "") == numbered


# Warnings are errors.

# What the interpreter itself warns of, in cases that mean to do it.
TOLERATED = {"tests/robustness/test_hostile_environment.py": ["ignore:NotImplemented should"]}


def silenced(tree: ast.Module, name: str) -> list[str]:
    """Return the warnings that a file lets pass, but for those it may."""
    words = {"filterwarnings", "simplefilter"}
    calls = [
        node
        for node in ast.walk(tree)
        if isinstance(node, ast.Call) and ast.unparse(node.func).rpartition(".")[2] in words
    ]
    texts = [ast.unparse(call.args[0]).strip("'\"") for call in calls if call.args]
    tolerated = tuple(TOLERATED.get(name, ["error"]))
    return [text for text in texts if not text.startswith(("error", *tolerated))]


def test_warnings_are_errors() -> None:
    assert '\nfilterwarnings = ["error"]\n' in text_of("pyproject.toml")
    assert "\nSTRICT := $(PY) -X dev -W error\n" in text_of("Makefile")
    assert broken(silenced) == {}


@pytest.mark.parametrize(
    ("source", "found"),
    [
        ("warnings.simplefilter('error')", []),
        ("warnings.simplefilter('ignore')", ["ignore"]),
        ("@pytest.mark.filterwarnings('ignore:old')\ndef test_it(): ...", ["ignore:old"]),
    ],
    ids=["error", "ignored", "marked"],
)
def test_a_silenced_warning_is_noticed(source: str, found: list[str]) -> None:
    assert silenced(ast.parse(source), "tests/test_it.py") == found


# A run can be repeated.

ONE_FAILS = """
def test_one(count_cases):
    count_cases("of one kind", 5)
    count_cases("of one kind", 2)


def test_other():
    raise ValueError
"""


@pytest.mark.parametrize("jobs", [[], ["-n", "2"]], ids=["one process", "two"])
def test_a_run_that_fails_says_how_to_repeat_it(tmp_path: Path, jobs: list[str]) -> None:
    (tmp_path / "test_it.py").write_text(ONE_FAILS)
    ran = run_child(
        "import sys, pytest; sys.exit(pytest.main(['-p', 'support.runs', *sys.argv[1:]]))",
        *(str(tmp_path), *jobs),
        check=False,
        PYTHONHASHSEED="17",
    )
    assert ran.stdout.count("PYTHONHASHSEED=17\n") == 2
    assert "       7 of one kind\n" in ran.stdout
    assert "1 failed, 1 passed" in ran.stdout


# Timing never fails a test.

CLOCKS = {"perf_counter", "monotonic", "process_time", "thread_time", "time", "timeit", "clock"}
# A server that never starts must not hang the suite: a deadline, generous, inside a loop.
DEADLINES = {"tests/examples/test_search_demo.py": ["time.monotonic() < deadline"]}


def reads_clock(node: ast.AST, late: set[str]) -> bool:
    """Whether an expression asks a real clock, or uses a name that holds what one said."""
    for part in ast.walk(node):
        if isinstance(part, ast.Name) and part.id in late:
            return True
        if isinstance(part, ast.Call):
            module, _, name = ast.unparse(part.func).rpartition(".")
            if module in {"", "time", "timeit"} and name.removesuffix("_ns") in CLOCKS:
                return True
    return False


def judged_times(tree: ast.Module, name: str) -> list[str]:
    """Return what a file asserts about times that it has measured."""
    found = []
    for function in ast.walk(tree):
        if not isinstance(function, ast.FunctionDef):
            continue
        late: set[str] = set()
        nodes = [node for node in ast.walk(function) if isinstance(node, ast.stmt)]
        for node in sorted(nodes, key=lambda node: node.lineno):
            if isinstance(node, ast.Assign | ast.AugAssign | ast.AnnAssign) and node.value:
                targets = node.targets if isinstance(node, ast.Assign) else [node.target]
                if reads_clock(node.value, late):
                    late |= {ast.unparse(target) for target in targets}
            elif (isinstance(node, ast.Assert) and reads_clock(node.test, late)) or (
                isinstance(node, ast.If)
                and reads_clock(node.test, late)
                and any(
                    isinstance(part, ast.Raise) or "pytest.fail" in ast.unparse(part)
                    for part in node.body
                )
            ):
                found.append(ast.unparse(node.test))
    return [text for text in dict.fromkeys(found) if text not in DEADLINES.get(name, [])]


def test_timing_never_fails_a_test() -> None:
    assert broken(judged_times) == {}


@pytest.mark.parametrize(
    ("body", "found"),
    [
        ("start = time.perf_counter()\n print(time.perf_counter() - start)", []),
        ("start = NOW\n assert engine.time() > start", []),
        ("assert time.monotonic() < 5", ["time.monotonic() < 5"]),
        ("start = perf_counter_ns()\n work()\n took = 1 - start\n assert took < 9", ["took < 9"]),
        ("end = time.time() + 1\n if time.time() > end:\n  pytest.fail()", ["time.time() > end"]),
    ],
    ids=["printed", "fixed clock", "asserted", "by a name", "failed"],
)
def test_a_judged_time_is_noticed(body: str, found: list[str]) -> None:
    assert judged_times(ast.parse(f"def test_it():\n {body}"), "tests/test_it.py") == found


# What might crash runs in a child process: as a text, which these do not look into.

FATAL = {"os.fork", "os._exit", "os.abort", "_testcapi.set_nomemory", "set_nomemory"}


def fatal_calls(tree: ast.Module, _: str) -> list[str]:
    """Return what a file does to its own process that it may not survive."""
    found = []
    for node in ast.walk(tree):
        if isinstance(node, ast.Call) and ast.unparse(node.func) in FATAL:
            found.append(ast.unparse(node.func))
        elif isinstance(node, ast.Import | ast.ImportFrom) and "ctypes" in ast.unparse(node):
            found.append("ctypes")
    return found


def test_what_might_crash_runs_in_a_child_process() -> None:
    assert broken(fatal_calls) == {}


@pytest.mark.parametrize(
    ("source", "found"),
    [
        ("run_child('import os; os.abort()')", []),
        ("os.abort()", ["os.abort"]),
        ("if os.fork() == 0:\n os._exit(0)", ["os.fork", "os._exit"]),
        ("import ctypes", ["ctypes"]),
    ],
    ids=["in a child", "abort", "fork", "memory"],
)
def test_a_test_that_may_crash_the_suite_is_noticed(source: str, found: list[str]) -> None:
    assert fatal_calls(ast.parse(source), "") == found
