"""Questions about an automated search over candidate signals and strategies.

A search tracker keeps one record for each candidate that was evaluated. The functions here read
those records and answer what a researcher asks next: which combinations of functions and
features work (`get_search_stats`, `get_suggestions`), where passes come from
(`get_search_patterns`, `get_correlation_patterns`), how fast and how well the search runs
(`get_search_velocity`, `get_yield_analysis`), and which values the filters accept
(`get_available_eras`, `get_available_named_universes`, `get_available_aggregations`).

    >>> from kestrune.search_analytics import AggregateBy, get_search_stats
    >>> stats = get_search_stats(
    ...     eval_type="signal",
    ...     aggregate_by=AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY,
    ...     min_sample_size=30,
    ... )
    >>> best = stats.rows[0].windows[0]
    >>> best.composite_score, best.yield_rate

Logging in. Every module-level function first makes sure that the caller is registered or logged
in, and raises `kestrune.auth.AuthError` otherwise; it does so on each call. The first successful
call finds the tracker and the signal pools of the active era (of a running search, of the
client's runtime, or of the configured data directory, in this order) and keeps them until the
process ends: a later change of era, pools or directory is not seen. That first call raises
`OSError` when no tracker can be found and `ValueError` when the era has no usable signal pools.

Records. At most the 10000 evaluations that the tracker returns for a filter are read, normally
the newest; a total of 10000 probably means that older ones were left out. Records are only read.
Statistics keep the units in which the tracker recorded them, and time stamps are seconds since
the epoch. Rates and yields are fractions from 0.0 to 1.0, never rounded; a rate over nothing is
0.0. An operation that finds no evaluations returns an empty result and does not raise.

Filters. Every operation but the three catalogues takes the same eleven, each None for "any":

- `era_id`, `named_universe`, `metaparameters`: the setting in which the evaluation ran;
- `eval_type`: "signal" or "strategy";
- `function_family`, `function_subfamily`: at least one function of the candidate is of it;
- `feature_family`, `feature_subfamily`: likewise for its features. A function or feature that
  carries no family (or subfamily) goes by its own name;
- `strategy_pool_id`: the pool that a strategy was meant for;
- `signal_pool_id`, `strategy_signal_pool`: the signal pool of a signal, and the one that a
  strategy is built on. `signal_pool_id` alone stands for both; with eval_type="strategy" it only
  means the latter.

All filters have to hold at once. Families are compared here, the others by the tracker.

Errors. An `eval_type` other than "signal", "strategy" or None raises `ValueError`, as do the
arguments named at each function; both before any record is read. Whatever the tracker, its
database or a record's own attributes raise reaches the caller unchanged; so does the `TypeError`
that comes of statistics or time stamps that are None. After an error nothing is half done.
"""

import math as math
import time as time
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass as dataclass
from dataclasses import field as field
from enum import Enum as Enum
from types import ModuleType, SimpleNamespace
from typing import (
    Any,
    Literal,
    Protocol,
    TypedDict,
    type_check_only,
)

# Vocabulary

