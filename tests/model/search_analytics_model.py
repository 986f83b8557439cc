"""Search analytics subcomponent — aggregated statistics, suggestions, patterns."""

import os as _os
import sys as _sys
import time
import math
from dataclasses import dataclass, field
from enum import Enum
from types import SimpleNamespace
from typing import List, Optional, Tuple, FrozenSet

# This file is the oracle of the differential tests: the module written as plain Python, one
# namespace, nothing clever. The compiled module must give the same answers to the last bit, so
# helpers are called through module globals and methods through `self`, as any caller may patch.
# Names are bound in the order in which the compiled module binds them. What counts as a dict, a
# string or a number is decided by the type: `isinstance` would believe a proxy's `__class__`, too.
#
# ruff: noqa: B023, C420, I001, SIM300, SIM401, UP006, UP024, UP035, UP045


def _alias_source_file():
    """Expose the adjacent source-text path for tests that inspect source text."""
    resolved = globals().get("__file__")
    if not resolved:
        return
    if ".cpp" in resolved:
        return
    suffix = ".cpython-"
    idx = resolved.find(suffix)
    if idx == -1:
        return
    source_file = resolved[:idx] + ".cpp"
    if not _os.path.isfile(source_file):
        return
    globals()["__file__"] = source_file
    module = _sys.modules.get(__name__)
    if module is not None:
        module.__file__ = source_file


_alias_source_file()

_DEFAULT_ANALYTICS_HISTORY_LIMIT = 10000


def _tracker_table_exists(conn, table_name):
    if conn is None:
        return False
    if getattr(conn, "dialect", None) == "postgres":
        row = conn.execute("SELECT to_regclass(?)", (table_name,)).fetchone()
        return row is not None and row[0] is not None
    row = conn.execute(
        "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?", (table_name,)
    ).fetchone()
    return row is not None


def _submission_status_table_and_signal_column(eval_type):
    if eval_type == "strategy":
        return "strategy_submission_status", "strategy_signal_pool"
    if eval_type == "signal":
        return "signal_submission_status", "signal_pool_id"
    return None, None


def _pnl_mi_tamper_delta(agent_value, server_value):
    if agent_value is None or server_value is None:
        return None
    try:
        agent = float(agent_value)
        server = float(server_value)
    except (TypeError, ValueError):
        return None
    if agent == 0.0:
        return None
    if not math.isfinite(server):
        return None
    if not math.isfinite(agent):
        return float("inf")
    delta = abs(agent - server)
    return delta if delta > 1e-9 else None


class AggregateBy(Enum):
    """Aggregation dimension for search stats.

    Each member defines a (function_level, feature_level) pair that determines
    how evaluation functions and features are grouped.
    """

    FUNCTION_FAMILY_FEATURE_FAMILY = ("function_family", "feature_family")
    FUNCTION_FAMILY_FEATURE_SUBFAMILY = ("function_family", "feature_subfamily")
    FUNCTION_FAMILY_FEATURE = ("function_family", "feature")
    FUNCTION_SUBFAMILY_FEATURE_FAMILY = ("function_subfamily", "feature_family")
    FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY = ("function_subfamily", "feature_subfamily")
    FUNCTION_SUBFAMILY_FEATURE = ("function_subfamily", "feature")
    FUNCTION_FEATURE_FAMILY = ("function", "feature_family")
    FUNCTION_FEATURE_SUBFAMILY = ("function", "feature_subfamily")
    FUNCTION_FEATURE = ("function", "feature")
    NONE = None


class EvalPool(Enum):
    """Which evaluations to include."""

    ALL = "all"
    PASSED = "passed"
    SUBMITTED = "submitted"


class TimeWindow(Enum):
    """Time window for filtering evaluations."""

    LIFETIME = "lifetime"
    ERA = "era"
    LAST_WEEK = "last_week"
    LAST_24H = "last_24h"


@dataclass
class WindowStats:
    """Stats for a single time window within a group."""

    window: "str" = ""
    sharpe: "float" = 0.0
    returns: "float" = 0.0
    turnover: "float" = 0.0
    drawdown: "float" = 0.0
    correlation: "float" = 0.0
    yield_rate: "float" = 0.0
    submittable_yield: "dict" = field(default_factory=dict)
    composite_score: "float" = 0.0
    evaluation_count: "int" = 0


@dataclass
class StatsRow:
    """Single row in search stats result."""

    group_key: "Tuple[FrozenSet[str], FrozenSet[str]]" = field(
        default_factory=lambda: (frozenset(), frozenset())
    )
    windows: "List[WindowStats]" = field(default_factory=list)
    evaluation_count: "int" = 0


@dataclass
class SearchStatsResult:
    """Result from get_search_stats()."""

    rows: "List[StatsRow]" = field(default_factory=list)
    aggregate_by: "Optional[object]" = None
    eval_pool: "Optional[object]" = None
    filters_applied: "dict" = field(default_factory=dict)
    total_evaluations: "int" = 0
    total_groups: "int" = 0
    groups_shown: "int" = 0


@dataclass
class SuggestionsResult:
    """Result from get_suggestions()."""

    focus: "List[StatsRow]" = field(default_factory=list)
    avoid: "List[StatsRow]" = field(default_factory=list)
    aggregate_by: "Optional[object]" = None
    scoring_formula: "str" = ""


