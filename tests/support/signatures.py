"""Every function of the module as an ordinary `def` would declare it, and that `def` itself."""

from __future__ import annotations

from types import FunctionType
from typing import Any

from support.parts import FIRST_FILTERS, POOL_FILTERS, SETTING_FILTERS, USAGE_FILTERS


def _none(names: tuple[str, ...]) -> str:
    """The parameters of those names, which are None by default."""
    return ", ".join(f"{name}=None" for name in names)


_FILTERS = _none(FIRST_FILTERS)
_POOLS = _none(POOL_FILTERS)
_DIMENSION = "aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY"
_EVERY_POOL = "eval_pool=EvalPool.ALL"

# Parameters and return annotation of what stands both on the engine and in the module.
OPERATIONS = {
    "get_search_stats": (
        f"{_FILTERS}, {_POOLS}, {_DIMENSION}, {_EVERY_POOL}, time_windows=None, pnl_column=None, "
        "min_sample_size=100, sort_ascending=False",
        "SearchStatsResult",
    ),
    "get_suggestions": (
        f"{_FILTERS}, {_POOLS}, {_DIMENSION}, pnl_column=None, min_sample_size=100, top_n=10",
        "SuggestionsResult",
    ),
    "get_available_eras": ("", "list"),
    "get_available_named_universes": ("", "list"),
    "get_available_aggregations": ("", "list"),
    "get_search_patterns": (f"{_FILTERS}, {_POOLS}, {_EVERY_POOL}", "SearchPatternsResult"),
    "get_search_velocity": (f"{_FILTERS}, {_POOLS}, windows=None", "SearchVelocityResult"),
    "get_yield_analysis": (
        f"{_FILTERS}, recent_window_minutes=360, {_POOLS}",
        "YieldAnalysisResult",
    ),
    "get_correlation_patterns": (f"{_FILTERS}, {_POOLS}, top_n=20", "CorrelationPatternsResult"),
}

# The module's private helpers, in the order of the module body.
HELPERS = {
    "_alias_source_file": "",
    "_tracker_table_exists": "conn, table_name",
    "_submission_status_table_and_signal_column": "eval_type",
    "_pnl_mi_tamper_delta": "agent_value, server_value",
    "_get_attr_or_item": "value, key, default=None",
    "_unwrap_era_config": "value",
    "_candidate_era_configs": "onboarding_config, active_handle=None, runtime=None",
    "_runtime_from_onboarding": "onboarding_mod",
    "_extract_raw_pools": "era_config",
    "_normalize_pool_config": "pool, index",
    "_iter_pool_configs": "raw_pools",
    "_usage_items": "record, metadata_attr, names_attr, name_key",
    "_function_items": "record",
    "_feature_items": "record",
    "_usage_value": "item, key, name_key",
    "_resolve_pool_configs": "onboarding_config, active_handle=None, runtime=None",
    "_auth_from_onboarding_or_search": "onboarding_mod",
    "_require_registered_or_logged_in": "onboarding_mod",
    "_active_search_handle": "",
    "_tracker_from_config": "onboarding_config",
    "_resolve_tracker_and_pools": "onboarding_mod",
}

# The engine's methods that are not operations.
METHODS = {
    "__init__": "search_tracker, pool_configs",
    "_validate_eval_type": "eval_type",
    "_fetch_evaluations": (
        f"{_none(SETTING_FILTERS)}, {_EVERY_POOL}, {_none(USAGE_FILTERS)}, {_POOLS}"
    ),
    "_build_group_key": "ev, aggregate_by",
    "_get_stat": "ev, pnl_column, stat_name",
    "_filter_by_time_window": "evals, tw, era_id, now",
}


def _declarations() -> dict[str, tuple[str, str | None]]:
    """Qualified name to (parameters, return annotation), in the order of the module body."""
    rows: dict[str, tuple[str, str | None]] = {name: (text, None) for name, text in HELPERS.items()}
    for name, text in METHODS.items():
        rows[f"SearchAnalytics.{name}"] = (f"self, {text}", None)
    for name, (text, annotation) in OPERATIONS.items():
        rows[f"SearchAnalytics.{name}"] = (", ".join(filter(None, ("self", text))), annotation)
    rows["_get_or_init"] = ("", "SearchAnalytics")
    rows.update(OPERATIONS)
    return rows


DECLARATIONS = _declarations()


def function(module: Any, qualified_name: str) -> Any:
    """The function of `module` with that qualified name."""
    found = module
    for part in qualified_name.split("."):
        found = getattr(found, part)
    return found


def ordinary(module: Any, qualified_name: str, body: str = "pass") -> FunctionType:
    """An ordinary `def` with the same name, qualified name, parameters and annotation."""
    parameters, annotation = DECLARATIONS[qualified_name]
    scope, _, name = qualified_name.rpartition(".")
    arrow = f" -> {annotation!r}" if annotation else ""
    source = f"def {name}({parameters}){arrow}: {body}"
    if scope:
        source = f"class {scope}:\n    {source}"
    namespace: dict[str, Any] = {
        "__name__": module.__name__,
        "AggregateBy": module.AggregateBy,
        "EvalPool": module.EvalPool,
    }
    exec(compile(source, "<ordinary>", "exec", dont_inherit=True), namespace)
    found = namespace[scope] if scope else namespace[name]
    return vars(found)[name] if scope else found
