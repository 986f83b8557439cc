"""The nine questions by name: what an answer to each looks like, table by table."""

from __future__ import annotations

from dataclasses import dataclass

from kestrune_search_report.table import Column, ColumnKind

VERSION = 1


@dataclass(frozen=True)
class Shape:
    """What an answer holds: the columns of its one-row summary, and of each of its tables."""

    question: str
    summary: tuple[Column, ...]
    tables: dict[str, tuple[Column, ...]]
    pool_columns: bool = False
    """Whether its table has one more column for each signal pool, "submittable_yield:POOL"."""


def columns(*texts: str) -> tuple[Column, ...]:
    """Return columns, each written as "name kind what it says"."""
    found: list[Column] = []
    for text in texts:
        name, kind, meaning = text.split(maxsplit=2)
        kinds: dict[str, ColumnKind] = {
            "text": "text",
            "integer": "integer",
            "number": "number",
            "flag": "flag",
            "texts": "texts",
        }
        found.append(Column(name, kinds[kind], meaning))
    return tuple(found)


_COUNTS = (
    "total_evaluations integer evaluations read",
    "total_passed integer of those, passed",
)
_GROUP = (
    "rank integer place in the order of the answer, from 1",
    "functions texts names that the group's functions share, sorted",
    "features texts names that the group's features share, sorted",
    "group_evaluations integer evaluations of the group, whatever the window",
    "window text time window: lifetime, era, last_week or last_24h",
    "evaluation_count integer evaluations of the group in the window",
    "sharpe number mean Sharpe ratio, in the source's unit",
    "returns number mean return, in the source's unit",
    "turnover number mean turnover, in the source's unit",
    "drawdown number mean drawdown, in the source's unit",
    "correlation number mean correlation to the pool's members, -1 to 1",
    "yield_rate number share that passed, 0 to 1",
    "composite_score number sharpe * (1 - correlation) * (1 / max(turnover, 0.01)), of the means",
)
_RATIONALE = (
    "eval_type text signal or strategy",
    "eval_id text the evaluation's name",
    "strategy_pool_id text the pool that a strategy was meant for",
    "signal_pool_id text the pool of a signal",
    "strategy_signal_pool text the pool that a strategy is built on",
    "status text latest status of the submission",
    "useful_flag flag whether the submission was useful",
    "rejection_reason text why it was rejected",
    "is_correlation number in-sample correlation",
    "is_pnl_mi number the server's measure",
    "agent_is_pnl_mi number the agent's own measure",
    "failure_reason text why it failed",
    "failure_detail text more on why it failed",
    "agent_server_is_pnl_mi_delta number how far the two measures are apart; nothing if they agree",
)

SHAPES: dict[str, Shape] = {
    shape.question: shape
    for shape in (
        Shape(
            "get_search_stats",
            columns(
                "aggregate_by text how finely evaluations are grouped",
                "eval_pool text which evaluations are included: all, passed or submitted",
                "total_evaluations integer evaluations read",
                "total_groups integer groups formed, those too small to show included",
                "groups_shown integer groups in the table",
            ),
            {"groups": columns(*_GROUP)},
            pool_columns=True,
        ),
        Shape(
            "get_suggestions",
            columns(
                "aggregate_by text how finely evaluations are grouped",
                "scoring_formula text the composite score in words",
            ),
            {"groups": columns("advice text focus or avoid", *_GROUP)},
            pool_columns=True,
        ),
        Shape("get_available_eras", (), {"eras": columns("era_id text an era")}),
        Shape(
            "get_available_named_universes",
            (),
            {"named_universes": columns("named_universe text a named universe")},
        ),
        Shape(
            "get_available_aggregations",
            (),
            {
                "aggregations": columns(
                    "aggregate_by text name of the grouping",
                    "function_level text level of functions; nothing for the exact sets",
                    "feature_level text level of features; nothing for the exact sets",
                )
            },
        ),
        Shape(
            "get_search_patterns",
            columns(*_COUNTS),
            {
                "depths": columns(
                    "depth integer depth of the expression tree",
                    "total integer evaluations at this depth",
                    "passed integer of those, passed",
                    "yield_rate number passed / total, 0 to 1",
                ),
                "families": columns(
                    "function_family text function family",
                    "total integer evaluations that use it",
                    "passed integer of those, passed",
                    "yield_rate number passed / total, 0 to 1",
                ),
            },
        ),
        Shape(
            "get_search_velocity",
            columns("trend text rising, declining, stable or insufficient_data"),
            {
                "windows": columns(
                    "window_minutes number length of the window in minutes",
                    "evaluations_per_hour number evaluations for each hour of it",
                    "passes_per_hour number passes for each hour of it",
                    "total_evaluations integer evaluations in it",
                    "total_passed integer of those, passed",
                )
            },
        ),
        Shape(
            "get_yield_analysis",
            columns(
                "lifetime_yield_rate number share of all evaluations that passed, 0 to 1",
                "recent_yield_rate number share of the recent ones that passed, 0 to 1",
                "trend text improving, declining, stable or insufficient_data",
                "recent_window_minutes number length of the recent window in minutes",
                *_COUNTS,
                "diminishing_returns flag whether the recent yield is below half the lifetime's",
                "useful_evaluations integer evaluations whose submission was useful",
                "not_useful_evaluations integer evaluations whose submission was not",
                "usefulness_unknown_evaluations integer evaluations of which nothing is known",
                "tamper_candidate_count integer evaluations that look tampered with",
            ),
            {
                "tamper_candidates": columns(
                    *_RATIONALE, "tamper_reasons texts what makes it suspect, sorted"
                ),
                "rationale": columns(*_RATIONALE),
            },
        ),
        Shape(
            "get_correlation_patterns",
            columns(
                "total_evaluations integer evaluations read",
                "total_passing_evaluations integer of those, passed",
            ),
            {
                "pairs": columns(
                    "function_a text the function whose name sorts first",
                    "function_b text the other one",
                    "total_cooccurrences integer evaluations that use both",
                    "passed_cooccurrences integer of those, passed",
                    "lift number their share of passes over the share of all",
                )
            },
        ),
    )
}

QUESTIONS = tuple(SHAPES)
POOL_PREFIX = "submittable_yield:"
