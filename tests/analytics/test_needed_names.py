"""Names of the module are looked up where an answer needs them, and nowhere else."""

from __future__ import annotations

from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import AggregateBy, TimeWindow
from support.parts import NOW, engine_over, evaluation, pool, using

pytestmark = pytest.mark.usefixtures("now")

HELPERS = ("_usage_value", "_function_items", "_feature_items", "_usage_items")
MAPS = ("_FUNC_KEY_MAP", "_FEAT_KEY_MAP")
ROWS = ("WindowStats", "StatsRow")
LIFETIME = [TimeWindow.LIFETIME]
BY_NAME = {"min_sample_size": 0, "aggregate_by": AggregateBy.NONE}

NO_RECORDS: list[SimpleNamespace] = []
RECORDS = [evaluation()]
NAMELESS = [evaluation(function_metadata=[], functions=[], feature_metadata=[], features=[])]
UNSUBMITTED = [evaluation(eval_type="other", is_pnl_mi=None)]


# What is asked of which records, and the names that the answer does not need.
SPARED = {
    "statistics of nothing": (
        ("get_search_stats", NO_RECORDS, {"time_windows": LIFETIME}),
        ("TimeWindow", "AggregateBy", "time", *HELPERS, *MAPS, *ROWS),
    ),
    "statistics of small groups": (("get_search_stats", RECORDS, {}), ROWS),
    "statistics by names": (("get_search_stats", RECORDS, BY_NAME), MAPS),
    "statistics of nameless records": (
        ("get_search_stats", NAMELESS, {"min_sample_size": 0}),
        ("_usage_value",),
    ),
    "suggestions of small groups": (("get_suggestions", RECORDS, {}), ROWS),
    "patterns of nothing": (
        ("get_search_patterns", NO_RECORDS, {}),
        ("DepthBucket", "FamilyYield", *HELPERS),
    ),
    "patterns of nameless records": (
        ("get_search_patterns", NAMELESS, {}),
        ("FamilyYield", "_usage_value", "_feature_items"),
    ),
    "velocity": (("get_search_velocity", RECORDS, {}), (*HELPERS, *MAPS, "TimeWindow")),
    "yield of nothing": (
        ("get_yield_analysis", NO_RECORDS, {}),
        ("time", "_pnl_mi_tamper_delta", "_submission_status_table_and_signal_column"),
    ),
    "yield of what is not submitted": (
        ("get_yield_analysis", UNSUBMITTED, {}),
        ("_tracker_table_exists", "math"),
    ),
    "correlations of nothing": (
        ("get_correlation_patterns", NO_RECORDS, {}),
        ("FunctionPairPattern", *HELPERS),
    ),
    "correlations of lonely functions": (
        ("get_correlation_patterns", [using("alone")], {}),
        ("FunctionPairPattern",),
    ),
}


@pytest.mark.parametrize(
    ("asked", "name"),
    [
        pytest.param(asked, name, id=f"{title}-{name}")
        for title, (asked, names) in SPARED.items()
        for name in names
    ],
)
def test_a_name_that_is_not_needed_is_not_missed(monkeypatch, asked, name):
    operation, records, arguments = asked
    expected = getattr(engine_over(records), operation)(**arguments)
    monkeypatch.delattr(search_analytics, name)
    assert getattr(engine_over(records), operation)(**arguments) == expected


def reading(log, **fields):
    """A record that logs the reads of its attributes."""

    class Record:
        def __getattr__(self, name):
            log.append(name)
            return vars(evaluation(**fields))[name]

    return Record()


STATISTICS = [
    *("per_column_stats", "sharpe", "returns", "drawdown", "turnover", "correlation"),
    "passed_thresholds",
]


@pytest.mark.parametrize("name", ["AggregateBy", *MAPS])
def test_statistics_read_a_record_before_they_miss_a_name_of_its_key(monkeypatch, name):
    log = []
    clock = SimpleNamespace(time=lambda: log.append("clock") or NOW)
    monkeypatch.setattr(search_analytics, "time", clock)
    monkeypatch.delattr(search_analytics, name)
    with pytest.raises(NameError, match=f"'{name}'"):
        engine_over([reading(log)], pool("main", 0.5)).get_search_stats()
    assert log == ["clock", *STATISTICS]


def test_statistics_make_the_windows_before_they_miss_the_row(monkeypatch):
    made = []
    original = search_analytics.WindowStats
    monkeypatch.setattr(
        search_analytics,
        "WindowStats",
        lambda **fields: made.append(fields["window"]) or original(**fields),
    )
    monkeypatch.delattr(search_analytics, "StatsRow")
    with pytest.raises(NameError, match="'StatsRow'"):
        engine_over(RECORDS).get_search_stats(min_sample_size=0)
    assert made == list(TimeWindow)


def test_velocity_counts_a_window_before_it_misses_its_record(monkeypatch):
    log = []
    monkeypatch.delattr(search_analytics, "VelocityWindow")
    with pytest.raises(NameError, match="'VelocityWindow'"):
        engine_over([reading(log)]).get_search_velocity(windows=[1, 2])
    assert log == ["timestamp", "passed_thresholds"]


def test_depths_are_sorted_before_their_record_is_missed(monkeypatch):
    monkeypatch.delattr(search_analytics, "DepthBucket")
    with pytest.raises(TypeError, match="'<' not supported"):
        engine_over([evaluation(tree_depth=depth) for depth in (1, "a")]).get_search_patterns()
