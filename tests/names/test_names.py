"""The names that the analysis looks up: each is used, none is written twice, all are interned."""

from __future__ import annotations

import re
import sys
from types import SimpleNamespace
from typing import Any

import pytest
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation
from support.texts import paths, text_of

pytestmark = pytest.mark.usefixtures("now")

LIST = "search_analytics/names/names.h"
FIELDS = re.compile(r"^ +(?:NAME\((\w+)\)|TEXT\((\w+), )", re.MULTILINE)
SOURCES = [
    text_of(name)
    for name in (*paths("*.h"), *paths("*.cpp"))
    if name.startswith("search_analytics/") and name != LIST
]


def listed(text: str) -> list[str]:
    """Return the fields that a list of names has."""
    return [name or other for name, other in FIELDS.findall(text)]


def unused(names: list[str], sources: list[str]) -> list[str]:
    """Return the names that no source looks up."""
    said = set(re.findall(r"(?:\.|::)(\w+)", "\n".join(sources)))
    return sorted(set(names) - said)


def test_there_are_hundreds_of_names() -> None:
    assert len(listed(text_of(LIST))) > 200


def test_every_name_is_looked_up_somewhere() -> None:
    assert unused(listed(text_of(LIST)), SOURCES) == []


def test_no_name_is_listed_twice() -> None:
    names = listed(text_of(LIST))
    assert len(set(names)) == len(names)


def test_a_name_that_nobody_looks_up_is_noticed() -> None:
    names = listed('    NAME(one)    \\\n    TEXT(two, "__two__")  \\\n    NAME(three)\n')
    assert names == ["one", "two", "three"]
    assert unused(names, ["f(names.one); g(&Names::three);"]) == ["two"]


class Listening:
    """A record that keeps the very objects by which it is asked."""

    def __init__(self, asked: list[str]) -> None:
        object.__setattr__(self, "_asked", asked)

    def __getattribute__(self, name: str) -> Any:
        if name.startswith("__"):
            return object.__getattribute__(self, name)
        object.__getattribute__(self, "_asked").append(name)
        return getattr(RECORD, name)


RECORD = evaluation(functions=[], features=[], rejection_reason=None)


@pytest.mark.parametrize("name", WALKS)
def test_records_are_asked_by_interned_names(name: str) -> None:
    asked: list[str] = []
    record = Listening(asked)
    with_optional = SimpleNamespace(**vars(RECORD))
    assert walk(engine_over([record]), name) == walk(engine_over([with_optional]), name)
    assert asked
    assert all(each is sys.intern(each) for each in asked)


def test_the_tracker_is_asked_by_interned_names() -> None:
    engine = engine_over([])
    engine.get_search_patterns()
    (keywords,) = engine._tracker.calls
    assert keywords
    assert all(each is sys.intern(each) for each in keywords)
