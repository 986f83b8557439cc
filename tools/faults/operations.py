"""Operations that the tests of leaks do not carry out: odd comparisons, long inputs, hidden ways.

Each maker returns a call, made anew for each run of it.
"""

from __future__ import annotations

import importlib.util
from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

import kestrune.search_analytics as search_analytics
from kestrune.search_analytics import AggregateBy, EvalPool, SearchAnalytics, TimeWindow
from odd_objects import (
    Clock,
    Growing,
    Halves,
    Likes,
    NoTruth,
    OddFloat,
    OddInt,
    OddMinutes,
    OddSum,
    OddText,
    Plain,
    Stops,
    StopsComparing,
    reluctant,
)
from support.environment import Client, failing, raw_pool, session
from support.operations import walk
from support.parts import NOW, engine_over, evaluation, function_item, pool

Call = Callable[[], Any]

MODULE = "kestrune.search_analytics"


def copy_of_module() -> Any:
    """A module object of its own, as a second import makes it."""
    spec = importlib.util.spec_from_file_location(MODULE, search_analytics.__spec__.origin)
    assert spec is not None
    assert spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def asked(*records: Any) -> list[Any]:
    return [Plain(record) for record in records]


def engine(*records: Any, **more: Any) -> Any:
    return engine_over(list(records), **more)


def at(moment: Any, call: Callable[[Any], Any]) -> Callable[[], Call]:
    """A call of a module of its own whose clock shows `moment`."""

    def build() -> Call:
        module = COPY
        before = module.time

        def timed() -> Any:
            module.time = SimpleNamespace(time=lambda: moment)
            try:
                return call(module)
            finally:
                module.time = before

        return timed

    return build


COPY = copy_of_module()
"""A module object that operations may bend, as long as they put it right."""


def bent(call: Callable[[Any], Any], *without: str, **changes: Any) -> Callable[[], Call]:
    """A call of the copy while some of its names are missing, and others replaced."""

    def build() -> Call:
        def bending() -> Any:
            before = dict(vars(COPY))
            for name in without:
                delattr(COPY, name)
            vars(COPY).update(changes)
            try:
                return call(COPY)
            finally:
                for name in (*without, *changes):
                    if name in before:
                        setattr(COPY, name, before[name])
                    else:
                        delattr(COPY, name)

        return bending

    return build


def over(module: Any, *records: Any, pools: Any = None) -> Any:
    tracker = SimpleNamespace(get_evaluation_history=lambda **filters: list(records), _conn=None)
    return module.SearchAnalytics(tracker, pools or [pool()])


def simple(call: Call) -> Callable[[], Call]:
    return lambda: call


ITEMS = [function_item("f", "F", "S"), function_item("g", "G", "T")]
ODD = evaluation(
    function_metadata=ITEMS,
    **dict.fromkeys(("sharpe", "returns", "turnover", "drawdown", "correlation"), OddFloat(0.5)),
    timestamp=OddFloat(NOW - 60),
)
TEXTS = evaluation(correlation="0.5", timestamp="7", sharpe=1.0)
LIKED = Likes("signal", EvalPool.SUBMITTED, AggregateBy.NONE, TimeWindow.LAST_WEEK)
UNLIKED = Likes("nothing", value=("function", "feature"))


def stats(records: Any, **more: Any) -> Any:
    return walk(engine_over(records, *more.pop("pools", ())), "get_search_stats", **more)


def odd_pools() -> Any:
    made = engine(ODD, evaluation())
    made._pool_configs = [pool("odd", OddFloat(0.9)), pool("plain", 0.3)]
    return walk(made, "get_search_stats", time_windows=[TimeWindow.LIFETIME, TimeWindow.LAST_24H])


def growing_pools() -> Any:
    made = engine(evaluation())
    made._pool_configs = Growing()
    return walk(made, "get_search_stats")


def text_pools() -> Any:
    made = engine(TEXTS)
    made._pool_configs = [pool("text", "0.9")]
    return walk(made, "get_search_stats")