@dataclass
class DepthBucket:
    """Depth distribution bucket."""

    depth: "int" = 0
    total: "int" = 0
    passed: "int" = 0
    yield_rate: "float" = 0.0


@dataclass
class FamilyYield:
    """Yield for a function family."""

    function_family: "str" = ""
    total: "int" = 0
    passed: "int" = 0
    yield_rate: "float" = 0.0


@dataclass
class SearchPatternsResult:
    """Result from get_search_patterns()."""

    depth_distribution: "List[DepthBucket]" = field(default_factory=list)
    family_yield_rates: "List[FamilyYield]" = field(default_factory=list)
    total_evaluations: "int" = 0
    total_passed: "int" = 0


@dataclass
class VelocityWindow:
    """Velocity for a time window."""

    window_minutes: "int" = 0
    evaluations_per_hour: "float" = 0.0
    passes_per_hour: "float" = 0.0
    total_evaluations: "int" = 0
    total_passed: "int" = 0


@dataclass
class SearchVelocityResult:
    """Result from get_search_velocity()."""

    windows: "List[VelocityWindow]" = field(default_factory=list)
    trend: "str" = ""


@dataclass
class YieldAnalysisResult:
    """Result from get_yield_analysis()."""

    lifetime_yield_rate: "float" = 0.0
    recent_yield_rate: "float" = 0.0
    trend: "str" = ""
    recent_window_minutes: "int" = 0
    total_evaluations: "int" = 0
    total_passed: "int" = 0
    diminishing_returns: "bool" = False
    useful_evaluations: "int" = 0
    not_useful_evaluations: "int" = 0
    usefulness_unknown_evaluations: "int" = 0
    tamper_candidate_count: "int" = 0
    usefulness_rationale: "List[dict]" = field(default_factory=list)
    tamper_candidates: "List[dict]" = field(default_factory=list)


@dataclass
class FunctionPairPattern:
    """Co-occurrence pattern for function pairs."""

    function_a: "str" = ""
    function_b: "str" = ""
    total_cooccurrences: "int" = 0
    passed_cooccurrences: "int" = 0
    lift: "float" = 0.0


@dataclass
class CorrelationPatternsResult:
    """Result from get_correlation_patterns()."""

    pairs: "List[FunctionPairPattern]" = field(default_factory=list)
    total_passing_evaluations: "int" = 0
    total_evaluations: "int" = 0


_FUNC_KEY_MAP = {
    "function_family": "function_family",
    "function_subfamily": "function_subfamily",
    "function": "function_name",
}

_FEAT_KEY_MAP = {
    "feature_family": "feature_family",
    "feature_subfamily": "feature_subfamily",
    "feature": "feature_name",
}

_AUTH_REQUIRED_MESSAGE = "No wallet initialized. Call register() or login() first."


def _get_attr_or_item(value, key, default=None):
    if issubclass(type(value), dict):
        return value.get(key, default)
    return getattr(value, key, default)


def _unwrap_era_config(value):
    if value is None:
        return None
    if issubclass(type(value), dict) and issubclass(type(value.get("era_config")), dict):
        return value["era_config"]
    to_dict = getattr(value, "to_dict", None)
    if callable(to_dict):
        return to_dict()
    return value


def _candidate_era_configs(onboarding_config, active_handle=None, runtime=None):
    for key in ("era_config", "current_era_config", "synced_era_config", "era"):
        if issubclass(type(onboarding_config), dict) and key in onboarding_config:
            yield _unwrap_era_config(onboarding_config.get(key))
    if issubclass(type(onboarding_config), dict):
        yield _unwrap_era_config(onboarding_config)
    if active_handle is not None:
        yield _unwrap_era_config(getattr(active_handle, "_era_config", None))
    if runtime is not None:
        yield _unwrap_era_config(getattr(runtime, "era_config", None))


def _runtime_from_onboarding(onboarding_mod):
    try:
        from kestrune import _runtime

        runtime = _runtime.get_runtime()
    except Exception:
        runtime = None
    if runtime is not None:
        return runtime
    bootstrap = getattr(onboarding_mod, "ensure_runtime_bootstrapped", None)
    if not callable(bootstrap):
        return None
    try:
        return bootstrap(strict=False)
    except Exception:
        return None


def _extract_raw_pools(era_config):
    unwrapped = _unwrap_era_config(era_config)
    if unwrapped is None:
        return None
    return _get_attr_or_item(unwrapped, "signal_pools", None)


def _normalize_pool_config(pool, index):
    if not issubclass(type(pool), dict) and not hasattr(pool, "is_correlation_threshold"):
        raise ValueError("era pool configs must expose name and is_correlation_threshold.")
    name = _get_attr_or_item(pool, "name", None)
    if not issubclass(type(name), str) or not name:
        raise ValueError("era config signal_pools[" + str(index) + "] must expose non-empty name.")
    threshold = _get_attr_or_item(pool, "is_correlation_threshold", None)
    if threshold is None:
        raise ValueError(
            "era config signal_pools[" + str(index) + "] missing required is_correlation_threshold."
        )
    if issubclass(type(threshold), bool) or not issubclass(type(threshold), (int, float)):
        raise ValueError(
            "era config signal_pools[" + str(index) + "].is_correlation_threshold must be numeric."
        )
    return SimpleNamespace(
        name=name,
        is_correlation_threshold=threshold,
        os_correlation_threshold=_get_attr_or_item(pool, "os_correlation_threshold", None),
    )


