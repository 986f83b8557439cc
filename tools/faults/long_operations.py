"""Operations over long inputs, and on the module's own objects: functions, generators, and the
module while it is imported.
"""

from __future__ import annotations

import _imp
import atexit
import builtins
import cProfile
import ctypes
import dataclasses
import gc
import importlib.util
import shutil
import sys
import tempfile
import threading
from collections.abc import Callable
from pathlib import Path
from types import FunctionType, SimpleNamespace
from typing import Any

import kestrune.search_analytics as search_analytics
from kestrune.search_analytics import AggregateBy, TimeWindow
from odd_objects import Likely, OddText, Plain, Row, reluctant
from operations import MODULE, bent, copy_of_module
from support.environment import failing, raw_pool
from support.operations import walk
from support.parts import NOW, evaluation, function_item, pool, using

Call = Callable[[], Any]

LONG = 150
"""More items, names, kinds of key than are kept in any table of fixed size."""

WIDE = 140
"""More names than a record may have to be peeked at; their pairs are many."""


def simple(call: Call) -> Callable[[], Call]:
    return lambda: call


LATER = 9e12
"""A moment that lies in every window."""

RECORD = evaluation(function_metadata=[function_item("f")], submitted=True, tree_depth=1)
RECORDS = [RECORD] * LONG
ASKED = [Plain(RECORD)] * LONG
ROWS = [Row(**{**vars(RECORD), "timestamp": LATER}) for _ in range(LONG)]
DEPTHS = [evaluation(tree_depth=n, function_metadata=None, functions=[]) for n in range(LONG)]
FAMILIES = evaluation(function_metadata=[function_item("f", f"F{n}") for n in range(LONG)])
NAMES = using(*(f"name {n}" for n in range(LONG)))
PAIRS = using(*(f"name {n}" for n in range(WIDE)))
ODD_PAIRS = using(*range(WIDE))
FEW_PAIRS = using(*(f"name {n}" for n in range(120)))


def over(history: Any, *pools: Any) -> Any:
    tracker = SimpleNamespace(get_evaluation_history=lambda **filters: history)
    return search_analytics.SearchAnalytics(tracker, list(pools) or [pool()])


def brief(answer: Any) -> int:
    """Something short that tells a long answer from a wrong one."""
    return len(repr(answer))


def crowded_class() -> Call:
    """An answer whose record class has been given a great many names of the interpreter's kind."""
    module = copy_of_module()
    for number in range(LONG):
        setattr(module.StatsRow, f"__n{number}", number)
    tracker = SimpleNamespace(get_evaluation_history=lambda **filters: [RECORD])
    made = module.SearchAnalytics(tracker, [pool()])
    return lambda: brief(walk(made, "get_search_stats"))


LONG_INPUTS: dict[str, Callable[[], Call]] = {
    **{
        f"{name} of {kind}": simple(
            lambda name=name, history=history: brief(walk(over(history), name))
        )
        for name in ("get_search_stats", "get_search_velocity")
        for kind, history in {"records": RECORDS, "asked": ASKED, "a tuple": tuple(RECORDS)}.items()
    },
    "velocity of rows": simple(lambda: brief(over(ROWS).get_search_velocity())),
    "velocity of windows": simple(
        lambda: brief(over(ROWS[:20]).get_search_velocity(windows=[*range(1, LONG)]))
    ),
    "odd groups": simple(
        lambda: brief(walk(over([using(n) for n in range(LONG)]), "get_search_stats"))
    ),
    "candidates": bent(
        lambda module: module._resolve_pool_configs({}),
        _candidate_era_configs=lambda *configs: [{}] * LONG,
    ),
    "members": crowded_class,
    "depths": simple(lambda: brief(over(DEPTHS * 2).get_search_patterns())),
    "families": simple(lambda: brief(over([FAMILIES]).get_search_patterns())),
    "family keys": simple(
        lambda: brief(
            walk(
                over([FAMILIES]),
                "get_search_stats",
                aggregate_by=AggregateBy.FUNCTION_FAMILY_FEATURE_FAMILY,
            )
        )
    ),
    "names": simple(lambda: len(search_analytics._function_items(NAMES))),
    "names of stats": simple(lambda: brief(walk(over([NAMES]), "get_search_stats"))),
    "wide pairs": simple(lambda: brief(over([PAIRS, PAIRS]).get_correlation_patterns())),
    "odd wide pairs": simple(
        lambda: brief(over([ODD_PAIRS, ODD_PAIRS]).get_correlation_patterns())
    ),
    "pairs": simple(lambda: brief(over([FEW_PAIRS] * 6).get_correlation_patterns())),
    "long pairs": simple(lambda: brief(over([NAMES]).get_correlation_patterns())),
    "filter": simple(lambda: len(over([FAMILIES])._fetch_evaluations(function_family="x"))),
    "pools": simple(lambda: brief(walk(over([RECORD], *[pool()] * LONG), "get_search_stats"))),
    "windows": simple(lambda: brief(over([RECORD]).get_search_velocity(windows=[*range(1, LONG)]))),
    "odd windows": simple(
        lambda: brief(over([Plain(RECORD)]).get_search_velocity(windows=[*range(1, LONG)]))
    ),
    "raw pools": simple(
        lambda: len(
            search_analytics._resolve_pool_configs({"era": {"signal_pools": [raw_pool()] * LONG}})
        )
    ),
    "time windows": simple(
        lambda: brief(
            walk(over([RECORD]), "get_search_stats", time_windows=[OddText(n) for n in range(LONG)])
        )
    ),
}


