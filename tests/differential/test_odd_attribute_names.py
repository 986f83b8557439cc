"""Attributes of an engine or a member under names that are no texts, and log their comparisons."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.traps import assert_same, engine, plain, trap
from differential.world import World

Call = Callable[[], Any]

MEMBER = "FUNCTION_FAMILY_FEATURE_FAMILY"


class OddName:
    """What hashes like a text, and may log comparisons; equal to nothing, or an error."""

    def __init__(self, w: World, text: str, is_loud: bool) -> None:
        self.w, self.text, self.is_loud = w, text, is_loud
        self.error: Exception | None = None

    def __hash__(self) -> int:
        return hash(self.text)

    def __eq__(self, other: object) -> bool:
        if isinstance(other, str) and self.is_loud:
            self.w.note("compared", other)
            if self.error is not None:
                raise self.error
        return self is other


def assert_same_beside(
    name: str, holder: Callable[[World, Any], Any], error: Exception | None, is_loud: bool
) -> None:
    """Ask for statistics where the holder has an attribute under such a name beside its own."""

    def build(w: World) -> Call:
        records = [plain(index) for index in range(8)]
        made = engine(w, [*records[:4], trap(w, 4), *records[4:], trap(w, 9), plain(10)])
        # A dictionary of its own: the keys that engines share may hold the name by now.
        made.__dict__ = dict(vars(made))
        names = vars(holder(w, made))
        own = {key: names.pop(key) for key in [*names] if key == name}
        odd = OddName(w, name, is_loud)
        names[odd] = None
        names.update(own)  # the odd name stands before the text
        odd.error = error
        w.cleanup.callback(names.pop, odd)
        by = getattr(w.module.AggregateBy, MEMBER)
        return lambda: made.get_search_stats(min_sample_size=0, aggregate_by=by)

    assert_same(build)


ERRORS = [None, AttributeError("mine"), ValueError("mine")]


@pytest.mark.parametrize("error", ERRORS, ids=["unequal", "AttributeError", "ValueError"])
@pytest.mark.parametrize("name", ["_build_group_key", "_fetch_evaluations"])
def test_a_name_of_the_engine_is_compared_as_often(name: str, error: Exception | None) -> None:
    assert_same_beside(name, lambda w, made: made, error, is_loud=True)


def test_a_name_beside_the_tracker_changes_nothing() -> None:
    """Not compared aloud: code that runs often remembers places, and then looks nothing up."""
    assert_same_beside("_tracker", lambda w, made: made, None, is_loud=False)


def test_a_name_of_the_granularity_changes_no_group() -> None:
    """Not compared aloud either."""

    def member(w: World, made: Any) -> Any:
        return getattr(w.module.AggregateBy, MEMBER)

    assert_same_beside("_value_", member, None, is_loud=False)