def _iter_pool_configs(raw_pools):
    if issubclass(type(raw_pools), dict):
        return list(raw_pools.values())
    return list(raw_pools)


def _usage_items(record, metadata_attr, names_attr, name_key):
    metadata = getattr(record, metadata_attr, None)
    if metadata:
        return metadata
    names = getattr(record, names_attr, None)
    if names:
        if any(issubclass(type(n), dict) for n in names):
            return names
        return [{name_key: n} for n in names]
    return []


def _function_items(record):
    return _usage_items(record, "function_metadata", "functions", "function_name")


def _feature_items(record):
    return _usage_items(record, "feature_metadata", "features", "feature_name")


def _usage_value(item, key, name_key):
    if issubclass(type(item), dict):
        value = item.get(key)
        if value is None:
            value = item.get(name_key)
        return value if value else ""
    return str(item) if key == name_key else ""


def _resolve_pool_configs(onboarding_config, active_handle=None, runtime=None):
    for candidate in _candidate_era_configs(onboarding_config, active_handle, runtime):
        raw_pools = _extract_raw_pools(candidate)
        if raw_pools is None:
            continue
        pools = _iter_pool_configs(raw_pools)
        if not pools:
            raise ValueError("era config must contain non-empty pool configs under 'signal_pools'.")
        return [_normalize_pool_config(p, i) for i, p in enumerate(pools)]
    raise ValueError(
        "era config must contain non-empty pool configs under 'signal_pools'. "
        "Run register() or login(private_key) so the SDK runtime can bootstrap "
        "the active era config before calling analytics."
    )


def _auth_from_onboarding_or_search(onboarding_mod):
    auth = getattr(onboarding_mod, "_auth_manager", None)
    if auth is not None:
        return auth
    search_mod = _sys.modules.get("kestrune.search_templates")
    if search_mod is None:
        try:
            import kestrune.search_templates as search_mod
        except ImportError:
            return None
    return getattr(search_mod, "_auth", None)


def _require_registered_or_logged_in(onboarding_mod):
    from kestrune.auth import AuthError

    auth = _auth_from_onboarding_or_search(onboarding_mod)
    if auth is None or not hasattr(auth, "get_token"):
        raise AuthError(_AUTH_REQUIRED_MESSAGE)
    try:
        token = auth.get_token()
    except Exception as exc:
        raise AuthError(_AUTH_REQUIRED_MESSAGE) from exc
    if not token:
        raise AuthError(_AUTH_REQUIRED_MESSAGE)


def _active_search_handle():
    search_mod = _sys.modules.get("kestrune.search_templates")
    if search_mod is None:
        try:
            import kestrune.search_templates as search_mod
        except ImportError:
            return None
    handles = list(getattr(search_mod, "_active_handles", []))
    for handle in handles:
        if getattr(handle, "_stopped", False):
            continue
        if getattr(handle, "_tracker", None) is not None:
            return handle
    return None


def _tracker_from_config(onboarding_config):
    data_dir = None
    if issubclass(type(onboarding_config), dict):
        data_dir = onboarding_config.get("data_dir")
    if not data_dir:
        raise IOError(
            "Search analytics needs a configured data directory. "
            "Run kestrune.configure(data_dir=...) or register()/login() first."
        )
    data_dir = _os.path.expanduser(data_dir)
    if not _os.path.isdir(data_dir):
        raise IOError(
            "Search analytics data directory does not exist: "
            + str(data_dir)
            + ". Run kestrune.search(...) to initialize local search data, "
            "or configure data_dir to an existing Kestrune data directory."
        )
    from kestrune.search_tracking import SearchTracker

    return SearchTracker(data_dir)


def _resolve_tracker_and_pools(onboarding_mod):
    onboarding_config = getattr(onboarding_mod, "_config", {})
    active_handle = _active_search_handle()
    runtime = None
    if active_handle is None:
        runtime = _runtime_from_onboarding(onboarding_mod)
    tracker = None
    if active_handle is not None:
        tracker = getattr(active_handle, "_tracker", None)
    if tracker is None and runtime is not None:
        tracker = getattr(runtime, "search_tracker", None)
    if tracker is None:
        tracker = _tracker_from_config(onboarding_config)
    pool_configs = _resolve_pool_configs(onboarding_config, active_handle, runtime)
    return tracker, pool_configs