ARGUMENTS: dict[str, Callable[[], Call]] = {
    "stats": simple(
        lambda: engine(ODD, evaluation()).get_search_stats(
            min_sample_size=OddInt(0), sort_ascending=OddInt(1), eval_type=Likes("signal")
        )
    ),
    "strategies": simple(
        lambda: engine(ODD)._fetch_evaluations(signal_pool_id="p", eval_type=Likes("strategy"))
    ),
    "evaluation types": simple(
        lambda: [
            engine(ODD)._validate_eval_type(Likes("strategy")),
            search_analytics._submission_status_table_and_signal_column(Likes("strategy")),
            search_analytics._submission_status_table_and_signal_column(Likes("signal")),
            search_analytics._submission_status_table_and_signal_column(UNLIKED),
        ]
    ),
    "odd pools": simple(odd_pools),
    "text pools": simple(text_pools),
    "growing pools": simple(growing_pools),
    "odd means": simple(
        lambda: stats([evaluation(**dict.fromkeys(("turnover", "sharpe"), OddSum(0.5)))])
    ),
    "odd hours": simple(lambda: engine(ODD).get_search_velocity(windows=[OddMinutes(9)])),
    "no windows": simple(lambda: engine(ODD).get_search_velocity(windows=[])),
    "odd types": simple(
        lambda: engine(
            evaluation(eval_type=Likes("signal")), evaluation(eval_type=Likes("strategy"))
        ).get_yield_analysis()
    ),
    "suggestions": simple(lambda: walk(engine(ODD), "get_suggestions", top_n=OddInt(2))),
    "pairs": simple(lambda: walk(engine(ODD), "get_correlation_patterns", top_n=OddInt(2))),
    "velocity": simple(lambda: engine(ODD).get_search_velocity(windows=[OddInt(60), OddFloat(5)])),
    "yield": simple(lambda: engine(ODD).get_yield_analysis(recent_window_minutes=OddInt(60))),
    "threshold": simple(lambda: SearchAnalytics(SimpleNamespace(), [pool("a", OddFloat(0.5))])),
    "pool": simple(lambda: engine(ODD, evaluation())._fetch_evaluations(eval_pool=LIKED)),
    "group key": simple(lambda: engine(ODD)._build_group_key(ODD, LIKED)),
    "odd group key": simple(lambda: engine(ODD)._build_group_key(ODD, UNLIKED)),
    "window": simple(
        lambda: [
            engine()._filter_by_time_window([evaluation(), ODD], window, Likes("era-1"), NOW)
            for window in (LIKED, UNLIKED, TimeWindow.ERA, TimeWindow.LAST_WEEK)
        ]
    ),
    "windows": simple(lambda: stats([ODD], time_windows=[LIKED])),
    "era": simple(
        lambda: stats([ODD, *asked(evaluation())], era_id=Likes("era-1"), aggregate_by=LIKED)
    ),
    "dimension": simple(lambda: stats([evaluation()], aggregate_by=UNLIKED)),
    "families": simple(
        lambda: engine(evaluation(function_metadata=ITEMS))._fetch_evaluations(
            function_family=Likes("F")
        )
    ),
    "usage": simple(
        lambda: [
            search_analytics._usage_value("bare", Likes("n"), "n"),
            search_analytics._usage_value("bare", OddText("n"), OddText("n")),
        ]
    ),
    "probe": simple(
        lambda: search_analytics._tracker_table_exists(
            SimpleNamespace(
                dialect=Likes("postgres"),
                execute=lambda *args: SimpleNamespace(fetchone=lambda: (1,)),
            ),
            "t",
        )
    ),
    "reversed numbers": simple(
        lambda: engine(evaluation(timestamp=OddFloat(NOW))).get_search_velocity(windows=[OddInt(9)])
    ),
    "text cut-offs": at(Clock(), lambda module: over(module, TEXTS).get_search_velocity()),
    "text filter": simple(
        lambda: engine()._filter_by_time_window([TEXTS], TimeWindow.LAST_24H, None, Clock())
    ),
    "getattr": simple(lambda: search_analytics._get_attr_or_item(5, 5)),
}


def without_getattr() -> Any:
    """Read an attribute by a key that is no text where `getattr` is gone from the builtins."""
    import builtins

    found = builtins.getattr
    del builtins.getattr
    try:
        return search_analytics._get_attr_or_item(5, 5)
    finally:
        builtins.getattr = found


ARGUMENTS["no getattr"] = simple(without_getattr)


def status(row: Any) -> Any:
    """The yield analysis over a database whose status row is this."""
    conn = SimpleNamespace(execute=lambda *args: SimpleNamespace(fetchone=lambda: row))
    return engine_over([evaluation(submitted=True)], conn=conn).get_yield_analysis()


ARGUMENTS |= {
    "useful": simple(lambda: status((Likes("useful"), None, "late", "p"))),
    "not useful": simple(lambda: status((Likes("not_useful"), None, "late", "p"))),
    "reason": simple(lambda: status(("x", 1, "Tampering of " + "\xe9", "p"))),
}

STOPS = evaluation(function_metadata=[Stops(a=1)])


def stopping_windows(module: Any) -> Any:
    return over(module, evaluation()).get_search_velocity()


