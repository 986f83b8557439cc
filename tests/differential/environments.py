"""Generated surroundings: sibling modules in every state, and calls that find their way in them."""

from __future__ import annotations

import importlib
import os
import sys
from collections.abc import Callable
from importlib.abc import Loader
from importlib.machinery import ModuleSpec
from pathlib import Path
from types import ModuleType
from typing import Any

from differential.helpers import Bag, era_config, onboarding_config
from differential.hooks import HookedList, HookedTruth, hooked
from differential.values import fresh_error
from differential.world import World
from support.records import HistoryTracker

Call = Callable[[], Any]

PACKAGE = "kestrune"
SIBLINGS = ("agent_onboarding", "auth", "search_templates", "search_tracking", "_runtime")


class LoginError(Exception):
    """What the sibling `auth` calls `AuthError`."""


def package(w: World) -> Any:
    """The package that the sibling modules live in; made up when there is none."""
    try:
        return importlib.import_module(PACKAGE)
    except ImportError:
        made = ModuleType(PACKAGE)
        made.__path__ = []
        sys.modules[PACKAGE] = made
        w.cleanup.callback(sys.modules.pop, PACKAGE, None)
        return made


class _Finder:
    """Finds the siblings that are not loaded yet, and can fail to load them."""

    def __init__(self, w: World, found: dict[str, Any]) -> None:
        self.w, self.found = w, found

    def find_spec(self, name: str, path: Any = None, target: Any = None) -> ModuleSpec | None:
        if name not in self.found:
            return None
        self.w.note("find", name)
        return ModuleSpec(name, _Loader(self.w, self.found[name]))


class _Loader(Loader):
    def __init__(self, w: World, module: Any) -> None:
        self.w, self.module = w, module

    def create_module(self, spec: ModuleSpec) -> Any:
        return None if isinstance(self.module, BaseException) else self.module

    def exec_module(self, module: Any) -> None:
        self.w.note("load")
        if isinstance(self.module, BaseException):
            raise self.module


def stage(w: World) -> dict[str, Any]:
    """Make every sibling loaded, importable, blocked or absent until the case is over."""
    parent = package(w)
    waiting: dict[str, Any] = {}
    for name in SIBLINGS:
        full_name = f"{PACKAGE}.{name}"
        _restore_later(w, parent, name, full_name)
        sys.modules.pop(full_name, None)
        vars(parent).pop(name, None)
        module = _MAKERS[name](w)
        state = w.below(20)
        if state < 13:
            sys.modules[full_name] = module
            if w.chance(70):
                setattr(parent, name, module)
        elif state < 17:
            waiting[full_name] = module
        elif state == 17:
            sys.modules[full_name] = None  # type: ignore[assignment]
        elif state == 18:
            waiting[full_name] = w.pick((ImportError("not for you"), ValueError("broken module")))
    finder = _Finder(w, waiting)
    sys.meta_path.insert(0, finder)  # type: ignore[arg-type]
    w.cleanup.callback(sys.meta_path.remove, finder)  # type: ignore[arg-type]
    return waiting


def _restore_later(w: World, parent: Any, name: str, full_name: str) -> None:
    loaded = sys.modules.get(full_name, w)
    bound = vars(parent).get(name, w)

    def restore() -> None:
        sys.modules.pop(full_name, None)
        vars(parent).pop(name, None)
        if loaded is not w:
            sys.modules[full_name] = loaded
        if bound is not w:
            setattr(parent, name, bound)

    w.cleanup.callback(restore)


def module_of(name: str, fields: dict[str, Any]) -> ModuleType:
    """A sibling module that holds `fields`."""
    module = ModuleType(f"{PACKAGE}.{name}")
    vars(module).update(fields)
    return module


def auth_object(w: World) -> Any:
    """Something to log in with: a token, none, or a failure."""
    if w.chance(8):
        return None
    if w.chance(6):
        return Bag(w, "auth", {"get_token": fresh_error(w)})
    if w.chance(5):
        return object()
    if w.chance(12):
        error: BaseException = w.pick((RuntimeError("no token"), fresh_error(w)))

        def fail() -> Any:
            w.note("token")
            raise error

        return Bag(w, "auth", {"get_token": fail})
    tokens = ("token", "token", "token", "", None, 0, HookedTruth(w.note, "token", True))
    token = w.pick(tokens)
    return Bag(w, "auth", {"get_token": lambda: token})