class AggregateBy(Enum):
    """The granularity at which evaluations are grouped: of their functions, then of their features.

    A family contains subfamilies, a subfamily contains single functions (or features). The value
    is the pair of levels. `NONE`, whose value is None, groups by the exact set of function names
    and the exact set of feature names, as FUNCTION_FEATURE does.
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
    """Which evaluations to include. Found by value, EvalPool("all"), but not equal to it."""

    ALL = "all"
    """Every evaluation that the filters let through."""
    PASSED = "passed"
    """Those that passed the acceptance thresholds."""
    SUBMITTED = "submitted"
    """Those whose candidate was submitted."""

class TimeWindow(Enum):
    """A span of time that ends now (the moment of the call, not that of the newest record)."""

    LIFETIME = "lifetime"
    """All evaluations."""
    ERA = "era"
    """Those of the era asked for; all of them when no `era_id` is given."""
    LAST_WEEK = "last_week"
    """Those of the last 604800 seconds, the very first of them included."""
    LAST_24H = "last_24h"
    """Those of the last 86400 seconds, the very first of them included."""

# Results. All are plain data classes: mutable, comparable field by field, not hashable.

@dataclass
class WindowStats:
    """Means over the evaluations of one group that fall into one time window.

    A window without evaluations has zeros throughout.
    """

    window: TimeWindow | str = ...
    """The window: the `TimeWindow` member that was asked for."""
    sharpe: float = ...
    """Mean Sharpe ratio, of the column asked for."""
    returns: float = ...
    """Mean return, of the column asked for."""
    turnover: float = ...
    """Mean turnover, over all columns."""
    drawdown: float = ...
    """Mean drawdown, of the column asked for."""
    correlation: float = ...
    """Mean correlation to the members of the pool, over all columns."""
    yield_rate: float = ...
    """Share of the evaluations that passed the acceptance thresholds."""
    submittable_yield: dict[str, float] = ...
    """By name of the signal pool: share that passed and stayed under its correlation threshold."""
    composite_score: float = ...
    """sharpe * (1 - correlation) * (1 / max(turnover, 0.01)), of the means above."""
    evaluation_count: int = ...
    """Evaluations of the group in this window."""

@dataclass
class StatsRow:
    """The statistics of one group of evaluations."""

    group_key: tuple[frozenset[str], frozenset[str]] = ...
    """The names that the group shares: of its functions, of its features. A part may be empty."""
    windows: list[WindowStats] = ...
    """One entry for each window asked for, in that order."""
    evaluation_count: int = ...
    """Evaluations of the group, whatever the window."""

@dataclass
class SearchStatsResult:
    """What `get_search_stats` found."""

    rows: list[StatsRow] = ...
    """The groups that are large enough, best first (or worst first, if asked for)."""
    aggregate_by: AggregateBy | None = ...
    """The granularity used."""
    eval_pool: EvalPool | None = ...
    """The evaluations included."""
    filters_applied: dict[str, Any] = ...
    """The filters given that were not None, by name."""
    total_evaluations: int = ...
    """Evaluations read."""
    total_groups: int = ...
    """Groups formed, those too small to show included."""
    groups_shown: int = ...
    """Length of `rows`."""

@dataclass
class SuggestionsResult:
    """What `get_suggestions` found. With few groups, one may stand in both lists."""

    focus: list[StatsRow] = ...
    """Groups to search further, highest composite score first."""
    avoid: list[StatsRow] = ...
    """Groups to stay away from, lowest composite score first."""
    aggregate_by: AggregateBy | None = ...
    """The granularity used."""
    scoring_formula: str = ...
    """The composite score in words."""

@dataclass
class DepthBucket:
    """The evaluations whose candidate has one depth of expression tree."""

    depth: int = ...
    """Depth of the tree, as the tracker recorded it."""
    total: int = ...
    """Evaluations at this depth."""
    passed: int = ...
    """Of those, passed."""
    yield_rate: float = ...
    """passed / total."""

@dataclass
class FamilyYield:
    """The evaluations whose candidate uses at least one function of one family."""

    function_family: str = ...
    """The family; a function without one counts under its own name."""
    total: int = ...
    """Evaluations that use the family, each counted once."""
    passed: int = ...
    """Of those, passed."""
    yield_rate: float = ...
    """passed / total."""

@dataclass
class SearchPatternsResult:
    """What `get_search_patterns` found."""

    depth_distribution: list[DepthBucket] = ...
    """One entry for each depth met, in ascending order."""
    family_yield_rates: list[FamilyYield] = ...
    """One entry for each function family met, highest yield first."""
    total_evaluations: int = ...
    """Evaluations read."""
    total_passed: int = ...
    """Of those, passed."""

@dataclass
class VelocityWindow:
    """The pace of the search over one trailing window."""

    window_minutes: float = ...
    """Length of the window in minutes, as asked for."""
    evaluations_per_hour: float = ...
    """Evaluations in the window, for each hour of its length."""
    passes_per_hour: float = ...
    """Passed ones, for each hour of its length."""
    total_evaluations: int = ...
    """Evaluations in the window."""
    total_passed: int = ...
    """Of those, passed."""

@dataclass
class SearchVelocityResult:
    """What `get_search_velocity` found."""

    windows: list[VelocityWindow] = ...
    """One entry for each window asked for, in that order."""
    trend: str = ...
    """"rising", "declining", "stable", or "insufficient_data"."""

@dataclass
class YieldAnalysisResult:
    """What `get_yield_analysis` found."""

    lifetime_yield_rate: float = ...
    """Share of all evaluations that passed."""
    recent_yield_rate: float = ...
    """Share of the recent ones that passed."""
    trend: str = ...
    """"improving", "declining", "stable", or "insufficient_data"."""
    recent_window_minutes: int = ...
    """Length of the recent window in minutes, as asked for."""
    total_evaluations: int = ...
    """Evaluations read."""
    total_passed: int = ...
    """Of those, passed."""
    diminishing_returns: bool = ...
    """Whether the recent yield is below half the lifetime yield, however few the recent ones."""
    useful_evaluations: int = ...
    """Evaluations whose latest submission status says useful."""
    not_useful_evaluations: int = ...
    """Evaluations whose latest submission status says not useful."""
    usefulness_unknown_evaluations: int = ...
    """Evaluations of which nothing is known, for example because they were not submitted."""
    tamper_candidate_count: int = ...
    """Length of `tamper_candidates`."""
    usefulness_rationale: list[_UsefulnessRationale] = ...
    """One entry for each evaluation read, in the tracker's order."""
    tamper_candidates: list[_TamperCandidate] = ...
    """The entries that show signs of tampering, with the reasons."""