HIDDEN: dict[str, Callable[[], Call]] = {
    "stop in a key": simple(lambda: stats([STOPS])),
    "stop in one key": simple(
        lambda: engine()._build_group_key(STOPS, AggregateBy.FUNCTION_FEATURE)
    ),
    "stop in a filter": simple(lambda: engine(STOPS)._fetch_evaluations(function_family="F")),
    "stop in pairs": simple(lambda: engine(STOPS).get_correlation_patterns()),
    "stop in a reason": simple(
        lambda: engine(
            evaluation(passed_thresholds=False, submitted=True, failure_reason=NoTruth())
        ).get_yield_analysis()
    ),
    "text pool": bent(
        lambda module: over(module, evaluation())._fetch_evaluations(eval_pool="p"),
        EvalPool=SimpleNamespace(PASSED="p", SUBMITTED="s", ALL="a"),
    ),
    "tuple of pools": bent(
        lambda module: module._resolve_pool_configs({"signal_pools": 1}),
        _iter_pool_configs=lambda raw_pools: (raw_pool(),),
    ),
    "stop in patterns": simple(lambda: engine(STOPS).get_search_patterns()),
    "stop in the trend": bent(
        stopping_windows,
        VelocityWindow=lambda **fields: SimpleNamespace(total_evaluations=StopsComparing()),
    ),
    "odd trend": bent(
        lambda module: over(module, *[evaluation()] * 20).get_search_velocity(),
        VelocityWindow=lambda **fields: SimpleNamespace(
            total_evaluations=OddInt(50),
            window_minutes=OddInt(fields["window_minutes"]),
            passes_per_hour=OddFloat(5.0),
        ),
    ),
    "text trend": bent(
        lambda module: over(module, *[evaluation()] * 20).get_search_velocity(),
        VelocityWindow=lambda **fields: SimpleNamespace(
            total_evaluations=50, window_minutes=str(fields["window_minutes"]), passes_per_hour=1.0
        ),
    ),
    "words for rates": bent(
        lambda module: over(module, *[evaluation()] * 20).get_search_velocity(),
        VelocityWindow=lambda **fields: SimpleNamespace(
            total_evaluations=50, window_minutes=1, passes_per_hour=Halves("a")
        ),
    ),
    "records of one's own": bent(
        lambda module: [
            walk(over(module, evaluation()), name)
            for name in ("get_search_stats", "get_suggestions", "get_search_patterns")
        ],
        StatsRow=SimpleNamespace,
        WindowStats=SimpleNamespace,
        SearchStatsResult=SimpleNamespace,
    ),
    "no name": bent(lambda module: module.get_search_stats(), "_get_or_init"),
    "no class": bent(lambda module: over(module, evaluation()).get_search_stats(), "StatsRow"),
    "no math": bent(lambda module: module._pnl_mi_tamper_delta(1.0, 2.0), "math"),
    "other math": bent(
        lambda module: module._pnl_mi_tamper_delta(1.0, 2.0),
        math=SimpleNamespace(isfinite=lambda value: [1]),
    ),
    "probe of one's own": bent(
        lambda module: module.SearchAnalytics(
            SimpleNamespace(
                get_evaluation_history=lambda **f: [evaluation(submitted=True)],
                _conn=SimpleNamespace(
                    execute=lambda *a: SimpleNamespace(fetchone=lambda: ("u", 1, "r", "p"))
                ),
            ),
            [pool()],
        ).get_yield_analysis(),
        _tracker_table_exists=lambda conn, name: [1],
        _submission_status_table_and_signal_column=lambda eval_type: ["a", "b"],
    ),
}


def no_login(error: Any, *, is_failing: bool) -> Callable[[Client], None]:
    """A client without a login whose AuthError is something else."""

    def prepare(client: Client) -> None:
        client.auth.AuthError = lambda message: error
        if is_failing:
            client.onboarding._auth_manager = SimpleNamespace(get_token=failing(OSError))
        else:
            client.log_out()

    return prepare


def no_token(error: Any) -> Callable[[Client], None]:
    """A client with an empty token whose AuthError is something else."""

    def prepare(client: Client) -> None:
        client.auth.AuthError = lambda message: error
        client.onboarding._auth_manager = session("")

    return prepare


CLIENTS: dict[str, Callable[[Client], None]] = {
    "no login, an odd error": no_login(5, is_failing=False),
    "no login, a class": no_login(KeyError, is_failing=False),
    "no login, a class of classes": no_login(reluctant(KeyError), is_failing=False),
    "failing login, an odd error": no_login(5, is_failing=True),
    "failing login, a class": no_login(KeyError, is_failing=True),
    "failing login, a class of classes": no_login(reluctant(KeyError), is_failing=True),
    "no token, an odd error": no_token(5),
    "no token, a class": no_token(KeyError),
    "no token, a class of classes": no_token(reluctant(KeyError)),
    "a search that is hardly stopped": lambda client: setattr(
        client.run_search("tracker"), "_stopped", []
    ),
    "many searches": lambda client: setattr(
        client.templates, "_active_handles", [SimpleNamespace(_stopped=True)] * 20
    ),
}