def tracker(w: World) -> Any:
    """A tracker with an empty history."""
    return w.tag(HistoryTracker([], w.trace, eras=["era-1"], universes=["main"]), "tracker")


def onboarding(w: World) -> Any:
    """The onboarding module: configuration, auth object, bootstrap."""
    fields: dict[str, Any] = {}
    if not w.chance(6):
        config = _with_pools(w, onboarding_config(w))
        if isinstance(config, dict) and w.chance(60):
            config["data_dir"] = data_dir(w)
        fields["_config"] = config
    if not w.chance(15):
        fields["_auth_manager"] = auth_object(w)
    if w.chance(50):
        fields["ensure_runtime_bootstrapped"] = w.pick((5, None, _bootstrap(w)))
    if w.chance(15):
        return Bag(w, "onboarding", fields)
    return module_of("agent_onboarding", fields)


def _with_pools(w: World, config: Any) -> Any:
    """Mostly a configuration that leads to an engine."""
    if w.chance(65):
        entry = {"name": "main", "is_correlation_threshold": w.pick((0.7, 1, -1, 0))}
        return {"era_config": {"signal_pools": [entry]}}
    return config


def _bootstrap(w: World) -> Any:
    result = w.pick((None, runtime(w), fresh_error(w)))

    def bootstrap(*args: Any, **keywords: Any) -> Any:
        w.note("bootstrap", args, tuple(keywords.items()))
        if isinstance(result, BaseException):
            raise result
        return result

    return bootstrap


def runtime(w: World) -> Any:
    """A runtime with or without a tracker and an era configuration."""
    fields: dict[str, Any] = {}
    if w.chance(60):
        fields["search_tracker"] = tracker(w) if w.chance(70) else None
    if w.chance(60):
        fields["era_config"] = era_config(w)
    return w.tag(Bag(w, "runtime", fields), "runtime")


def data_dir(w: World) -> Any:
    """A data directory: there, not there, or no path at all."""
    here = os.path.dirname(__file__)
    existing = (here, "~", os.sep, Path(here), os.fsencode(here))
    missing = ("", None, "~/no such folder", "nowhere", __file__, b"nowhere", 5, "a\0b", ["x"])
    return w.pick(existing) if w.chance(60) else w.pick(missing)


def handle(w: World) -> Any:
    """A search handle: live or stopped, with or without a tracker."""
    fields: dict[str, Any] = {}
    if w.chance(60):
        fields["_stopped"] = w.pick((False, True, 0, "yes", HookedTruth(w.note, "stopped", False)))
    if w.chance(80):
        fields["_tracker"] = tracker(w) if w.chance(75) else None
    if w.chance(50):
        fields["_era_config"] = era_config(w)
    if w.chance(3):
        fields["_stopped"] = fresh_error(w)
    return w.tag(Bag(w, "handle", fields), "handle")


def templates(w: World) -> Any:
    """The search module: auth object and search handles."""
    fields: dict[str, Any] = {}
    if w.chance(50):
        fields["_auth"] = auth_object(w)
    if w.chance(60):
        handles = [handle(w) for _ in range(w.below(3))]
        unusual = (
            handles,
            handles,
            tuple(handles),
            iter(handles),
            hooked(HookedList, w.note, "handles", handles),
            None,
            5,
            {},
        )
        fields["_active_handles"] = w.pick(unusual)
    if w.chance(10):
        return Bag(w, "templates", fields)
    return module_of("search_templates", fields)


def tracking(w: World) -> Any:
    """The tracking module: a tracker class that logs what it is built with."""

    def build(*args: Any, **keywords: Any) -> Any:
        w.note("SearchTracker", repr(args), repr(keywords))
        return tracker(w)

    return module_of("search_tracking", {} if w.chance(10) else {"SearchTracker": build})


def auth_module(w: World) -> Any:
    """The auth module; rarely without its exception, or with one that is none."""
    if w.chance(4):
        return module_of("auth", {})
    error: Any = LoginError if not w.chance(3) else w.pick((None, 5, str))
    return module_of("auth", {"AuthError": error})


