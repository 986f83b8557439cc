"""Fixtures that tests share: a search of 300 evaluations, its tracker and its snapshot."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import pytest

from kestrune_search_report import Questions, Snapshot
from support.searches import POOLS, records
from support.trackers import ListTracker


@pytest.fixture(scope="session")
def rows() -> list[dict[str, Any]]:
    """Evaluations as dictionaries, oldest first."""
    return records()


@pytest.fixture
def tracker(rows: list[dict[str, Any]]) -> Iterator[ListTracker]:
    """A tracker of these evaluations, every fifth one with submission statuses."""
    made = ListTracker(rows)
    for place, row in enumerate(rows[::5]):
        made.add_status(row, "pending")
        made.add_status(
            row, ("useful", "not_useful", "rejected")[place % 3], (None, True)[place % 2]
        )
    yield made
    made.close()


@pytest.fixture
def snapshot(tracker: ListTracker) -> Snapshot:
    """A snapshot of the tracker."""
    return Snapshot.of(tracker, pools=POOLS, name="made up")


@pytest.fixture
def questions(snapshot: Snapshot) -> Questions:
    """The questions over the snapshot."""
    return Questions(snapshot)