@dataclass
class FunctionPairPattern:
    """Two functions, and the candidates that use both."""

    function_a: str = ...
    """The function whose name sorts first."""
    function_b: str = ...
    """The other one."""
    total_cooccurrences: int = ...
    """Evaluations whose candidate uses both."""
    passed_cooccurrences: int = ...
    """Of those, passed."""
    lift: float = ...
    """Their share of passes over the share among all evaluations read; 0.0 if none passed."""

@dataclass
class CorrelationPatternsResult:
    """What `get_correlation_patterns` found."""

    pairs: list[FunctionPairPattern] = ...
    """Pairs with the most passes first; equal ones in alphabetical order."""
    total_passing_evaluations: int = ...
    """Evaluations that passed."""
    total_evaluations: int = ...
    """Evaluations read."""

@type_check_only
class _UsefulnessRationale(TypedDict):
    """What is known of the usefulness of one evaluation."""

    eval_type: str
    eval_id: Any
    strategy_pool_id: str | None
    # Of the status row if there is one, else of the record; each for its own evaluation type.
    signal_pool_id: str | None
    strategy_signal_pool: str | None
    # Of the latest row of the status table; None when there is no row or no table.
    status: str | None
    # Of that row, else by its status ("useful", "not_useful"), else None.
    useful_flag: bool | None
    rejection_reason: str | None
    is_correlation: float | None
    is_pnl_mi: float | None
    agent_is_pnl_mi: float | None
    failure_reason: str | None
    failure_detail: str | None
    # How far the agent's own measure is from the server's; None when they agree.
    agent_server_is_pnl_mi_delta: float | None

@type_check_only
class _TamperCandidate(_UsefulnessRationale):
    """The same, with what makes the evaluation suspect."""

    tamper_reasons: list[Literal["agent_server_is_pnl_mi_mismatch", "failure_marked_tampering"]]

# The engine

@type_check_only
class _PoolConfig(Protocol):
    """One signal pool of the era."""

    @property
    def name(self) -> str: ...
    @property
    def is_correlation_threshold(self) -> float: ...

