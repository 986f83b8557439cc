"""Errors show the functions that they passed through, as those of a Python module do."""

from __future__ import annotations

import sys
import weakref
from pathlib import Path
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from model import search_analytics_model as model
from support.children import run_child
from support.operations import WALKS
from support.outcome import functions_passed, traceback_entries
from support.parts import evaluation, pool

ROOT = Path(__file__).resolve().parents[2]


class HostileError(Exception):
    """Raised by what is handed in."""


def hostile(*_: object, **__: object) -> None:
    raise HostileError


class HostileDict(dict):
    """A mapping that cannot be read."""

    get = hostile


class HostileValue:
    """Neither a number nor anything that could be compared."""

    __float__ = __eq__ = hostile
    __hash__ = object.__hash__


class Record(SimpleNamespace):
    """A record that can be watched."""


class HostileRecord(Record):
    """A record that does not say what it is made of."""

    function_metadata = property(hostile)


def raised_by(call):
    with pytest.raises(BaseException) as caught:  # noqa: PT011
        call()
    return caught.value


def shown(error, module):
    """The names of the module's functions in a traceback, but for comprehensions."""
    frames = [entry.tb_frame for entry in traceback_entries(error)]
    names = [frame.f_code.co_name for frame in frames if frame.f_globals is vars(module)]
    return [name for name in names if not name.endswith("comp>")]


def engine_of(module, records=None, **tracker):
    """An engine of the module or the model over records; without any its tracker is hostile."""
    if records is None:
        tracker["get_evaluation_history"] = hostile
    else:
        tracker["get_evaluation_history"] = lambda **_: records
    return module.SearchAnalytics(SimpleNamespace(**tracker), [pool()])


def operation(name, records=None, tracker=(), **arguments):
    """A call of an operation, by a method or by the function of its name."""

    def call(module):
        engine = engine_of(module, records, **dict(tracker))
        return lambda: getattr(engine, name)(**{**WALKS[name], **arguments})

    return call


def helper(name, *arguments):
    """A call of a helper."""
    return lambda module: lambda: getattr(module, name)(*arguments)


def steps_of_candidates(config):
    """A walk over the places of an era configuration."""
    return lambda module: lambda: list(module._candidate_era_configs(config))


HOSTILE_RECORD = HostileRecord(**{**vars(evaluation()), "per_column_stats": None})
HOSTILE_ITEM = [evaluation(function_metadata=[HostileDict(function_name="x")])]
NO_DATABASE = [("_conn", SimpleNamespace(execute=hostile))]
ASKED = [evaluation(function_metadata=[{"function_name": HostileValue()}])]
DIRECT = ["_function_items", "_usage_items"]
VALUE = ["<genexpr>", "_usage_value"]
STATS = ["get_search_stats", "_build_group_key"]

