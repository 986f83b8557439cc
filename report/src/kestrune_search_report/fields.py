"""The fields of an evaluation: what each holds, what it is for, and which have to be there."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Literal

Kind = Literal["text", "number", "integer", "flag", "time", "names", "mapping", "any"]


@dataclass(frozen=True)
class Field:
    """One field of an evaluation, by the name that an evaluation's attribute has."""

    name: str
    kind: Kind
    needed: bool
    purpose: str
    """What the field says and which question reads it."""


_STATS = "get_search_stats, get_suggestions"

FIELDS: tuple[Field, ...] = (
    Field("eval_id", "text", False, "the evaluation's name; its number in the source otherwise"),
    Field("eval_type", "text", False, '"signal" or "strategy": a filter, get_yield_analysis'),
    Field("era_id", "text", False, "a filter, the time window ERA, get_available_eras"),
    Field("timestamp", "time", True, "when it ran: every time window, velocity and trend"),
    Field("named_universe", "text", False, "a filter, get_available_named_universes"),
    Field("metaparameters", "any", False, "a filter"),
    Field("submitted", "flag", False, "the evaluation pool SUBMITTED"),
    Field("passed_thresholds", "flag", True, "whether it passed: every yield"),
    Field("sharpe", "number", True, f"the Sharpe ratio, per year: {_STATS}"),
    Field("returns", "number", True, f"the return, as a fraction: {_STATS}"),
    Field("turnover", "number", True, f"the share traded, as a fraction: {_STATS}"),
    Field("drawdown", "number", True, f"the deepest fall, as a fraction: {_STATS}"),
    Field("correlation", "number", True, f"the correlation to the pool, -1 to 1: {_STATS}"),
    Field("per_column_stats", "mapping", False, "figures by profit column: the column argument"),
    Field("function_metadata", "names", False, "functions with families, in place of functions"),
    Field("functions", "names", True, "names of the functions used: groups, families, pairs"),
    Field("feature_metadata", "names", False, "features with families, in place of features"),
    Field("features", "names", False, "names of the features used: groups"),
    Field("tree_depth", "integer", False, "depth of the expression tree: get_search_patterns"),
    Field("strategy_pool_id", "text", False, "a filter"),
    Field("signal_pool_id", "text", False, "a filter"),
    Field("strategy_signal_pool", "text", False, "a filter"),
    Field("is_correlation", "number", False, "get_yield_analysis"),
    Field("is_pnl_mi", "number", False, "the server's measure: signs of tampering"),
    Field("agent_is_pnl_mi", "number", False, "the agent's measure: signs of tampering"),
    Field("rejection_reason", "text", False, "get_yield_analysis, signs of tampering"),
    Field("failure_reason", "text", False, "get_yield_analysis, signs of tampering"),
    Field("failure_detail", "text", False, "get_yield_analysis, signs of tampering"),
    # What became of a submission. A tracker keeps it in tables of its own.
    Field("status", "text", False, "latest status of the submission: get_yield_analysis"),
    Field("useful_flag", "flag", False, "whether the submission was useful: get_yield_analysis"),
    Field("status_rejection_reason", "text", False, "why the submission was rejected"),
    Field("status_pool", "text", False, "the pool that the submission went to"),
)

BY_NAME = {field.name: field for field in FIELDS}
STATUS_FIELDS = ("status", "useful_flag", "status_rejection_reason", "status_pool")
# Either will do: a record with metadata needs no bare names.
ALTERNATIVES = {"functions": "function_metadata", "features": "feature_metadata"}
MEASURES = ("sharpe", "returns", "turnover", "drawdown", "correlation")