@type_check_only
class _Tracker(Protocol):
    """What the engine needs of a tracker. The catalogues and the usefulness scan need more:
    `get_available_eras()`, `get_available_named_universes()`, a database connection `_conn`.
    """

    def get_evaluation_history(
        self,
        *,
        era_id: Any,
        eval_type: Any,
        passed_only: Any,
        limit: Any,
        named_universe: Any,
        metaparameters: Any,
        strategy_pool_id: Any,
        signal_pool_id: Any,
        strategy_signal_pool: Any,
    ) -> Sequence[Any]: ...

class SearchAnalytics:
    """The questions, asked of one tracker and one list of signal pools.

    The module-level functions use one such engine for the whole process; build your own to ask
    another tracker, without logging in. Each method is the module-level function of its name.
    The engine keeps nothing between calls. It may be subclassed.
    """

    _tracker: Any
    _pool_configs: Any

    def __init__(
        self, search_tracker: _Tracker, pool_configs: Sequence[_PoolConfig | SimpleNamespace]
    ) -> None:
        """Keep the tracker and the pools, both as they are.

        Raises `ValueError` when the tracker is None, when there are no pools, or when the
        `is_correlation_threshold` of one is not a positive int or float (True is neither).
        """

    def _validate_eval_type(self, eval_type: object) -> None: ...
    def _fetch_evaluations(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        eval_pool: EvalPool = EvalPool.ALL,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
    ) -> Sequence[Any]: ...
    def _build_group_key(
        self, ev: Any, aggregate_by: AggregateBy
    ) -> tuple[frozenset[str], frozenset[str]]: ...
    def _get_stat(self, ev: Any, pnl_column: str | None, stat_name: str) -> Any: ...
    def _filter_by_time_window(
        self, evals: Sequence[Any], tw: TimeWindow, era_id: str | None, now: float
    ) -> Sequence[Any]: ...
    def get_search_stats(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
        aggregate_by: AggregateBy = AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
        eval_pool: EvalPool = EvalPool.ALL,
        time_windows: Sequence[TimeWindow] | None = None,
        pnl_column: str | None = None,
        min_sample_size: int = 100,
        sort_ascending: bool = False,
    ) -> SearchStatsResult: ...
    def get_suggestions(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
        aggregate_by: AggregateBy = AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
        pnl_column: str | None = None,
        min_sample_size: int = 100,
        top_n: int = 10,
    ) -> SuggestionsResult: ...
    def get_available_eras(self) -> list[Any]: ...
    def get_available_named_universes(self) -> list[Any]: ...
    def get_available_aggregations(self) -> list[AggregateBy]: ...
    def get_search_patterns(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
        eval_pool: EvalPool = EvalPool.ALL,
    ) -> SearchPatternsResult: ...
    def get_search_velocity(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
        windows: Sequence[float] | None = None,
    ) -> SearchVelocityResult: ...
    def get_yield_analysis(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        recent_window_minutes: int = 360,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
    ) -> YieldAnalysisResult: ...
    def get_correlation_patterns(
        self,
        era_id: str | None = None,
        eval_type: Literal["signal", "strategy"] | None = None,
        named_universe: str | None = None,
        metaparameters: object = None,
        function_family: str | None = None,
        function_subfamily: str | None = None,
        feature_family: str | None = None,
        feature_subfamily: str | None = None,
        strategy_pool_id: str | None = None,
        signal_pool_id: str | None = None,
        strategy_signal_pool: str | None = None,
        top_n: int = 20,
    ) -> CorrelationPatternsResult: ...

# The questions, asked of the process-wide engine