CASES = {
    "tracker of stats": (operation("get_search_stats"), ["get_search_stats", "_fetch_evaluations"]),
    "tracker of suggestions": (
        operation("get_suggestions"),
        ["get_suggestions", "get_search_stats", "_fetch_evaluations"],
    ),
    "argument": (operation("get_search_stats", min_sample_size="x"), ["get_search_stats"]),
    "evaluation type": (
        operation("get_yield_analysis", eval_type="x"),
        ["get_yield_analysis", "_validate_eval_type"],
    ),
    "record of stats": (operation("get_search_stats", [HOSTILE_RECORD]), [*STATS, *DIRECT]),
    "item of stats": (operation("get_search_stats", HOSTILE_ITEM), [*STATS, *VALUE]),
    "sum": (
        operation("get_search_stats", [evaluation(sharpe="x")]),
        ["get_search_stats", "count_into"],
    ),
    "record that is filtered": (
        operation("get_search_stats", [HOSTILE_RECORD], function_family="x"),
        ["get_search_stats", "_fetch_evaluations", *DIRECT],
    ),
    "item that is filtered": (
        operation("get_search_velocity", HOSTILE_ITEM, function_family="x"),
        ["get_search_velocity", "_fetch_evaluations", *VALUE],
    ),
    "value that is compared": (
        operation("get_search_velocity", ASKED, function_family="x"),
        ["get_search_velocity", "_fetch_evaluations", "<genexpr>"],
    ),
    "record of patterns": (
        operation("get_search_patterns", [HOSTILE_RECORD]),
        ["get_search_patterns", *DIRECT],
    ),
    "item of pairs": (
        operation("get_correlation_patterns", HOSTILE_ITEM),
        ["get_correlation_patterns", "_usage_value"],
    ),
    "moment": (
        operation("get_search_velocity", [evaluation(timestamp="x")]),
        ["get_search_velocity"],
    ),
    "table": (
        operation("get_yield_analysis", [evaluation()], NO_DATABASE),
        ["get_yield_analysis", "_tracker_table_exists"],
    ),
    "type of submission": (
        operation("get_yield_analysis", [evaluation(eval_type=HostileValue())]),
        ["get_yield_analysis", "_submission_status_table_and_signal_column"],
    ),
    "measure": (
        operation(
            "get_yield_analysis",
            [evaluation(eval_type=None, agent_is_pnl_mi=HostileValue(), is_pnl_mi=1.0)],
        ),
        ["get_yield_analysis", "_pnl_mi_tamper_delta"],
    ),
    "engine": (lambda module: lambda: module.SearchAnalytics(None, [pool()]), ["__init__"]),
    "group key": (
        lambda module: (
            lambda: engine_of(module)._build_group_key(HOSTILE_RECORD, module.AggregateBy.NONE)
        ),
        ["_build_group_key", *DIRECT],
    ),
    "statistic": (
        lambda module: lambda: engine_of(module)._get_stat(None, None, "sharpe"),
        ["_get_stat"],
    ),
    "items": (helper("_feature_items", HOSTILE_RECORD, 1), []),
    "helper of a helper": (
        helper("_extract_raw_pools", HostileDict()),
        ["_extract_raw_pools", "_unwrap_era_config"],
    ),
    "pools": (
        helper("_resolve_pool_configs", {"signal_pools": [{"name": ""}]}),
        ["_resolve_pool_configs", "_normalize_pool_config"],
    ),
    "candidates": (
        helper("_resolve_pool_configs", HostileDict(era=1)),
        ["_resolve_pool_configs", "_candidate_era_configs"],
    ),
    "candidates alone": (steps_of_candidates(HostileDict(era=1)), ["_candidate_era_configs"]),
}


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
@pytest.mark.parametrize(("case", "names"), CASES.values(), ids=CASES)
def test_functions_that_an_error_passes_are_shown(case, names, module):
    assert shown(raised_by(case(module)), module) == names


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
@pytest.mark.parametrize("name", WALKS)
def test_a_module_function_stands_above_its_method(name, module, monkeypatch):
    engine = engine_of(module)
    monkeypatch.setattr(module, "_get_or_init", lambda: engine)
    inner = ["get_search_stats"] if name == "get_suggestions" else []
    error = raised_by(getattr(module, name))
    assert shown(error, module) == [name, name, *inner, "_fetch_evaluations"]
    assert functions_passed(error)[-1] == "hostile"


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
def test_a_function_that_sorts_is_shown(module, monkeypatch):
    monkeypatch.setattr(module, "FamilyYield", lambda **_: object())
    error = raised_by(operation("get_search_patterns", [evaluation()])(module))
    assert shown(error, module) == ["get_search_patterns", "<lambda>"]


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
def test_qualified_names_are_those_of_python(module):
    error = raised_by(operation("get_search_stats", HOSTILE_ITEM)(module))
    codes = [
        e.tb_frame.f_code for e in traceback_entries(error) if e.tb_frame.f_globals is vars(module)
    ]
    if hasattr(codes[0], "co_qualname"):
        assert [code.co_qualname for code in codes] == [
            "SearchAnalytics.get_search_stats",
            "SearchAnalytics._build_group_key",
            "SearchAnalytics._build_group_key.<locals>.<genexpr>",
            "_usage_value",
        ]


