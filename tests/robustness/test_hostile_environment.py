"""Sibling modules, trackers, databases and clocks that change, lie or raise."""

from __future__ import annotations

import sqlite3
import sys
import threading
from contextlib import closing
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.environment import failing, raw_pool, session
from support.operations import WALKS, ending, walk
from support.parts import RecordingTracker, engine_over, evaluation, pool

EVERY_WALK = pytest.mark.parametrize("name", WALKS)
ENDINGS = [KeyboardInterrupt(), SystemExit(3), GeneratorExit(), type("Mine", (Exception,), {})()]


class Unreadable:
    """Every attribute raises, but for what the import machinery looks at."""

    def __getattr__(self, name):
        raise LookupError(name)


@EVERY_WALK
@pytest.mark.parametrize("error", ENDINGS, ids=lambda error: type(error).__name__)
def test_errors_of_the_tracker_pass_unchanged(name, error):
    engine = engine_over([])
    engine._tracker = SimpleNamespace(get_evaluation_history=failing(error))
    with pytest.raises(type(error)) as caught:
        walk(engine, name)
    assert caught.value is error


@EVERY_WALK
@pytest.mark.parametrize(
    ("tracker", "error"),
    [
        (object(), AttributeError),
        (SimpleNamespace(get_evaluation_history=5), TypeError),
        (SimpleNamespace(get_evaluation_history=list), TypeError),
        (Unreadable(), LookupError),
    ],
    ids=["missing", "not callable", "no keywords", "raising"],
)
def test_trackers_that_cannot_be_asked(name, tracker, error):
    engine = engine_over([])
    engine._tracker = tracker
    with pytest.raises(error):
        walk(engine, name)


@EVERY_WALK
@pytest.mark.parametrize(
    "history",
    [None, 5, "text", b"bytes", {"a": 1}, object(), lambda: 1, NotImplemented],
    ids=lambda history: type(history).__name__,
)
@pytest.mark.filterwarnings("ignore:NotImplemented should not be used:DeprecationWarning")
def test_histories_of_any_kind_end_in_a_value_or_an_error(now, name, history):
    ending(lambda: walk(engine_over(history), name))


@EVERY_WALK
def test_a_tracker_that_replaces_itself_while_it_is_asked(now, name):
    class Replacing(RecordingTracker):
        def get_evaluation_history(self, **filters):
            engine._tracker = None
            return super().get_evaluation_history(**filters)

    engine = engine_over([])
    engine._tracker = Replacing([evaluation()])
    ending(lambda: walk(engine, name))
    assert engine._tracker is None


@EVERY_WALK
def test_a_tracker_that_empties_its_engine(now, name):
    class Emptying(RecordingTracker):
        def get_evaluation_history(self, **filters):
            vars(engine).clear()
            return super().get_evaluation_history(**filters)

    engine = engine_over([])
    engine._tracker = Emptying([evaluation()])
    if name in ("get_search_stats", "get_suggestions"):
        with pytest.raises(AttributeError, match="_pool_configs"):
            walk(engine, name)
    elif name == "get_yield_analysis":
        with pytest.raises(AttributeError, match="_tracker"):
            walk(engine, name)
    else:
        walk(engine, name)


@pytest.mark.parametrize("name", ["get_search_stats", "get_search_velocity", "get_yield_analysis"])
@pytest.mark.parametrize(
    ("clock", "error"),
    [
        (failing(LookupError("mine")), LookupError),
        (failing(KeyboardInterrupt()), KeyboardInterrupt),
        (lambda: "now", TypeError),
        (lambda: None, TypeError),
        (5, TypeError),
    ],
    ids=["raising", "interrupting", "text", "None", "not callable"],
)
def test_clocks_that_do_not_tell_the_time(monkeypatch, name, clock, error):
    monkeypatch.setattr(search_analytics, "time", SimpleNamespace(time=clock))
    with pytest.raises(error):
        walk(engine_over([evaluation()]), name)


@pytest.mark.parametrize("name", ["get_search_stats", "get_search_velocity", "get_yield_analysis"])
@pytest.mark.parametrize("instant", [float("nan"), float("inf"), 0, -1, 2**70, True], ids=repr)
def test_clocks_of_any_number_are_believed(monkeypatch, name, instant):
    monkeypatch.setattr(search_analytics, "time", SimpleNamespace(time=lambda: instant))
    assert type(walk(engine_over([evaluation()]), name)).__name__.endswith("Result")