def get_search_stats(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
    aggregate_by: AggregateBy = AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
    eval_pool: EvalPool = EvalPool.ALL,
    time_windows: Sequence[TimeWindow] | None = None,
    pnl_column: str | None = None,
    min_sample_size: int = 100,
    sort_ascending: bool = False,
) -> SearchStatsResult:
    """Mean performance of each group of evaluations, over one or more time windows.

    Evaluations that used the same functions and features, at the granularity of `aggregate_by`
    and whatever their order, form a group. For the filters see the module's documentation.

    - `aggregate_by`: how finely to group.
    - `eval_pool`: all evaluations, those that passed, or those that were submitted.
    - `time_windows`: distinct members, at least one; None stands for LIFETIME, ERA, LAST_WEEK
      and LAST_24H. All windows end at the same instant. Groups are ranked by the first one.
    - `pnl_column`: the profit column whose Sharpe ratio, return and drawdown are averaged; None
      stands for "gross_returns". An evaluation that has no figures for the column counts with
      those that it has as a whole; turnover and correlation always do.
    - `min_sample_size`: leave out groups with fewer evaluations in all; 0 keeps every group.
    - `sort_ascending`: lowest composite score first. Of equal scores the larger group comes first
      in both directions, then the one met first.

    Raises `ValueError` for a negative `min_sample_size` and for `time_windows` that are empty or
    hold one twice; `AuthError`, `OSError` as every function here.
    """

def get_suggestions(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
    aggregate_by: AggregateBy = AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY,
    pnl_column: str | None = None,
    min_sample_size: int = 100,
    top_n: int = 10,
) -> SuggestionsResult:
    """The groups to search further and the groups to avoid, by composite score.

    Ranks the groups of `get_search_stats` over all evaluations and all time; `aggregate_by`,
    `pnl_column` and `min_sample_size` mean what they mean there. Each list holds at most `top_n`
    groups. Of equal scores the larger group comes first in both lists.

    Raises `ValueError` for a negative `min_sample_size` and for a `top_n` below 1; `AuthError`,
    `OSError` as every function here.
    """

def get_available_eras() -> list[Any]:
    """The eras of which the tracker holds evaluations, as the tracker returns them: sorted.

    Raises `AuthError`, `OSError` as every function here.
    """

def get_available_named_universes() -> list[Any]:
    """The named universes of which the tracker holds evaluations, as it returns them: sorted.

    Raises `AuthError`, `OSError` as every function here.
    """

def get_available_aggregations() -> list[AggregateBy]:
    """The members of `AggregateBy`, in the order of their declaration, in a new list.

    Raises `AuthError`, `OSError` as every function here.
    """

def get_search_patterns(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
    eval_pool: EvalPool = EvalPool.ALL,
) -> SearchPatternsResult:
    """Where passes come from: by depth of the expression tree, and by function family.

    An evaluation counts once for each family that its candidate uses, and for none when its
    functions are not known. For the filters see the module's documentation.

    Raises `TypeError` when depths cannot be put in order (None among numbers); `AuthError`,
    `OSError` as every function here.
    """

def get_search_velocity(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
    windows: Sequence[float] | None = None,
) -> SearchVelocityResult:
    """How many evaluations and passes an hour the search makes, over trailing windows.

    - `windows`: lengths in minutes, at least one, each above 0; fractions and repeated lengths
      are accepted. None stands for 60, 360 and 1440: an hour, six hours, a day. All windows end
      at the same instant, and a record exactly at the start of one belongs to it.

    The trend compares the passes an hour of the shortest window with those of the longest:
    "rising" when above 1.2 times as many, "declining" when below 0.8 times, otherwise "stable";
    "insufficient_data" as soon as one window holds fewer than 10 evaluations.

    Raises `ValueError` for empty `windows` and for a length of 0 or below; `AuthError`,
    `OSError` as every function here.
    """