def test_an_entry_shows_the_line_that_gives_the_name():
    for case, names in CASES.values():
        error = raised_by(case(search_analytics))
        ours = [
            e for e in traceback_entries(error) if e.tb_frame.f_globals is vars(search_analytics)
        ]
        for entry, name in zip(ours, names, strict=True):
            path = ROOT / entry.tb_frame.f_code.co_filename
            assert path.is_relative_to(ROOT / "search_analytics")
            line = path.read_text("utf-8").splitlines()[entry.tb_lineno - 1]
            assert f'"{name}"' in line
            assert entry.tb_frame.f_lineno == entry.tb_lineno


def test_frames_have_no_variables_and_keep_nothing_alive():
    record = Record(**vars(evaluation(sharpe="x")))
    here = weakref.ref(record)
    records = [record]
    error = raised_by(operation("get_search_stats", records)(search_analytics))
    ours = [e for e in traceback_entries(error) if e.tb_frame.f_globals is vars(search_analytics)]
    assert [dict(entry.tb_frame.f_locals) for entry in ours] == [{}, {}]
    records.clear()
    del record
    assert here() is None


def test_a_wrong_call_shows_no_function():
    error = raised_by(lambda: search_analytics._function_items())
    assert shown(error, search_analytics) == []


@pytest.mark.parametrize("kind", [KeyboardInterrupt, RecursionError, MemoryError, SystemExit])
def test_errors_of_every_kind_pass_through(kind):
    def fail(**_):
        raise thrown

    thrown = kind("why")
    engine = engine_of(search_analytics, [])
    engine._tracker.get_evaluation_history = fail
    assert raised_by(engine.get_search_patterns) is thrown
    assert shown(thrown, search_analytics) == ["get_search_patterns", "_fetch_evaluations"]


def test_endless_recursion_shows_functions_all_the_way_down():
    engine = engine_of(search_analytics, [])
    engine._tracker.get_evaluation_history = lambda **_: engine.get_search_patterns()
    error = raised_by(engine.get_search_patterns)
    assert isinstance(error, RecursionError)
    names = shown(error, search_analytics)
    assert len(names) > 40
    assert set(names) == {"get_search_patterns", "_fetch_evaluations"}


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
def test_a_generator_shows_itself_where_an_error_is_thrown_into_it(module):
    for is_started in (False, True):
        candidates = module._candidate_era_configs({"era": 1})
        if is_started:
            next(candidates)
        error = raised_by(lambda started=candidates: started.throw(HostileError()))
        assert shown(error, module) == ["_candidate_era_configs"]
        # An error that meets its end does not pass through its body.
        error = raised_by(lambda ended=candidates: ended.throw(HostileError()))
        assert shown(error, module) == []


@pytest.mark.parametrize("module", [search_analytics, model], ids=["module", "model"])
@pytest.mark.parametrize(
    ("call", "owner"),
    [
        (lambda module: lambda: list(module._candidate_era_configs(Stopping(era=1))), None),
        (
            lambda module: operation(
                "get_search_stats", [evaluation(function_metadata=[Stopping(function_name="x")])]
            )(module),
            "_build_group_key",
        ),
    ],
    ids=["generator", "generator expression"],
)
def test_an_end_that_is_not_one_shows_where_it_arose(call, owner, module):
    error = raised_by(call(module))
    assert isinstance(error, RuntimeError)
    inner = "_candidate_era_configs" if owner is None else "<genexpr>"
    assert shown(error.__cause__, module)[0] == inner
    assert inner not in shown(error, module)


class Stopping(dict):
    """A mapping whose reading is an end that is not one."""

    def get(self, *_):
        raise StopIteration


def test_an_import_is_shown_as_a_part_of_its_function(monkeypatch):
    monkeypatch.setitem(sys.modules, "kestrune.auth", None)
    for module in (search_analytics, model):
        error = raised_by(lambda at=module: at._require_registered_or_logged_in(None))
        assert isinstance(error, ImportError)
        assert functions_passed(error)[-1] == "_require_registered_or_logged_in"
        assert all(e.tb_frame.f_code.co_name != "<module>" for e in traceback_entries(error))


def test_a_module_body_that_fails_is_shown():
    source = """
        import sys, traceback
        sys.modules["dataclasses"] = None
        try:
            import kestrune.search_analytics
        except ImportError as error:
            print([entry.name for entry in traceback.extract_tb(error.__traceback__)])
        """
    assert run_child(source).stdout == "['<module>', '<module>']\n"
