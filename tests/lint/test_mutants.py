"""The list of mutants fits the sources: each stands where it is said to, and few are past noticing.

What notices them is `make mutants` itself.
"""

from __future__ import annotations

import runpy
from collections.abc import Iterable
from pathlib import PurePosixPath
from typing import Any

import pytest
from support.texts import ROOT, paths, text_of

CATALOGUE = runpy.run_path(str(ROOT / "tools" / "mutants" / "catalogue.py"))
MUTANTS: list[Any] = CATALOGUE["all_mutants"]()


def test_there_are_hundreds_of_mutants() -> None:
    assert len(MUTANTS) >= 150
    assert len({(m.source, m.after, m.original, m.changed) for m in MUTANTS}) == len(MUTANTS)


def test_every_mutant_changes_what_stands_in_its_source() -> None:
    wrong = []
    for mutant in MUTANTS:
        try:
            first, last = mutant.span(text_of(mutant.source))
        except ValueError as error:
            wrong.append(str(error))
        else:
            if text_of(mutant.source)[first:last].split() == mutant.changed.split():
                wrong.append(f"{mutant.place}: changes nothing")
    assert wrong == []


def test_tests_that_are_tried_first_are_there() -> None:
    named = {name for mutant in MUTANTS for name in mutant.tests}
    assert {name for name in named if not (ROOT / name).exists()} == set()


# Files without a decision of their own: declarations, tables, and hints to the processor.
PLAIN = {
    *("analytics/questions", "engine/functions", "environment/helpers", "module/steps"),
    *("facade/function_object", "facade/record_description", "facade/words"),
    *("python/interned", "python/python", "records/prefetch"),
}


def test_every_file_that_decides_anything_has_a_mutant() -> None:
    def stems(names: Iterable[str]) -> set[str]:
        folder = PurePosixPath("search_analytics")
        return {
            path.relative_to(folder).with_suffix("").as_posix()
            for path in map(PurePosixPath, names)
            if folder in path.parents
        }

    sources = stems((*paths("*.h"), *paths("*.cpp")))
    assert sources - stems(mutant.source for mutant in MUTANTS) == PLAIN


def test_nearly_all_mutants_are_expected_to_be_noticed() -> None:
    assert sum(bool(mutant.survives) for mutant in MUTANTS) <= 0.05 * len(MUTANTS)


LIST = """
# A comment of its own.

[a.h] one.py

- a
- b
+ c

@ before
- d;
+
* two.py
= because

[b.h]

- e
+ f
! table
"""


def test_the_list_is_read_as_it_is_written() -> None:
    first, second, third = CATALOGUE["parse"](LIST, "room.txt")
    assert (first.place, first.source, first.tests) == ("room.txt:6", "a.h", ["tests/one.py"])
    assert (first.original, first.changed, first.after) == ("a\nb", "c", "")
    assert (second.after, second.original, second.changed) == ("before", "d;", "")
    assert (second.tests, second.survives) == (["tests/two.py", "tests/one.py"], "because")
    assert (third.source, third.tests, third.own_build) == ("b.h", [], "table")


@pytest.mark.parametrize(
    ("text", "found"),
    [("x a\n  b y", (2, 7)), ("x", None), ("a b a b", None)],
    ids=["once", "never", "twice"],
)
def test_an_original_is_found_once_or_not_at_all(text: str, found: tuple[int, int] | None) -> None:
    mutant = CATALOGUE["parse"](LIST, "room.txt")[0]
    if found is None:
        with pytest.raises(ValueError, match=r"room\.txt:6: found \d times in a\.h"):
            mutant.span(text)
    else:
        assert mutant.span(text) == found