def get_yield_analysis(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    recent_window_minutes: int = 360,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
) -> YieldAnalysisResult:
    """How well the search does of late, what became of submissions, what looks tampered with.

    - `recent_window_minutes`: length of the recent window, above 0. Mind its place among the
      parameters when you call by position.

    The trend compares the recent share of passes with that over all evaluations: "improving" when
    above 1.2 times as high, "declining" when below 0.8 times, otherwise "stable";
    "insufficient_data" when fewer than 10 evaluations are recent.

    Usefulness is read from the tracker's database: the newest row of each evaluation in
    `strategy_submission_status` or `signal_submission_status`, one query for each evaluation; a
    tracker without a connection, or without these tables, leaves it unknown. An evaluation looks
    tampered with when the measure reported by the agent (`agent_is_pnl_mi`) and the server's
    (`is_pnl_mi`) are more than 1e-9 apart, or when a failure or rejection reason speaks of
    tampering.

    Raises `ValueError` for a `recent_window_minutes` of 0 or below; the errors of the database
    unchanged; `AuthError`, `OSError` as every function here.
    """

def get_correlation_patterns(
    era_id: str | None = None,
    eval_type: Literal["signal", "strategy"] | None = None,
    named_universe: str | None = None,
    metaparameters: object = None,
    function_family: str | None = None,
    function_subfamily: str | None = None,
    feature_family: str | None = None,
    feature_subfamily: str | None = None,
    strategy_pool_id: str | None = None,
    signal_pool_id: str | None = None,
    strategy_signal_pool: str | None = None,
    top_n: int = 20,
) -> CorrelationPatternsResult:
    """Which functions occur together in candidates, and how often such candidates pass.

    Each evaluation counts once for every pair of different functions that its candidate uses; a
    pair seen once is listed like any other. At most `top_n` pairs are returned, those with the
    most passes: the lift does not rank them. For the filters see the module's documentation.

    Raises `ValueError` for a `top_n` below 1; `TypeError` when function names cannot be put in
    order; `AuthError`, `OSError` as every function here.
    """

# What the functions above are made of. Callers may replace these names; they are no promise
# otherwise.

_DEFAULT_ANALYTICS_HISTORY_LIMIT: int
_AUTH_REQUIRED_MESSAGE: str
_FUNC_KEY_MAP: dict[str, str]
_FEAT_KEY_MAP: dict[str, str]
_singleton: SearchAnalytics | None

def _get_or_init() -> SearchAnalytics: ...
def _alias_source_file() -> None: ...
def _tracker_table_exists(conn: Any, table_name: str) -> bool: ...
def _submission_status_table_and_signal_column(
    eval_type: object,
) -> tuple[str, str] | tuple[None, None]: ...
def _pnl_mi_tamper_delta(agent_value: Any, server_value: Any) -> float | None: ...
def _get_attr_or_item(value: Any, key: str, default: Any = None) -> Any: ...
def _unwrap_era_config(value: Any) -> Any: ...
def _candidate_era_configs(
    onboarding_config: Any, active_handle: Any = None, runtime: Any = None
) -> Iterator[Any]: ...
def _runtime_from_onboarding(onboarding_mod: ModuleType) -> Any: ...
def _extract_raw_pools(era_config: Any) -> Any: ...
def _normalize_pool_config(pool: Any, index: int) -> SimpleNamespace: ...
def _iter_pool_configs(raw_pools: Any) -> list[Any]: ...
def _usage_items(record: Any, metadata_attr: str, names_attr: str, name_key: str) -> Any: ...
def _function_items(record: Any) -> Any: ...
def _feature_items(record: Any) -> Any: ...
def _usage_value(item: Any, key: str, name_key: str) -> Any: ...
def _resolve_pool_configs(
    onboarding_config: Mapping[str, Any] | Any, active_handle: Any = None, runtime: Any = None
) -> list[SimpleNamespace]: ...
def _auth_from_onboarding_or_search(onboarding_mod: ModuleType) -> Any: ...
def _require_registered_or_logged_in(onboarding_mod: ModuleType) -> None: ...
def _active_search_handle() -> Any: ...
def _tracker_from_config(onboarding_config: Any) -> Any: ...
def _resolve_tracker_and_pools(
    onboarding_mod: ModuleType,
) -> tuple[Any, list[SimpleNamespace]]: ...