def test_a_finiteness_test_that_lies(monkeypatch):
    monkeypatch.setattr(search_analytics, "math", SimpleNamespace(isfinite=lambda value: "yes"))
    assert search_analytics._pnl_mi_tamper_delta(float("inf"), 1.0) == float("inf")
    monkeypatch.setattr(search_analytics, "math", SimpleNamespace(isfinite=lambda value: []))
    assert search_analytics._pnl_mi_tamper_delta(1.0, 2.0) is None


@pytest.mark.parametrize(
    "name", ["agent_onboarding", "auth", "search_templates", "search_tracking", "_runtime"]
)
@pytest.mark.parametrize("stand_in", [5, "text", Unreadable()], ids=lambda x: type(x).__name__)
def test_siblings_that_are_something_else_end_in_an_error_or_an_answer(client, name, stand_in):
    client.install(name, stand_in)
    ending(search_analytics.get_available_aggregations)
    assert sys.modules[f"kestrune.{name}"] is stand_in


@pytest.mark.parametrize(
    "name", ["agent_onboarding", "auth", "search_templates", "search_tracking", "_runtime"]
)
def test_siblings_that_vanish_during_the_call(client, tmp_path, name):
    """The login check removes each of them in turn from the table of loaded modules."""

    def get_token():
        sys.modules.pop(f"kestrune.{name}", None)
        return "token"

    client.onboarding._auth_manager = SimpleNamespace(get_token=get_token)
    client.onboarding._config["data_dir"] = str(tmp_path)
    outcome = ending(search_analytics.get_available_aggregations)
    expected = ModuleNotFoundError if name == "search_tracking" else list
    assert outcome is expected or type(outcome) is expected


def test_handles_without_end_are_a_matter_of_memory_not_of_a_crash(client):
    taken = []

    def endless():
        while len(taken) < 10_000:
            taken.append(1)
            yield SimpleNamespace(_stopped=True)
        raise MemoryError

    client.templates._active_handles = endless()
    with pytest.raises(MemoryError):
        search_analytics._active_search_handle()


