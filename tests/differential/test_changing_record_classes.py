"""Record classes that say what is done to them, or that change while records are made of them."""

from __future__ import annotations

import gc
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import pytest
from differential.traps import assert_same, call, engine, patch_constructor, plain
from differential.world import World

Call = Callable[[], Any]


class Size(int):
    """A smallest number of evaluations that does something when a group is compared with it."""

    action: Call

    def __gt__(self, other: Any) -> bool:
        self.action()
        return int.__gt__(self, other)


class TopN:
    """How many pairs to show: runs an action when the pairs are cut to that number."""

    def __init__(self, action: Call) -> None:
        self.action = action

    def __lt__(self, other: Any) -> bool:
        return False

    def __index__(self) -> int:
        self.action()
        return 2


def test_the_cut_to_the_first_pairs_patches_the_constructor_of_the_answer() -> None:
    def build(w: World) -> Call:
        top_n = TopN(lambda: patch_constructor(w, "CorrelationPatternsResult"))
        return call(
            w, [plain(index) for index in range(3)], "get_correlation_patterns", top_n=top_n
        )

    assert_same(build)


def keep_made(w: World, name: str, kept: list[Any]) -> None:
    """Have the constructor of a record class keep what it makes."""
    record = getattr(w.module, name)
    original = record.__init__

    def construct(self: Any, *arguments: Any, **keywords: Any) -> None:
        kept.append(self)
        original(self, *arguments, **keywords)

    w.patch(record, "__init__", construct)


def keep_assigned(w: World, name: str, kept: list[Any]) -> None:
    """Have a record class keep every record of which a field is set."""

    def assign(self: Any, field: str, value: Any) -> None:
        kept.append(self)
        object.__setattr__(self, field, value)

    w.patch(getattr(w.module, name), "__setattr__", assign)


@pytest.mark.parametrize("keep", [keep_made, keep_assigned])
@pytest.mark.parametrize("record", ["WindowStats", "StatsRow"])
def test_what_a_record_class_has_seen_is_seen_by_the_collector(
    record: str, keep: Callable[[World, str, list[Any]], None]
) -> None:
    def build(w: World) -> Call:
        kept: list[Any] = []

        def look() -> None:
            parts = [part for made in kept for part in vars(made).values()]
            lists = [part for part in parts if isinstance(part, list)]
            w.note("tracked", [gc.is_tracked(each) for each in (*kept, *lists)])

        size = Size(1)
        actions = [lambda: None, lambda: keep(w, record, kept), look, look]
        size.action = lambda: actions.pop(0)()
        history = [
            plain(index, feature_metadata=[{"feature_subfamily": str(index)}]) for index in range(4)
        ]
        return call(w, history, "get_search_stats", min_sample_size=size)

    assert_same(build)


def assign_aloud(w: World, record: Any) -> None:
    def assign(self: Any, name: str, value: Any) -> None:
        w.note("set", name)
        object.__setattr__(self, name, value)

    w.patch(record, "__setattr__", assign)


def read_aloud(w: World, record: Any) -> None:
    def read(self: Any, name: str) -> Any:
        if name.startswith("__"):
            return object.__getattribute__(self, name)
        w.note("get", name)
        # A score that C++ does not sort by.
        return 1 if name == "composite_score" else object.__getattribute__(self, name)

    w.patch(record, "__getattribute__", read)


def score_aloud(w: World, record: Any) -> None:
    def windows(self: Any) -> Any:
        w.note("windows")
        return [SimpleNamespace(composite_score=1)]

    w.patch(record, "windows", property(windows, lambda self, value: w.note("set")))


@pytest.mark.parametrize("change", [assign_aloud, read_aloud, score_aloud])
@pytest.mark.parametrize("record", ["WindowStats", "StatsRow", "DepthBucket", "VelocityWindow"])
@pytest.mark.parametrize(
    "operation", ["get_search_stats", "get_search_patterns", "get_search_velocity"]
)
def test_a_record_class_that_says_what_is_done_to_it(
    operation: str, record: str, change: Callable[[World, Any], None]
) -> None:
    def build(w: World) -> Call:
        change(w, getattr(w.module, record))
        return call(w, [plain(index, tree_depth=index) for index in range(3)], operation)

    assert_same(build)


@pytest.mark.parametrize("record", ["WindowStats", "StatsRow"])
def test_a_group_that_is_not_shown_changes_how_rows_are_read(record: str) -> None:
    def build(w: World) -> Call:
        class Last(int):
            """Finds the third group too small."""

            def __gt__(self, other: Any) -> bool:
                seen.append(other)
                if len(seen) == 3:
                    read_aloud(w, getattr(w.module, record))
                return len(seen) == 3

        seen: list[Any] = []
        history = [
            plain(index, feature_metadata=[{"feature_subfamily": str(index)}]) for index in range(3)
        ]
        return call(w, history, "get_search_stats", min_sample_size=Last(1))

    assert_same(build)


def test_keys_that_somebody_made_are_seen_by_the_collector() -> None:
    def build(w: World) -> Call:
        made = engine(w, [plain(index) for index in range(4)])
        keys = [(frozenset([index]), frozenset()) for index in range(4)]
        left = list(keys)
        w.patch(made, "_build_group_key", lambda *given: left.pop())
        size = Size(1)
        size.action = lambda: w.note("tracked", [gc.is_tracked(key) for key in keys])
        return lambda: made.get_search_stats(min_sample_size=size)

    assert_same(build)


def test_the_making_of_a_window_changes_the_records_of_the_next() -> None:
    def build(w: World) -> Call:
        history = [plain(index) for index in range(6)]
        record = w.module.VelocityWindow
        original = record.__init__

        def construct(self: Any, *arguments: Any, **keywords: Any) -> None:
            history[len(w.trace) % 6].timestamp = 0.0
            w.note("made")
            original(self, *arguments, **keywords)

        w.patch(record, "__init__", construct)
        return call(w, history, "get_search_velocity")

    assert_same(build)
