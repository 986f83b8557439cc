"""Results that are filled at once are like those whose fields and entries were set one by one."""

from __future__ import annotations

import gc
import weakref
from typing import Any

import pytest
from kestrune import search_analytics
from kestrune.search_analytics import AggregateBy
from support.parts import engine_over, evaluation, function_item

pytestmark = pytest.mark.usefixtures("now")

STATS = {"aggregate_by": AggregateBy.NONE, "min_sample_size": 0}
COUNT = 40


def windows() -> list[Any]:
    """The statistics of many groups, of which the first are made field by field."""
    records = [
        evaluation(sharpe=float(index), function_metadata=[function_item(f"f{index}", "F", "S")])
        for index in range(COUNT)
    ]
    rows = engine_over(records).get_search_stats(**STATS).rows
    assert len(rows) == COUNT
    return [window for row in rows for window in row.windows]


def rationale(**values: Any) -> list[dict[str, Any]]:
    records = [evaluation(**values) for _ in range(COUNT)]
    return engine_over(records).get_yield_analysis().usefulness_rationale


FIELDS = list(search_analytics.WindowStats.__dataclass_fields__)


def test_attributes_stand_in_the_order_of_the_fields() -> None:
    made = windows()
    by_hand = search_analytics.WindowStats(**vars(made[-1]))
    assert by_hand == made[-1]
    for window in made:
        assert list(vars(window)) == list(vars(by_hand)) == FIELDS


def test_attributes_can_be_changed_added_and_deleted() -> None:
    for window in windows():
        del window.sharpe
        window.sharpe = 5
        window.note = "new"
        others = [name for name in FIELDS if name != "sharpe"]
        assert list(vars(window)) == [*others, "sharpe", "note"]
        assert window.sharpe == 5
        del window.note
        assert repr(window).startswith("WindowStats(window=")


def test_fields_are_found_beside_attributes_that_callers_named_before() -> None:
    """What any instance of the class was ever given has a number among the fields, too."""
    marked = search_analytics.DepthBucket()
    marked.note = "first of all"  # type: ignore[attr-defined]
    records = [evaluation(tree_depth=index) for index in range(COUNT)]
    for index, bucket in enumerate(engine_over(records).get_search_patterns().depth_distribution):
        assert vars(bucket) == {"depth": index, "total": 1, "passed": 1, "yield_rate": 1.0}
        assert not hasattr(bucket, "note")


def test_dictionaries_can_be_changed_added_to_and_emptied() -> None:
    made = rationale(failure_reason="late")
    keys = list(made[0])
    for entry in made:
        assert list(entry) == keys
        entry["failure_reason"] = "other"
        entry["note"] = 1
        del entry["status"]
        assert list(entry) == [*(key for key in keys if key != "status"), "note"]
        assert dict(entry) == entry
        assert entry["failure_reason"] == "other"
        entry.clear()
        assert entry == {}
    assert rationale(failure_reason="late")[0]["failure_reason"] == "late"


class Held:
    """A value that can be in a cycle, and seen to go."""


def test_a_cycle_through_an_entry_is_collected() -> None:
    held = Held()
    made = rationale(strategy_pool_id=held)
    held.entry = made[0]  # type: ignore[attr-defined]
    gone = weakref.ref(held)
    del held, made
    gc.collect()
    assert gone() is None


def test_a_cycle_through_a_row_is_collected() -> None:
    made = windows()
    held = Held()
    held.window = made[0]  # type: ignore[attr-defined]
    made[0].submittable_yield["held"] = held
    gone = weakref.ref(held)
    del held, made
    gc.collect()
    assert gone() is None
