"""A snapshot answers as its tracker does, and reads it once."""

from __future__ import annotations

from typing import Any

import pytest
from kestrune.search_analytics import AggregateBy, EvalPool, SearchAnalytics

from kestrune_search_report import FilterError, Snapshot, SourceError, collect
from support.searches import POOLS, records, simple
from support.trackers import ListTracker

FILTERS: list[dict[str, Any]] = [
    {},
    {"era_id": "2011"},
    {"era_id": "nope"},
    {"eval_type": "signal"},
    {"eval_type": "strategy", "signal_pool_id": "alpha"},
    {"named_universe": "few"},
    {"metaparameters": {"hold": 5}},
    {"strategy_pool_id": "p1"},
    {"signal_pool_id": "alpha"},
    {"strategy_signal_pool": "beta"},
    {"signal_pool_id": "alpha", "strategy_signal_pool": "beta"},
    {"function_family": "trend"},
    {"feature_subfamily": "close", "era_id": "2012"},
]
CALLS: list[tuple[str, dict[str, Any]]] = [
    ("get_search_stats", {"min_sample_size": 3}),
    ("get_search_stats", {"min_sample_size": 0, "aggregate_by": AggregateBy.NONE}),
    ("get_search_stats", {"min_sample_size": 1, "eval_pool": EvalPool.SUBMITTED}),
    ("get_search_stats", {"min_sample_size": 1, "pnl_column": "net_returns"}),
    ("get_suggestions", {"min_sample_size": 3}),
    ("get_search_patterns", {"eval_pool": EvalPool.PASSED}),
    ("get_search_velocity", {"windows": [1440, 14400]}),
    ("get_yield_analysis", {"recent_window_minutes": 7200}),
    ("get_correlation_patterns", {"top_n": 100}),
]


@pytest.mark.parametrize("filters", FILTERS, ids=lambda filters: "-".join(filters) or "none")
@pytest.mark.parametrize("call", CALLS, ids=lambda call: "-".join((call[0], *call[1])))
def test_every_question_has_the_trackers_answer(
    tracker: ListTracker, call: tuple[str, dict[str, Any]], filters: dict[str, Any]
) -> None:
    snapshot = Snapshot.of(tracker, pools=POOLS)
    name, arguments = call
    engine = SearchAnalytics(tracker, snapshot.pools)
    expected = getattr(engine, name)(**filters, **arguments)
    assert getattr(snapshot.engine, name)(**filters, **arguments) == expected


def test_the_tracker_is_read_once(tracker: ListTracker) -> None:
    snapshot = Snapshot.of(tracker, pools=POOLS)
    tracker.rows.clear()
    tracker.close()
    for name, arguments in CALLS:
        getattr(snapshot.engine, name)(**arguments)
    assert tracker.calls == 1
    assert snapshot.engine.get_search_patterns().total_evaluations == 300


def test_a_snapshot_of_a_snapshot_is_itself(snapshot: Snapshot) -> None:
    assert Snapshot.of(snapshot) is snapshot
    assert [pool.name for pool in Snapshot.of(snapshot, pools={"one": 1.0}).pools] == ["one"]


def test_catalogues_are_sorted_and_distinct(snapshot: Snapshot) -> None:
    assert snapshot.engine.get_available_eras() == ["2011", "2012"]
    assert snapshot.engine.get_available_named_universes() == ["all", "few"]


def test_a_filter_on_what_no_record_has_is_an_error() -> None:
    snapshot = Snapshot.from_records(simple())
    assert snapshot.engine.get_search_patterns(era_id="nope").total_evaluations == 0
    for name in ("named_universe", "eval_type", "metaparameters", "strategy_pool_id"):
        with pytest.raises(FilterError, match=f"no record has {name}"):
            snapshot.engine.get_search_patterns(**{name: "signal"})
    with pytest.raises(FilterError, match="signal_pool_id or strategy_signal_pool"):
        snapshot.engine.get_search_patterns(signal_pool_id="alpha")


def test_what_a_tracker_lacks_is_asked_for_at_once(rows: list[dict[str, Any]]) -> None:
    tracker = ListTracker(
        [{k: v for k, v in row.items() if k not in {"sharpe", "turnover"}} for row in rows]
    )
    try:
        with pytest.raises(SourceError, match=r"(?s)sharpe: the Sharpe.*turnover: the share"):
            Snapshot.of(tracker)
        made = Snapshot.of(tracker, constants={"sharpe": 1.0, "turnover": 0.5})
        assert made.evaluations[0].sharpe == 1.0
    finally:
        tracker.close()


def test_what_no_question_can_work_with_is_said_at_once() -> None:
    rows = records(10)
    rows[3]["sharpe"] = None
    rows[4]["timestamp"] = "yesterday"
    rows[5]["tree_depth"] = None
    tracker = ListTracker(rows)
    try:
        with pytest.raises(SourceError) as caught:
            Snapshot.of(tracker)
    finally:
        tracker.close()
    for text in ("sharpe: 1 of 10", "timestamp: 1 of 10", "tree_depth: 1 of 10"):
        assert text in str(caught.value)


def test_a_full_history_is_noted(rows: list[dict[str, Any]], tracker: ListTracker) -> None:
    assert Snapshot.of(tracker).notes == ()
    assert "exactly 50" in Snapshot.of(tracker, limit=50).notes[0]


def test_an_empty_tracker_has_nothing_to_say() -> None:
    tracker = ListTracker([])
    try:
        snapshot = Snapshot.of(tracker)
    finally:
        tracker.close()
    assert snapshot.engine.get_search_patterns(era_id="nope").total_evaluations == 0
    report = collect(snapshot)
    assert [caveat.about for caveat in report.caveats] == ["empty"]
    assert report.evidence.claims == []


def test_a_search_can_be_moved_to_the_present() -> None:
    old = Snapshot.from_records(simple(timestamp=1_000_000.0))
    assert old.engine.get_search_velocity().windows[0].total_evaluations == 0
    moved = old.ending_now()
    assert moved.engine.get_search_velocity().windows[0].total_evaluations == 60
    assert "moved" in moved.notes[0]


def test_the_one_recorded_last_comes_first() -> None:
    found = Snapshot.from_records(simple(3, timestamp=5.0)).evaluations
    assert [one.eval_id for one in found] == ["3", "2", "1"]


def test_a_query_that_no_question_makes_is_refused(snapshot: Snapshot) -> None:
    with pytest.raises(LookupError, match="DROP"):
        snapshot._conn.execute("DROP TABLE evaluations", (1,))