def generator(use: Callable[[Any], Any]) -> Callable[[], Call]:
    config = {"era_config": {"era_config": {}}, "era": SimpleNamespace(to_dict=dict)}
    return simple(lambda: use(search_analytics._candidate_era_configs(config, 1, 2)))


def traceback_of(error: Exception) -> Any:
    try:
        raise error
    except Exception as caught:
        return caught.__traceback__


def while_running() -> Any:
    """Ask a generator for a value while it works one out."""

    class Config(dict[str, Any]):
        def get(self, *args: Any) -> Any:
            return next(candidates)

    candidates = search_analytics._candidate_era_configs(Config())
    return next(candidates)


class Stops(dict[str, Any]):
    """A configuration that ends the iteration it is asked in."""

    def get(self, *args: Any) -> Any:
        raise StopIteration


TRACEBACK = traceback_of(KeyError("t"))
GENERATORS: dict[str, Callable[[], Call]] = {
    "started": generator(lambda g: (g.send(None), type(repr(g)), g.__name__)),
    "ended": generator(lambda g: [*g, g.send(None)]),
    "sent to": generator(lambda g: g.send(5)),
    "thrown class": generator(lambda g: g.throw(KeyError)),
    "thrown class and value": generator(lambda g: g.throw(KeyError, "x")),
    "thrown class and values": generator(lambda g: g.throw(KeyError, ("x", "y"))),
    "thrown class and instance": generator(lambda g: g.throw(KeyError, KeyError("x"))),
    "thrown instance and value": generator(lambda g: g.throw(KeyError("x"), "y")),
    "thrown number": generator(lambda g: g.throw(5)),
    "thrown end": generator(lambda g: g.throw(StopIteration())),
    "thrown end at the end": generator(lambda g: ([*g], g.throw(StopIteration()))),
    **{
        f"thrown {made!r}": generator(lambda g, made=made: g.throw(reluctant(made)))
        for made in (5, KeyError)
    },
    **{
        f"thrown {made!r} at the end": generator(
            lambda g, made=made: ([*g], g.throw(reluctant(made)))
        )
        for made in (5, KeyError)
    },
    "stopped": simple(lambda: [*search_analytics._candidate_era_configs(Stops())]),
    "thrown traceback": generator(lambda g: g.throw(KeyError, KeyError("x"), TRACEBACK)),
    "thrown no traceback": generator(lambda g: g.throw(KeyError, KeyError("x"), 5)),
    "thrown nothing": generator(lambda g: g.throw()),
    "while running": simple(while_running),
}


def of_function(use: Callable[[Any], Any], name: str = "_usage_value") -> Callable[[], Call]:
    """A use of a function of a module of its own, which keeps nothing of uses before."""

    def build() -> Call:
        module = copy_of_module()
        return lambda: use(getattr(module, name))

    return build


def forget_annotations(function: Any) -> Any:
    del function.__annotations__
    return function.__annotations__


def profiled(use: Callable[[Any], Any]) -> Callable[[], Call]:
    """A use of a module of its own under a profiler in C."""

    def build() -> Call:
        module = copy_of_module()
        profile = cProfile.Profile()

        def watched() -> Any:
            profile.enable()
            try:
                return use(module)
            finally:
                profile.disable()

        return watched

    return build


def call_stand_in(module: Any) -> Any:
    """Call what a profiler in C was told of instead of a function."""
    module._function_items(RECORD)
    tables = (found for found in gc.get_referents(module) if type(found) is dict)
    (stand_ins,) = (t for t in tables if f"{MODULE}._function_items" in t)
    return stand_ins[f"{MODULE}._function_items"]()


def orphaned_code() -> Call:
    """Run the code of a function that is gone."""
    code = copy_of_module()._function_items.__code__
    gc.collect()
    return lambda: FunctionType(code, {})(RECORD)


PROFILES: dict[str, Callable[[], Call]] = {
    "answer": profiled(lambda module: len(module._function_items(RECORD))),
    "method": profiled(lambda module: module.SearchAnalytics(1, [pool()]).get_yield_analysis(5, 5)),
    "error": profiled(lambda module: module._tracker_table_exists(5, "t")),
}
if sys.version_info < (3, 12):
    PROFILES["stand-in"] = profiled(call_stand_in)