class SearchAnalytics:
    """Analytics engine over search tracking data."""

    def __init__(self, search_tracker, pool_configs):
        if search_tracker is None:
            raise ValueError("search_tracker must not be None.")
        if not pool_configs:
            raise ValueError("pool_configs must be non-empty.")
        for pc in pool_configs:
            threshold = getattr(pc, "is_correlation_threshold", None)
            if (
                issubclass(type(threshold), bool)
                or not issubclass(type(threshold), (int, float))
                or threshold <= 0.0
            ):
                raise ValueError("correlation threshold must be positive.")
        self._tracker = search_tracker
        self._pool_configs = pool_configs

    def _validate_eval_type(self, eval_type):
        if eval_type is not None and eval_type not in ("signal", "strategy"):
            raise ValueError(f"eval_type must be 'signal', 'strategy', or None, got '{eval_type}'.")

    def _fetch_evaluations(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        eval_pool=EvalPool.ALL,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
    ):
        if strategy_signal_pool is None and signal_pool_id is not None:
            strategy_signal_pool = signal_pool_id
            if eval_type == "strategy":
                signal_pool_id = None
        passed_only = eval_pool == EvalPool.PASSED
        evals = self._tracker.get_evaluation_history(
            era_id=era_id,
            eval_type=eval_type,
            passed_only=passed_only,
            limit=_DEFAULT_ANALYTICS_HISTORY_LIMIT,
            named_universe=named_universe,
            metaparameters=metaparameters,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        if eval_pool == EvalPool.SUBMITTED:
            evals = [ev for ev in evals if ev.submitted]
        if (
            function_family is not None
            or function_subfamily is not None
            or feature_family is not None
            or feature_subfamily is not None
        ):
            kept = []
            for ev in evals:
                if function_family is not None and not any(
                    _usage_value(item, "function_family", "function_name") == function_family
                    for item in _function_items(ev)
                ):
                    continue
                if function_subfamily is not None and not any(
                    _usage_value(item, "function_subfamily", "function_name") == function_subfamily
                    for item in _function_items(ev)
                ):
                    continue
                if feature_family is not None and not any(
                    _usage_value(item, "feature_family", "feature_name") == feature_family
                    for item in _feature_items(ev)
                ):
                    continue
                if feature_subfamily is not None and not any(
                    _usage_value(item, "feature_subfamily", "feature_name") == feature_subfamily
                    for item in _feature_items(ev)
                ):
                    continue
                kept.append(ev)
            evals = kept
        return evals

    def _build_group_key(self, ev, aggregate_by):
        if aggregate_by == AggregateBy.NONE:
            function_side = frozenset(
                _usage_value(item, "function_name", "function_name") for item in _function_items(ev)
            )
            feature_side = frozenset(
                _usage_value(item, "feature_name", "feature_name") for item in _feature_items(ev)
            )
            return function_side, feature_side
        function_level, feature_level = aggregate_by.value
        func_key = _FUNC_KEY_MAP[function_level]
        feat_key = _FEAT_KEY_MAP[feature_level]
        function_side = frozenset(
            _usage_value(item, func_key, "function_name") for item in _function_items(ev)
        )
        feature_side = frozenset(
            _usage_value(item, feat_key, "feature_name") for item in _feature_items(ev)
        )
        return function_side, feature_side

    def _get_stat(self, ev, pnl_column, stat_name):
        col = pnl_column if pnl_column is not None else "gross_returns"
        key = col + "_" + stat_name
        if ev.per_column_stats and key in ev.per_column_stats:
            return ev.per_column_stats[key]
        return getattr(ev, stat_name)

    def _filter_by_time_window(self, evals, tw, era_id, now):
        if tw == TimeWindow.LIFETIME:
            return evals
        if tw == TimeWindow.ERA:
            if era_id is None:
                return evals
            return [ev for ev in evals if ev.era_id == era_id]
        if tw == TimeWindow.LAST_WEEK:
            cutoff = now - 604800
            return [ev for ev in evals if ev.timestamp >= cutoff]
        if tw == TimeWindow.LAST_24H:
            cutoff = now - 86400
            return [ev for ev in evals if ev.timestamp >= cutoff]
        return evals

    def get_search_stats(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
        aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
        eval_pool=EvalPool.ALL,
        time_windows=None,
        pnl_column=None,
        min_sample_size=100,
        sort_ascending=False,
    ) -> "SearchStatsResult":
        """Aggregated performance statistics with flexible grouping."""
        self._validate_eval_type(eval_type)
        if min_sample_size < 0:
            raise ValueError("min_sample_size must be >= 0, got " + str(min_sample_size) + ".")
        if time_windows is None:
            time_windows = [
                TimeWindow.LIFETIME,
                TimeWindow.ERA,
                TimeWindow.LAST_WEEK,
                TimeWindow.LAST_24H,
            ]
        else:
            if len(time_windows) == 0:
                raise ValueError("time_windows must be None or a non-empty list.")
            if len(set(time_windows)) != len(time_windows):
                raise ValueError("time_windows must not contain duplicates.")

        col = pnl_column if pnl_column is not None else "gross_returns"
        evals = self._fetch_evaluations(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            eval_pool=eval_pool,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        filters_applied = {}
        for name, value in (
            ("era_id", era_id),
            ("eval_type", eval_type),
            ("named_universe", named_universe),
            ("metaparameters", metaparameters),
            ("strategy_pool_id", strategy_pool_id),
            ("signal_pool_id", signal_pool_id),
            ("strategy_signal_pool", strategy_signal_pool),
            ("function_family", function_family),
            ("function_subfamily", function_subfamily),
            ("feature_family", feature_family),
            ("feature_subfamily", feature_subfamily),
        ):
            if value is not None:
                filters_applied[name] = value
        if not evals:
            return SearchStatsResult(
                rows=[],
                aggregate_by=aggregate_by,
                eval_pool=eval_pool,
                filters_applied=filters_applied,
                total_evaluations=0,
                total_groups=0,
                groups_shown=0,
            )

        sharpe_key = col + "_sharpe"
        returns_key = col + "_returns"
        drawdown_key = col + "_drawdown"
        now = time.time()
        week_cutoff = now - 604800
        day_cutoff = now - 86400

        tw_lifetime_idx = None
        tw_era_idx = None
        tw_week_idx = None
        tw_24h_idx = None
        time_windows = list(time_windows)
        for i, tw in enumerate(time_windows):
            if tw == TimeWindow.LIFETIME:
                tw_lifetime_idx = i
            elif tw == TimeWindow.ERA:
                tw_era_idx = i
            elif tw == TimeWindow.LAST_WEEK:
                tw_week_idx = i
            elif tw == TimeWindow.LAST_24H:
                tw_24h_idx = i

        pool_names = [pc.name for pc in self._pool_configs]
        pool_thresholds = [pc.is_correlation_threshold for pc in self._pool_configs]
        groups = {}

        for ev in evals:
            per_column = ev.per_column_stats
            if per_column:
                sharpe = per_column[sharpe_key] if sharpe_key in per_column else ev.sharpe
                returns = per_column[returns_key] if returns_key in per_column else ev.returns
                drawdown = per_column[drawdown_key] if drawdown_key in per_column else ev.drawdown
            else:
                sharpe = ev.sharpe
                returns = ev.returns
                drawdown = ev.drawdown
            turnover = ev.turnover
            correlation = ev.correlation
            passed = 1 if ev.passed_thresholds else 0
            flags = [
                1 if passed and correlation < threshold else 0 for threshold in pool_thresholds
            ]
            key = self._build_group_key(ev, aggregate_by)
            group = groups.get(key)
            if group is None:
                group = groups[key] = [
                    0,
                    [[0.0, 0.0, 0.0, 0.0, 0.0, 0, 0] for _ in time_windows],
                    [[0] * len(pool_names) for _ in time_windows],
                ]
            group[0] += 1
            ts = ev.timestamp
            ev_era = ev.era_id

            def count_into(w):
                sums = group[1][w]
                sums[0] += sharpe
                sums[1] += returns
                sums[2] += turnover
                sums[3] += drawdown
                sums[4] += correlation
                sums[5] += passed
                sums[6] += 1
                pool_counts = group[2][w]
                for j, flag in enumerate(flags):
                    pool_counts[j] += flag

            if tw_lifetime_idx is not None:
                count_into(tw_lifetime_idx)
            if tw_era_idx is not None and (era_id is None or ev_era == era_id):
                count_into(tw_era_idx)
            if tw_week_idx is not None and ts >= week_cutoff:
                count_into(tw_week_idx)
            if tw_24h_idx is not None and ts >= day_cutoff:
                count_into(tw_24h_idx)

        rows = []
        for key, group in groups.items():
            if group[0] < min_sample_size:
                continue
            windows = []
            for w, tw in enumerate(time_windows):
                sums = group[1][w]
                pool_counts = group[2][w]
                n = sums[6]
                if n == 0:
                    windows.append(
                        WindowStats(
                            window=tw,
                            sharpe=0.0,
                            returns=0.0,
                            turnover=0.0,
                            drawdown=0.0,
                            correlation=0.0,
                            yield_rate=0.0,
                            submittable_yield={name: 0.0 for name in pool_names},
                            composite_score=0.0,
                            evaluation_count=0,
                        )
                    )
                    continue
                sharpe = sums[0] / n
                returns = sums[1] / n
                turnover = sums[2] / n
                drawdown = sums[3] / n
                correlation = sums[4] / n
                yield_rate = sums[5] / n
                submittable_yield = {
                    pool_names[j]: pool_counts[j] / n for j in range(len(pool_names))
                }
                d = 0.01 if 0.01 > turnover else turnover
                composite_score = sharpe * (1.0 - correlation) * (1.0 / d)
                windows.append(
                    WindowStats(
                        window=tw,
                        sharpe=sharpe,
                        returns=returns,
                        turnover=turnover,
                        drawdown=drawdown,
                        correlation=correlation,
                        yield_rate=yield_rate,
                        submittable_yield=submittable_yield,
                        composite_score=composite_score,
                        evaluation_count=n,
                    )
                )
            rows.append(StatsRow(group_key=key, windows=windows, evaluation_count=group[0]))

        if sort_ascending:
            rows.sort(key=lambda row: (row.windows[0].composite_score, -row.evaluation_count))
        else:
            rows.sort(key=lambda row: (-row.windows[0].composite_score, -row.evaluation_count))
        return SearchStatsResult(
            rows=rows,
            aggregate_by=aggregate_by,
            eval_pool=eval_pool,
            filters_applied=filters_applied,
            total_evaluations=len(evals),
            total_groups=len(groups),
            groups_shown=len(rows),
        )

    def get_suggestions(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
        aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
        pnl_column=None,
        min_sample_size=100,
        top_n=10,
    ) -> "SuggestionsResult":
        """Composite-scored focus/avoid suggestions."""
        if min_sample_size < 0:
            raise ValueError("min_sample_size must be >= 0, got " + str(min_sample_size) + ".")
        if top_n < 1:
            raise ValueError("top_n must be >= 1, got " + str(top_n) + ".")
        stats = self.get_search_stats(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
            aggregate_by=aggregate_by,
            eval_pool=EvalPool.ALL,
            time_windows=[TimeWindow.LIFETIME],
            pnl_column=pnl_column,
            min_sample_size=min_sample_size,
            sort_ascending=False,
        )
        rows = stats.rows
        focus = rows[:top_n]
        avoid = sorted(
            rows, key=lambda row: (row.windows[0].composite_score, -row.evaluation_count)
        )[:top_n]
        return SuggestionsResult(
            focus=focus,
            avoid=avoid,
            aggregate_by=aggregate_by,
            scoring_formula="sharpe * (1 - correlation) * (1 / max(turnover, 0.01))",
        )

    def get_available_eras(self) -> "list":
        """Sorted list of distinct era_id values."""
        return self._tracker.get_available_eras()

    def get_available_named_universes(self) -> "list":
        """Sorted list of distinct named_universe values."""
        return self._tracker.get_available_named_universes()

    def get_available_aggregations(self) -> "list":
        """List of all AggregateBy enum values in declaration order."""
        return list(AggregateBy)

    def get_search_patterns(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
        eval_pool=EvalPool.ALL,
    ) -> "SearchPatternsResult":
        """Depth distribution and family yield analysis."""
        self._validate_eval_type(eval_type)
        evals = self._fetch_evaluations(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            eval_pool=eval_pool,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        total = len(evals)
        if total == 0:
            return SearchPatternsResult(
                depth_distribution=[], family_yield_rates=[], total_evaluations=0, total_passed=0
            )
        depth_total = {}
        depth_passed = {}
        family_total = {}
        family_passed = {}
        total_passed = 0
        for ev in evals:
            passed = 1 if ev.passed_thresholds else 0
            if passed:
                total_passed += 1
            depth = ev.tree_depth
            depth_total[depth] = depth_total.get(depth, 0) + 1
            if passed:
                depth_passed[depth] = depth_passed.get(depth, 0) + 1
            items = _function_items(ev)
            if not items:
                continue
            families = set()
            for item in items:
                families.add(_usage_value(item, "function_family", "function_name"))
            for family in families:
                family_total[family] = family_total.get(family, 0) + 1
                if passed:
                    family_passed[family] = family_passed.get(family, 0) + 1

        depth_distribution = []
        for depth in sorted(depth_total):
            t = depth_total[depth]
            p = depth_passed.get(depth, 0)
            r = p / t if t > 0 else 0.0
            depth_distribution.append(DepthBucket(depth=depth, total=t, passed=p, yield_rate=r))
        family_yield_rates = []
        for family, t in family_total.items():
            p = family_passed.get(family, 0)
            r = p / t if t > 0 else 0.0
            family_yield_rates.append(
                FamilyYield(function_family=family, total=t, passed=p, yield_rate=r)
            )
        family_yield_rates.sort(key=lambda entry: -entry.yield_rate)
        return SearchPatternsResult(
            depth_distribution=depth_distribution,
            family_yield_rates=family_yield_rates,
            total_evaluations=total,
            total_passed=total_passed,
        )

    def get_search_velocity(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
        windows=None,
    ) -> "SearchVelocityResult":
        """Evaluation rate across time windows."""
        self._validate_eval_type(eval_type)
        if windows is not None:
            if len(windows) == 0:
                raise ValueError("windows must be None or a non-empty list of positive integers.")
            for w in windows:
                if w <= 0:
                    raise ValueError("window size must be positive, got " + str(w) + ".")
        else:
            windows = [60, 360, 1440]
        evals = self._fetch_evaluations(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        now = time.time()
        results = []
        for w in windows:
            cutoff = now - w * 60
            recent = [ev for ev in evals if ev.timestamp >= cutoff]
            total = len(recent)
            passed = 0
            for ev in recent:
                if ev.passed_thresholds:
                    passed += 1
            hours = w / 60.0
            if hours > 0:
                evaluations_per_hour = total / hours
                passes_per_hour = passed / hours
            else:
                evaluations_per_hour = 0.0
                passes_per_hour = 0.0
            results.append(
                VelocityWindow(
                    window_minutes=w,
                    evaluations_per_hour=evaluations_per_hour,
                    passes_per_hour=passes_per_hour,
                    total_evaluations=total,
                    total_passed=passed,
                )
            )
        if any(entry.total_evaluations < 10 for entry in results):
            trend = "insufficient_data"
        else:
            shortest = results[0]
            longest = results[0]
            for entry in results:
                if entry.window_minutes < shortest.window_minutes:
                    shortest = entry
                if entry.window_minutes > longest.window_minutes:
                    longest = entry
            if shortest.passes_per_hour > longest.passes_per_hour * 1.2:
                trend = "rising"
            elif shortest.passes_per_hour < longest.passes_per_hour * 0.8:
                trend = "declining"
            else:
                trend = "stable"
        return SearchVelocityResult(windows=results, trend=trend)

    def get_yield_analysis(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        recent_window_minutes=360,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
    ) -> "YieldAnalysisResult":
        """Era-level and family-level yield breakdown."""
        self._validate_eval_type(eval_type)
        if recent_window_minutes <= 0:
            raise ValueError(
                "recent_window_minutes must be positive, got " + str(recent_window_minutes) + "."
            )
        evals = self._fetch_evaluations(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        total = len(evals)
        total_passed = 0
        for ev in evals:
            if ev.passed_thresholds:
                total_passed += 1
        useful_evaluations = 0
        not_useful_evaluations = 0
        unknown_evaluations = 0
        rationale = []
        candidates = []
        if total == 0:
            return YieldAnalysisResult(
                lifetime_yield_rate=0.0,
                recent_yield_rate=0.0,
                trend="insufficient_data",
                recent_window_minutes=recent_window_minutes,
                total_evaluations=0,
                total_passed=0,
                diminishing_returns=False,
                useful_evaluations=0,
                not_useful_evaluations=0,
                usefulness_unknown_evaluations=0,
                tamper_candidate_count=0,
                usefulness_rationale=[],
                tamper_candidates=[],
            )
        lifetime_yield_rate = total_passed / total

        now = time.time()
        cutoff = now - recent_window_minutes * 60
        recent = [ev for ev in evals if ev.timestamp >= cutoff]
        recent_total = len(recent)
        recent_passed = 0
        for ev in recent:
            if ev.passed_thresholds:
                recent_passed += 1
        recent_yield_rate = 0.0 if recent_total == 0 else recent_passed / recent_total
        if recent_total < 10:
            trend = "insufficient_data"
        elif recent_yield_rate > lifetime_yield_rate * 1.2:
            trend = "improving"
        elif recent_yield_rate < lifetime_yield_rate * 0.8:
            trend = "declining"
        else:
            trend = "stable"
        diminishing_returns = recent_yield_rate < lifetime_yield_rate * 0.5

        conn = getattr(self._tracker, "_conn", None)
        for ev in evals:
            status = None
            useful = None
            row_reason = None
            row_pool = None
            eval_type = ev.eval_type
            table, column = _submission_status_table_and_signal_column(eval_type)
            if table and _tracker_table_exists(conn, table):
                row = conn.execute(
                    "SELECT status, useful_flag, rejection_reason, " + column + "\n"
                    "                       FROM " + table + "\n"
                    "                       WHERE eval_id=?\n"
                    "                       ORDER BY status_id DESC\n"
                    "                       LIMIT 1",
                    (ev.eval_id,),
                ).fetchone()
                if row is not None:
                    status = row[0]
                    useful = None if row[1] is None else bool(row[1])
                    row_reason = row[2]
                    row_pool = row[3]
            if useful is None:
                if status == "useful":
                    useful = True
                elif status == "not_useful":
                    useful = False
            if useful is True:
                useful_evaluations += 1
            elif useful is False:
                not_useful_evaluations += 1
            else:
                unknown_evaluations += 1

            reasons = []
            agent_is_pnl_mi = getattr(ev, "agent_is_pnl_mi", None)
            is_pnl_mi = getattr(ev, "is_pnl_mi", None)
            delta = _pnl_mi_tamper_delta(agent_is_pnl_mi, is_pnl_mi)
            if delta is not None:
                reasons.append("agent_server_is_pnl_mi_mismatch")
            failure_reason = getattr(ev, "failure_reason", None)
            failure_detail = getattr(ev, "failure_detail", None)
            ev_reason = getattr(ev, "rejection_reason", None)
            text = " ".join(
                str(v).lower() for v in (failure_reason, failure_detail, row_reason, ev_reason) if v
            )
            if "tampering" in text or "tamper" in text:
                reasons.append("failure_marked_tampering")

            record = {
                "eval_type": eval_type,
                "eval_id": ev.eval_id,
                "strategy_pool_id": getattr(ev, "strategy_pool_id", None),
                "signal_pool_id": (
                    (row_pool if row_pool is not None else getattr(ev, "signal_pool_id", None))
                    if eval_type == "signal"
                    else None
                ),
                "strategy_signal_pool": (
                    (
                        row_pool
                        if row_pool is not None
                        else getattr(ev, "strategy_signal_pool", None)
                    )
                    if eval_type == "strategy"
                    else None
                ),
                "status": status,
                "useful_flag": useful,
                "rejection_reason": row_reason if row_reason is not None else ev_reason,
                "is_correlation": getattr(ev, "is_correlation", None),
                "is_pnl_mi": is_pnl_mi,
                "agent_is_pnl_mi": agent_is_pnl_mi,
                "failure_reason": failure_reason,
                "failure_detail": failure_detail,
                "agent_server_is_pnl_mi_delta": delta,
            }
            rationale.append(record)
            if reasons:
                candidate = dict(record)
                candidate["tamper_reasons"] = reasons
                candidates.append(candidate)

        return YieldAnalysisResult(
            lifetime_yield_rate=lifetime_yield_rate,
            recent_yield_rate=recent_yield_rate,
            trend=trend,
            recent_window_minutes=recent_window_minutes,
            total_evaluations=total,
            total_passed=total_passed,
            diminishing_returns=diminishing_returns,
            useful_evaluations=useful_evaluations,
            not_useful_evaluations=not_useful_evaluations,
            usefulness_unknown_evaluations=unknown_evaluations,
            tamper_candidate_count=len(candidates),
            usefulness_rationale=rationale,
            tamper_candidates=candidates,
        )

    def get_correlation_patterns(
        self,
        era_id=None,
        eval_type=None,
        named_universe=None,
        metaparameters=None,
        function_family=None,
        function_subfamily=None,
        feature_family=None,
        feature_subfamily=None,
        strategy_pool_id=None,
        signal_pool_id=None,
        strategy_signal_pool=None,
        top_n=20,
    ) -> "CorrelationPatternsResult":
        """Function pair correlation patterns."""
        self._validate_eval_type(eval_type)
        if top_n < 1:
            raise ValueError("top_n must be >= 1, got " + str(top_n) + ".")
        evals = self._fetch_evaluations(
            era_id=era_id,
            eval_type=eval_type,
            named_universe=named_universe,
            metaparameters=metaparameters,
            function_family=function_family,
            function_subfamily=function_subfamily,
            feature_family=feature_family,
            feature_subfamily=feature_subfamily,
            strategy_pool_id=strategy_pool_id,
            signal_pool_id=signal_pool_id,
            strategy_signal_pool=strategy_signal_pool,
        )
        total_evaluations = len(evals)
        total_passing = 0
        for ev in evals:
            if ev.passed_thresholds:
                total_passing += 1
        if total_evaluations == 0:
            return CorrelationPatternsResult(
                pairs=[], total_passing_evaluations=0, total_evaluations=0
            )
        pairs = {}
        for ev in evals:
            names = set()
            for item in _function_items(ev):
                name = _usage_value(item, "function_name", "function_name")
                if name:
                    names.add(name)
            ordered = sorted(names)
            if len(ordered) < 2:
                continue
            passed = 1 if ev.passed_thresholds else 0
            for i in range(len(ordered)):
                for j in range(i + 1, len(ordered)):
                    key = (ordered[i], ordered[j])
                    total, good = pairs.get(key, (0, 0))
                    pairs[key] = (total + 1, good + passed)
        base_rate = total_passing / total_evaluations if total_evaluations > 0 else 1.0
        patterns = []
        for (function_a, function_b), (total, good) in pairs.items():
            pair_rate = good / total if total > 0 else 0.0
            lift = pair_rate / base_rate if base_rate > 0 else 0.0
            patterns.append(
                FunctionPairPattern(
                    function_a=function_a,
                    function_b=function_b,
                    total_cooccurrences=total,
                    passed_cooccurrences=good,
                    lift=lift,
                )
            )
        patterns.sort(
            key=lambda entry: (-entry.passed_cooccurrences, entry.function_a, entry.function_b)
        )
        return CorrelationPatternsResult(
            pairs=patterns[:top_n],
            total_passing_evaluations=total_passing,
            total_evaluations=total_evaluations,
        )


_singleton = None


def _get_or_init() -> "SearchAnalytics":
    """Return the module-level analytics singleton, initializing lazily."""
    global _singleton
    import kestrune.agent_onboarding as onboarding_mod

    _require_registered_or_logged_in(onboarding_mod)
    if _singleton is not None:
        return _singleton
    tracker, pool_configs = _resolve_tracker_and_pools(onboarding_mod)
    _singleton = SearchAnalytics(tracker, pool_configs)
    return _singleton


def get_search_stats(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
    aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
    eval_pool=EvalPool.ALL,
    time_windows=None,
    pnl_column=None,
    min_sample_size=100,
    sort_ascending=False,
) -> "SearchStatsResult":
    """Aggregated performance statistics with flexible grouping."""
    return _get_or_init().get_search_stats(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
        aggregate_by=aggregate_by,
        eval_pool=eval_pool,
        time_windows=time_windows,
        pnl_column=pnl_column,
        min_sample_size=min_sample_size,
        sort_ascending=sort_ascending,
    )


def get_suggestions(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
    aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
    pnl_column=None,
    min_sample_size=100,
    top_n=10,
) -> "SuggestionsResult":
    """Composite-scored focus/avoid suggestions."""
    return _get_or_init().get_suggestions(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
        aggregate_by=aggregate_by,
        pnl_column=pnl_column,
        min_sample_size=min_sample_size,
        top_n=top_n,
    )


def get_available_eras() -> "list":
    """Sorted list of distinct era_id values."""
    return _get_or_init().get_available_eras()


def get_available_named_universes() -> "list":
    """Sorted list of distinct named_universe values."""
    return _get_or_init().get_available_named_universes()


def get_available_aggregations() -> "list":
    """List of all AggregateBy enum values in declaration order."""
    return _get_or_init().get_available_aggregations()


def get_search_patterns(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
    eval_pool=EvalPool.ALL,
) -> "SearchPatternsResult":
    """Depth distribution and family yield analysis."""
    return _get_or_init().get_search_patterns(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
        eval_pool=eval_pool,
    )


def get_search_velocity(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
    windows=None,
) -> "SearchVelocityResult":
    """Evaluation rate across time windows."""
    return _get_or_init().get_search_velocity(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
        windows=windows,
    )


def get_yield_analysis(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    recent_window_minutes=360,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
) -> "YieldAnalysisResult":
    """Era-level and family-level yield breakdown."""
    return _get_or_init().get_yield_analysis(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        recent_window_minutes=recent_window_minutes,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
    )


def get_correlation_patterns(
    era_id=None,
    eval_type=None,
    named_universe=None,
    metaparameters=None,
    function_family=None,
    function_subfamily=None,
    feature_family=None,
    feature_subfamily=None,
    strategy_pool_id=None,
    signal_pool_id=None,
    strategy_signal_pool=None,
    top_n=20,
) -> "CorrelationPatternsResult":
    """Function pair correlation patterns."""
    return _get_or_init().get_correlation_patterns(
        era_id=era_id,
        eval_type=eval_type,
        named_universe=named_universe,
        metaparameters=metaparameters,
        function_family=function_family,
        function_subfamily=function_subfamily,
        feature_family=feature_family,
        feature_subfamily=feature_subfamily,
        strategy_pool_id=strategy_pool_id,
        signal_pool_id=signal_pool_id,
        strategy_signal_pool=strategy_signal_pool,
        top_n=top_n,
    )
