"""Every operation gives the same answer over the same records on SQLite and on PostgreSQL."""

from __future__ import annotations

from typing import Any

import pytest

NOW = 1_700_000_000.0
POOLS = [
    {"name": "core", "is_correlation_threshold": 0.7, "os_correlation_threshold": 0.8},
    {"name": "diverse", "is_correlation_threshold": 0.4, "os_correlation_threshold": 0.6},
]

# Operation and arguments; each is asked of both databases.
QUESTIONS = [
    ("get_available_eras", {}),
    ("get_available_named_universes", {}),
    ("get_available_aggregations", {}),
    ("get_search_stats", {"min_sample_size": 0}),
    ("get_search_stats", {"min_sample_size": 2, "pnl_column": "net_returns", "era_id": "2012"}),
    ("get_search_stats", {"min_sample_size": 1, "metaparameters": {"hold_days": 5}}),
    ("get_search_stats", {"min_sample_size": 0, "feature_family": "volume"}),
    ("get_suggestions", {"min_sample_size": 1, "top_n": 50}),
    ("get_suggestions", {"min_sample_size": 0, "eval_type": "signal", "signal_pool_id": "core"}),
    ("get_search_patterns", {}),
    ("get_search_patterns", {"named_universe": "platforms", "function_family": "trend"}),
    ("get_search_velocity", {}),
    ("get_search_velocity", {"windows": [30, 10080, 40000]}),
    ("get_yield_analysis", {}),
    ("get_yield_analysis", {"eval_type": "strategy", "signal_pool_id": "diverse"}),
    ("get_yield_analysis", {"strategy_pool_id": "timed_signals", "recent_window_minutes": 9000}),
    ("get_correlation_patterns", {"top_n": 1000}),
    ("get_correlation_patterns", {"strategy_signal_pool": "core"}),
]


@pytest.fixture
def engines(both_trackers: dict[str, Any], monkeypatch: pytest.MonkeyPatch) -> list[Any]:
    """An engine on each database, over the same search of 250 candidates, at the same moment."""
    import kestrune.search_analytics as analytics
    from demo.prices import load_prices
    from demo.searching import Search

    search = Search(load_prices(), {"signal_pools": POOLS}, seed=4, count=250, end=NOW)
    for evaluation, fate in search.run():
        for tracker in both_trackers.values():
            tracker.record_evaluation(evaluation)
            for verdict in fate:
                tracker.record_submission_status(evaluation, verdict.status, **verdict.details)
    monkeypatch.setattr(analytics.time, "time", lambda: NOW)
    pools = [analytics._normalize_pool_config(pool, 0) for pool in POOLS]
    return [analytics.SearchAnalytics(tracker, pools) for tracker in both_trackers.values()]


def shown(answer: Any) -> str:
    """Return an answer to the last bit, its sets in an order of their own."""
    for row in (
        *getattr(answer, "rows", ()),
        *getattr(answer, "focus", ()),
        *getattr(answer, "avoid", ()),
    ):
        if not isinstance(row.group_key[0], list):
            row.group_key = tuple(sorted(side) for side in row.group_key)
    return repr(answer)


def test_both_databases_give_the_same_answers(engines: list[Any]) -> None:
    sqlite, postgres = engines
    for operation, arguments in QUESTIONS:
        answers = [getattr(engine, operation)(**arguments) for engine in (sqlite, postgres)]
        assert shown(answers[0]) == shown(answers[1]), (operation, arguments)
        assert getattr(answers[0], "total_evaluations", 1) > 0, (operation, arguments)


def test_submissions_are_judged_the_same(engines: list[Any]) -> None:
    counts = []
    for engine in engines:
        answer = engine.get_yield_analysis()
        statuses = {record["status"] for record in answer.usefulness_rationale}
        assert statuses >= {None, "pending", "useful", "not_useful", "rejected"}
        counts.append((answer.useful_evaluations, answer.not_useful_evaluations))
        reasons = {
            reason for found in answer.tamper_candidates for reason in found["tamper_reasons"]
        }
        assert reasons == {"agent_server_is_pnl_mi_mismatch", "failure_marked_tampering"}
    assert counts[0] == counts[1]
    assert min(counts[0]) > 0


def test_without_status_tables_nothing_is_known_of_usefulness(engines: list[Any]) -> None:
    answers = []
    for engine in engines:
        for table in ("signal_submission_status", "strategy_submission_status"):
            engine._tracker._conn.execute(f"DROP TABLE {table}", ())
        answer = engine.get_yield_analysis()
        assert answer.usefulness_unknown_evaluations == answer.total_evaluations == 250
        answers.append(repr(answer))
    assert answers[0] == answers[1]
