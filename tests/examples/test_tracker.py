"""What the tracker keeps and finds again, the same on SQLite and on PostgreSQL."""

from __future__ import annotations

import math
from dataclasses import fields
from pathlib import Path
from typing import Any

import pytest

NAN = float("nan")


def evaluation(eval_id: str, **values: Any) -> Any:
    """Return a record with this id; a signal of the era "e1" at the second 0 by default."""
    from kestrune.search_tracking import Evaluation

    return Evaluation(
        **{"eval_type": "signal", "era_id": "e1", "timestamp": 0.0, **values}, eval_id=eval_id
    )


def found(tracker: Any, **filters: Any) -> list[str]:
    """Return the ids that the history gives for these filters."""
    return [record.eval_id for record in tracker.get_evaluation_history(**filters)]


FULL = {
    "eval_type": "strategy",
    "era_id": "2012",
    "timestamp": 1353489000.123456,
    "named_universe": "all_four",
    "metaparameters": {"hold_days": 5, "costs": [0.0005, None]},
    "submitted": True,
    "passed_thresholds": True,
    "sharpe": 1 / 3,
    "returns": -2.5e-300,
    "turnover": 0.0,
    "drawdown": 1e308,
    "correlation": -0.25,
    "per_column_stats": {"net_returns_sharpe": 0.1, "gross_returns_sharpe": 0.30000000000000004},
    "function_metadata": [{"function_name": "f", "function_family": None, "weight": 2}],
    "functions": ["f", "gé 'quoted' % ?"],
    "feature_metadata": [],
    "features": [{"feature_name": "x"}, "y"],
    "tree_depth": 3,
    "strategy_pool_id": "timed",
    "strategy_signal_pool": "core",
    "is_correlation": 0.5,
    "is_pnl_mi": 0.001,
    "agent_is_pnl_mi": math.inf,
    "rejection_reason": "because; DROP TABLE evaluations",
    "failure_reason": "",
    "failure_detail": "100%",
}


@pytest.mark.parametrize("values", [{}, FULL], ids=["bare", "full"])
def test_a_record_comes_back_as_it_was_stored(tracker: Any, values: dict[str, Any]) -> None:
    stored = evaluation("a", **values)
    tracker.record_evaluation(stored)
    [back] = tracker.get_evaluation_history()
    assert back == stored
    for field in fields(stored):
        assert type(getattr(back, field.name)) is type(getattr(stored, field.name)), field.name


def test_every_field_of_a_record_has_a_column(kestrune: Any) -> None:
    from kestrune.search_tracking.evaluation import Evaluation
    from kestrune.search_tracking.schema import EVALUATION_COLUMNS

    assert [field.name for field in fields(Evaluation)] == list(EVALUATION_COLUMNS)


def test_a_nan_comes_back_as_a_nan(tracker: Any) -> None:
    tracker.record_evaluation(evaluation("a", sharpe=NAN, per_column_stats={"x": NAN}))
    [back] = tracker.get_evaluation_history()
    assert math.isnan(back.sharpe)
    assert math.isnan(back.per_column_stats["x"])


def test_history_is_newest_first_and_later_recorded_first_among_equals(tracker: Any) -> None:
    for eval_id, timestamp in (("b", 2.0), ("d", 4.0), ("a", 1.0), ("b2", 2.0), ("c", 3.0)):
        tracker.record_evaluation(evaluation(eval_id, timestamp=timestamp))
    assert found(tracker) == ["d", "c", "b2", "b", "a"]


@pytest.mark.parametrize(
    ("limit", "expected"),
    [(None, ["c", "b", "a"]), (2, ["c", "b"]), (3, ["c", "b", "a"]), (9, ["c", "b", "a"]), (0, [])],
    ids=repr,
)
def test_limit_keeps_the_newest(tracker: Any, limit: int | None, expected: list[str]) -> None:
    for timestamp, eval_id in enumerate("abc"):
        tracker.record_evaluation(evaluation(eval_id, timestamp=float(timestamp)))
    assert found(tracker, limit=limit) == expected


FILTERED = [
    ("signal_core", {"signal_pool_id": "core", "passed_thresholds": True}),
    ("signal_diverse", {"signal_pool_id": "diverse", "era_id": "e2"}),
    ("strategy_core", {"eval_type": "strategy", "strategy_signal_pool": "core"}),
    (
        "strategy_timed",
        {"eval_type": "strategy", "strategy_signal_pool": "diverse", "strategy_pool_id": "timed"},
    ),
    ("in_universe", {"named_universe": "u", "metaparameters": {"a": 1, "b": [2]}}),
    (
        "other",
        {"named_universe": "v", "metaparameters": "text", "passed_thresholds": True},
    ),
]