@pytest.mark.parametrize("size", [sys.maxsize // 2 + 1, -5, "text"], ids=repr)
def test_length_hints_that_lie_are_not_believed_blindly(size):
    class Hinting:
        def __iter__(self):
            return iter([raw_pool("a")])

        def __length_hint__(self):
            return size

    outcome = ending(lambda: search_analytics._iter_pool_configs(Hinting()))
    assert outcome == [raw_pool("a")] or outcome in (MemoryError, ValueError, TypeError)


def test_an_era_mapping_that_changes_while_it_is_read():
    class Fickle(dict):
        def values(self):
            for value in dict.values(self):
                self[len(self)] = value
                yield value

    with pytest.raises(RuntimeError, match="dictionary changed size during iteration"):
        search_analytics._resolve_pool_configs({"signal_pools": Fickle(a=raw_pool())})


def test_a_wrapper_without_end_is_opened_a_bounded_number_of_times():
    opened = []

    class Wrapper:
        def to_dict(self):
            opened.append(1)
            return Wrapper()

    with pytest.raises(ValueError, match="must contain non-empty pool configs"):
        search_analytics._resolve_pool_configs({"era": Wrapper()})
    assert len(opened) == 2


@pytest.mark.parametrize(
    "path",
    ["x" * 5_000_000, "with\0nul", "\udc80", b"bytes", "~nobody-of-that-name/x"],
    ids=["five megabytes", "NUL", "surrogate", "bytes", "unknown user"],
)
def test_odd_data_directories_are_an_error_of_the_system(client, path):
    with pytest.raises((OSError, ValueError)) as caught:
        search_analytics._tracker_from_config({"data_dir": path})
    assert "does not exist" in str(caught.value) or isinstance(caught.value, ValueError)


NASTY = "x'); DROP TABLE signal_submission_status; --\"\0;%s?"


def test_no_text_of_the_caller_becomes_part_of_a_statement(now):
    """Every argument and every field holds quotes and semicolons: the statements stay the same."""

    class Connection:
        def __init__(self):
            self.statements = set()

        def execute(self, sql, parameters):
            self.statements.add(sql)
            return SimpleNamespace(fetchone=lambda: (NASTY, 1, NASTY, NASTY))

    def statements(**fields):
        connection = Connection()
        for kind in ("signal", "strategy"):
            record = evaluation(**{**fields, "eval_type": kind})
            engine_over([record], conn=connection).get_yield_analysis(
                *[fields.get("eval_id")] * 1, None, *[fields.get("eval_id")] * 2
            )
        return connection.statements

    nasty = {name: NASTY for name in vars(evaluation()) if not name.endswith("_metadata")}
    nasty |= {"timestamp": 0, "signal_pool_id": NASTY, "failure_reason": NASTY}
    assert statements(**nasty) == statements()
    assert len(statements()) == 3


def test_a_locked_database_is_its_own_error_and_the_next_call_works(now, tmp_path):
    path = tmp_path / "data.db"
    with (
        closing(sqlite3.connect(path, timeout=0, isolation_level=None)) as writer,
        closing(sqlite3.connect(path, timeout=0, isolation_level=None)) as reader,
    ):
        writer.execute(
            "CREATE TABLE signal_submission_status "
            "(status_id, eval_id, status, useful_flag, rejection_reason, signal_pool_id)"
        )
        engine = engine_over([evaluation()], conn=reader)
        writer.execute("BEGIN EXCLUSIVE")
        with pytest.raises(sqlite3.OperationalError, match="locked"):
            engine.get_yield_analysis()
        writer.execute("ROLLBACK")
        assert engine.get_yield_analysis().usefulness_unknown_evaluations == 1


def test_a_connection_that_closes_between_two_evaluations_is_its_own_error(now):
    connection = sqlite3.connect(":memory:")

    class Closing(SimpleNamespace):
        @property
        def agent_is_pnl_mi(self):
            connection.close()

    engine = engine_over([Closing(**vars(evaluation())), evaluation()], conn=connection)
    with pytest.raises(sqlite3.ProgrammingError, match="closed database"):
        engine.get_yield_analysis()


ROWS = {
    "None status": (None, None, None, None),
    "raising index": type("Row", (), {"__getitem__": failing(LookupError("mine"))})(),
    "not indexable": 5,
    "text": "abcd",
    "mapping": {0: "useful", 1: None, 2: None, 3: None},
    "flag without truth": (1, type("Flag", (), {"__bool__": failing(ValueError("x"))})(), 1, 1),
    "status without equality": (
        type("Status", (), {"__eq__": failing(ValueError("x")), "__hash__": None})(),
        *(None, None, None),
    ),
}


@pytest.mark.parametrize("row", ROWS.values(), ids=ROWS)
def test_status_rows_of_any_kind_end_in_a_value_or_an_error(now, row):
    connection = SimpleNamespace(
        execute=lambda sql, parameters: SimpleNamespace(fetchone=lambda: row)
    )
    engine = engine_over([evaluation()], conn=connection)
    ending(engine.get_yield_analysis)
    engine._tracker._conn = None
    assert engine.get_yield_analysis().total_evaluations == 1


def test_a_connection_of_another_thread_is_its_own_error(now):
    made, done = [], threading.Event()

    def own_a_connection():
        with closing(sqlite3.connect(":memory:")) as connection:
            made.append(connection)
            opened.set()
            done.wait(30)

    opened = threading.Event()
    thread = threading.Thread(target=own_a_connection)
    thread.start()
    try:
        assert opened.wait(30)
        with pytest.raises(sqlite3.ProgrammingError, match="same thread"):
            engine_over([evaluation()], conn=made[0]).get_yield_analysis()
    finally:
        done.set()
        thread.join(30)


def test_pools_without_a_name_fail_only_when_there_are_evaluations(now):
    engine = engine_over([])
    engine._pool_configs = [SimpleNamespace(is_correlation_threshold=0.5)]
    assert engine.get_search_stats().rows == []
    engine._tracker.evals = [evaluation()]
    with pytest.raises(AttributeError, match="no attribute 'name'"):
        engine.get_search_stats()


def test_unhashable_pool_names_are_a_type_error(now):
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        engine_over([evaluation()], pool(["a"])).get_search_stats(min_sample_size=0)


def test_a_login_that_logs_out_during_the_call(client):
    def get_token():
        client.log_out()
        return "token"

    client.run_search("tracker")
    client.onboarding._auth_manager = SimpleNamespace(get_token=get_token)
    assert len(search_analytics.get_available_aggregations()) == 10
    with pytest.raises(client.auth.AuthError):
        search_analytics.get_available_aggregations()
    client.onboarding._auth_manager = session()
    assert len(search_analytics.get_available_aggregations()) == 10