def runtime_module(w: World) -> Any:
    """The runtime module: a function that gives a runtime, None, or fails."""
    if w.chance(15):
        return module_of("_runtime", {})
    result = w.pick((None, None, runtime(w), fresh_error(w)))

    def get_runtime() -> Any:
        w.note("get_runtime")
        if isinstance(result, BaseException):
            raise result
        return result

    return module_of("_runtime", {"get_runtime": get_runtime})


_MAKERS: dict[str, Callable[[World], Any]] = {
    "agent_onboarding": onboarding,
    "auth": auth_module,
    "search_templates": templates,
    "search_tracking": tracking,
    "_runtime": runtime_module,
}


def resolution(w: World) -> Call:
    """One of the helpers that find login, handle, runtime and tracker."""
    stage(w)
    given = onboarding(w)
    config = onboarding_config(w)
    if isinstance(config, dict):
        config["data_dir"] = data_dir(w)
    calls: tuple[tuple[str, tuple[Any, ...]], ...] = (
        ("_runtime_from_onboarding", (given,)),
        ("_auth_from_onboarding_or_search", (given,)),
        ("_require_registered_or_logged_in", (given,)),
        ("_active_search_handle", ()),
        ("_tracker_from_config", (config,)),
        ("_resolve_tracker_and_pools", (given,)),
    )
    helper, arguments = w.pick(calls)
    _watch_paths(w)
    return lambda: getattr(w.module, helper)(*arguments)


def _watch_paths(w: World) -> None:
    """Now and then log the checks of paths, or answer them otherwise."""
    if not w.chance(20):
        return
    answer = w.pick((True, False, "", 1))

    def isdir(path: Any) -> Any:
        w.note("isdir", repr(path))
        return answer

    w.patch(w.module._os.path, "isdir", isdir)


FUNCTIONS: tuple[tuple[str, dict[str, Any]], ...] = (
    ("get_available_aggregations", {}),
    ("get_available_eras", {}),
    ("get_available_named_universes", {}),
    ("get_search_stats", {"era_id": "era-1", "min_sample_size": 0}),
    ("get_search_patterns", {"signal_pool_id": "pool-a", "eval_type": "strategy"}),
    ("get_search_velocity", {"windows": [5]}),
    ("get_yield_analysis", {"recent_window_minutes": 5}),
    ("get_correlation_patterns", {"top_n": 0}),
    ("get_suggestions", {"top_n": 3}),
)


def module_calls(w: World) -> Call:
    """Two module-level calls; between them the caller may log out, and the engine is kept."""
    stage(w)
    w.patch(w.module, "_singleton", None)
    steps = [w.pick(FUNCTIONS), w.pick(FUNCTIONS)]
    logs_out = w.chance(25)

    def run() -> Any:
        found: list[Any] = []
        for name, keywords in steps:
            try:
                found.append(getattr(w.module, name)(**keywords))
            except Exception as error:
                found.append(error)
            engine = w.module._singleton
            found.append(None if engine is None else vars(engine))
            found.append(engine is w.module._singleton)
            loaded = sys.modules.get(f"{PACKAGE}.agent_onboarding")
            if logs_out and isinstance(loaded, ModuleType):
                loaded._auth_manager = object()  # type: ignore[attr-defined]
        return found

    return run


def cached_engine(w: World) -> Call:
    """`_get_or_init` over a patched resolution that returns the right pair, or not."""
    stage(w)
    w.patch(w.module, "_singleton", None)
    pair = (tracker(w), [type("Pool", (), {"is_correlation_threshold": 0.5})()])
    results: tuple[Any, ...] = (
        pair,
        list(pair),
        iter(pair),
        pair[:1],
        (*pair, 3),
        None,
        dict.fromkeys(("a", "b")),
        "ab",
        (None, pair[1]),
    )
    result = w.pick(results)
    w.patch(w.module, "_resolve_tracker_and_pools", lambda module: result)
    if w.chance(60):
        w.patch(w.module, "_require_registered_or_logged_in", lambda module: w.note("required"))
    if w.chance(15):
        w.patch(w.module, "_singleton", w.pick((5, 0, False)))

    def run() -> Any:
        try:
            engine = w.module._get_or_init()
        finally:
            w.note("cached", type(w.module._singleton).__name__)
        again = w.module._get_or_init()
        return engine is again, type(engine).__name__, getattr(engine, "__dict__", engine)

    return run