@pytest.mark.parametrize(
    ("filters", "expected"),
    [
        ({"era_id": "e2"}, {"signal_diverse"}),
        ({"era_id": "e"}, set()),
        ({"eval_type": "strategy"}, {"strategy_core", "strategy_timed"}),
        ({"passed_only": True}, {"signal_core", "other"}),
        ({"named_universe": "u"}, {"in_universe"}),
        ({"metaparameters": {"b": [2], "a": 1}}, {"in_universe"}),
        ({"metaparameters": {"a": 1}}, set()),
        ({"metaparameters": "text"}, {"other"}),
        ({"strategy_pool_id": "timed"}, {"strategy_timed"}),
        ({"signal_pool_id": "core"}, {"signal_core"}),
        ({"strategy_signal_pool": "core"}, {"strategy_core"}),
        (
            {"signal_pool_id": "core", "strategy_signal_pool": "core"},
            {"signal_core", "strategy_core"},
        ),
        (
            {"signal_pool_id": "core", "strategy_signal_pool": "core", "eval_type": "signal"},
            {"signal_core"},
        ),
        ({"passed_only": True, "named_universe": "v"}, {"other"}),
        ({"passed_only": True, "named_universe": "u"}, set()),
        ({"named_universe": "u' OR '1'='1"}, set()),
    ],
    ids=lambda value: str(sorted(value) if isinstance(value, set) else value),
)
def test_history_holds_what_passes_every_filter(
    tracker: Any, filters: dict[str, Any], expected: set[str]
) -> None:
    for eval_id, values in FILTERED:
        tracker.record_evaluation(evaluation(eval_id, **values))
    assert set(found(tracker, **filters)) == expected


def test_eras_and_universes_are_distinct_and_sorted(tracker: Any) -> None:
    universes = ("b", "B", None, "a", "b", "Ä")
    for number, universe in enumerate(universes):
        tracker.record_evaluation(
            evaluation(str(number), era_id=f"e{number % 2}", named_universe=universe)
        )
    assert tracker.get_available_eras() == ["e0", "e1"]
    assert tracker.get_available_named_universes() == ["B", "a", "b", "Ä"]


def test_an_empty_tracker_has_no_history_eras_or_universes(tracker: Any) -> None:
    assert tracker.get_evaluation_history() == []
    assert tracker.get_available_eras() == []
    assert tracker.get_available_named_universes() == []


@pytest.mark.parametrize(
    ("eval_type", "pool", "table"),
    [
        ("signal", "signal_pool_id", "signal_submission_status"),
        ("strategy", "strategy_signal_pool", "strategy_submission_status"),
    ],
)
def test_statuses_are_kept_in_the_order_of_recording(
    tracker: Any, eval_type: str, pool: str, table: str
) -> None:
    record = evaluation("a", eval_type=eval_type, **{pool: "core"})
    tracker.record_submission_status(record, "pending")
    tracker.record_submission_status(record, "rejected", rejection_reason="100% wrong?")
    tracker.record_submission_status(record, "useful", useful_flag=True)
    rows = tracker._conn.execute(
        f"SELECT status, useful_flag, rejection_reason, {pool} FROM {table} "
        "WHERE eval_id=? ORDER BY status_id",
        ("a",),
    ).fetchall()
    assert rows == [
        ("pending", None, None, "core"),
        ("rejected", None, "100% wrong?", "core"),
        ("useful", 1, None, "core"),
    ]


def test_after_a_failed_statement_the_tracker_goes_on(tracker: Any) -> None:
    tracker.record_evaluation(evaluation("a"))
    with pytest.raises(Exception, match=r"(?i)unique"):
        tracker.record_evaluation(evaluation("a"))
    with pytest.raises(Exception, match="no_such_table"):
        tracker._conn.execute("SELECT 1 FROM no_such_table", ())
    tracker.record_evaluation(evaluation("b"))
    assert set(found(tracker)) == {"a", "b"}


def test_a_closed_tracker_says_so(tracker: Any) -> None:
    tracker.close()
    tracker.close()
    with pytest.raises(Exception, match="closed"):
        tracker.get_evaluation_history()


def test_stored_evaluations_outlive_the_tracker(
    kestrune: Any, tmp_path: Path, database_url: str
) -> None:
    from kestrune.search_tracking import SearchTracker

    for url in ("", database_url):
        with SearchTracker(tmp_path, url) as tracker:
            tracker.record_evaluation(evaluation("a"))
        with SearchTracker(tmp_path, url) as tracker:
            assert found(tracker) == ["a"]