FUNCTIONS: dict[str, Callable[[], Call]] = {
    "code": of_function(lambda f: f.__code__.co_varnames),
    "refused code": of_function(lambda f: setattr(f, "__code__", (lambda: 0).__code__)),
    "wrong code": of_function(lambda f: setattr(f, "__code__", 5)),
    "closure": of_function(lambda f: setattr(f, "__closure__", 5)),
    "builtins": of_function(lambda f: type(f.__builtins__)),
    "annotations": of_function(forget_annotations),
    "code of a long name": of_function(lambda f: f.__code__.co_name, "_get_attr_or_item"),
    "run code": of_function(lambda f: FunctionType(f.__code__, {})(RECORD), "_function_items"),
    "orphaned code": orphaned_code,
    "error": of_function(lambda f: f(5, "t"), "_tracker_table_exists"),
    "walks": of_function(lambda f: len(type(f).walk_counts())),
    "steps": of_function(lambda f: type(f).table_steps() >= 0),
    "text": of_function(lambda f: len(repr(f)) > 0),
    "wrong call": of_function(lambda f: f()),
}


def forget(name: str) -> Any:
    """Take away what the module keeps for its interpreter under a name."""
    python = ctypes.pythonapi
    python.PyInterpreterState_GetDict.restype = ctypes.c_void_p
    python.PyInterpreterState_GetDict.argtypes = [ctypes.c_void_p]
    python.PyInterpreterState_Get.restype = ctypes.c_void_p
    borrowed = python.PyInterpreterState_GetDict(python.PyInterpreterState_Get())
    kept = ctypes.cast(borrowed, ctypes.py_object).value
    return kept.pop(f"{MODULE}.{name}", None)


def imported() -> Call:
    """Import a copy of the module, as the first one of its interpreter."""
    atexit.unregister(forget("note_interpreter_end"))
    return lambda: list(vars(copy_of_module()))


def recent(history: Any) -> Any:
    """Those of the last day in a history that is only an iterator."""
    return over([])._filter_by_time_window(history, TimeWindow.LAST_24H, None, NOW)


def first_turn() -> Call:
    """Walk records where nobody has had a turn yet."""
    forget("idle_code")
    return lambda: len(recent(iter([RECORD])))


def interrupted_turn() -> Call:
    """Walk records while another thread lets this one raise an error."""
    interrupt = ctypes.pythonapi.PyThreadState_SetAsyncExc
    interrupt.argtypes = [ctypes.c_ulong, ctypes.py_object]
    return lambda: recent(map(interrupt, [threading.get_ident()], [KeyError]))


TURNS: dict[str, Callable[[], Call]] = {
    "first": first_turn,
    "interrupted": interrupted_turn,
}


def imported_alone(decorator: Any = dataclasses.dataclass) -> Call:
    """Import a copy that does not stand among the loaded modules."""

    def load() -> Any:
        sys.modules.pop(MODULE)
        before, dataclasses.dataclass = dataclasses.dataclass, decorator
        try:
            return list(vars(copy_of_module()))
        finally:
            dataclasses.dataclass = before
            sys.modules[MODULE] = search_analytics

    return load


class Builtins(dict[str, Any]):
    """Builtins that are no plain dictionary."""


def imported_over_a_mapping() -> Call:
    """Import a copy from where the builtins are a mapping."""

    def load() -> Any:
        spec = importlib.util.spec_from_file_location(MODULE, search_analytics.__spec__.origin)
        assert spec is not None
        module = importlib.util.module_from_spec(spec)
        names = {"exec_dynamic": _imp.exec_dynamic, "module": module}
        exec("exec_dynamic(module)", {**names, "__builtins__": Builtins(vars(builtins))})
        del module._usage_items
        return module._function_items(RECORD)

    return load


def imported_crowded() -> Call:
    """Import a copy into a module object that holds a great many names."""

    def load() -> Any:
        spec = importlib.util.spec_from_file_location(MODULE, search_analytics.__spec__.origin)
        assert spec is not None
        assert spec.loader is not None
        module = importlib.util.module_from_spec(spec)
        vars(module).update((f"name {number}", number) for number in range(LONG))
        spec.loader.exec_module(module)
        return len(vars(module))

    return load


def adjacent() -> dict[str, Callable[[], Call]]:
    """The alias of a module whose source text lies beside it."""
    folder = Path(tempfile.mkdtemp())
    atexit.register(shutil.rmtree, folder)
    (folder / "search_analytics.cpp").touch()
    path = str(folder / "search_analytics.cpython-311-x.so")

    class Found(OddText):  # type: ignore[misc, valid-type]
        def find(self, *args: Any) -> Any:
            return Likely(path.index(".cpython"))

    def alias(module: Any) -> Any:
        return [module._alias_source_file(), len(module.__file__)]

    return {
        "alias": bent(alias, __file__=path),
        "odd alias": bent(alias, __file__=Found(path)),
        "other path": bent(
            alias, __file__=path, _os=SimpleNamespace(path=SimpleNamespace(isfile=lambda p: [1]))
        ),
    }


IMPORTS: dict[str, Callable[[], Call]] = {
    "import": imported,
    "import alone": imported_alone,
    "failing import alone": lambda: imported_alone(failing(KeyError)),
    "import over a mapping": imported_over_a_mapping,
    "import crowded": imported_crowded,
    **adjacent(),
    "missing module": bent(lambda module: module._tracker_from_config({"data_dir": "x"}), "_os"),
}
