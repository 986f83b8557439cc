"""The rest of the client package, faked: five sibling modules that one test may bend."""

from __future__ import annotations

import sys
from types import ModuleType, SimpleNamespace
from typing import Any

import pytest

PACKAGE = "kestrune"


class FakeAuthError(Exception):
    """What the fake `kestrune.auth` calls `AuthError`."""


class FakeSearchTracker:
    """What the fake `kestrune.search_tracking` builds over a data directory."""

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        self.args = args
        self.kwargs = kwargs

    def get_evaluation_history(self, **filters: Any) -> list[Any]:
        return []


class Client:
    """Sibling modules in `sys.modules`: logged in, one pool, no handle, no runtime, no data.

    Attributes are the five modules; every change is undone by the `monkeypatch` given.
    """

    def __init__(self, monkeypatch: pytest.MonkeyPatch) -> None:
        self._monkeypatch = monkeypatch
        self.onboarding = self.install("agent_onboarding")
        self.auth = self.install("auth")
        self.templates = self.install("search_templates")
        self.tracking = self.install("search_tracking")
        self.runtime_module = self.install("_runtime")
        self.auth.AuthError = FakeAuthError
        self.tracking.SearchTracker = FakeSearchTracker
        self.runtime_module.get_runtime = lambda: None
        self.onboarding._config = {"era_config": {"signal_pools": [raw_pool()]}}
        self.onboarding._auth_manager = session()
        self.templates._active_handles = []

    def install(self, name: str, module: Any = None) -> Any:
        """Put `module` (a new one by default) under `kestrune.<name>`; return it."""
        module = ModuleType(f"{PACKAGE}.{name}") if module is None else module
        self.unload(name)
        self._monkeypatch.setitem(sys.modules, f"{PACKAGE}.{name}", module)
        return module

    def unload(self, name: str) -> None:
        """Forget `kestrune.<name>`: neither in `sys.modules` nor an attribute of the package."""
        import kestrune

        self._monkeypatch.delitem(sys.modules, f"{PACKAGE}.{name}", raising=False)
        self._monkeypatch.delattr(kestrune, name, raising=False)

    def block(self, name: str) -> None:
        """Make every import of `kestrune.<name>` fail with ModuleNotFoundError."""
        self.unload(name)
        self._monkeypatch.setitem(sys.modules, f"{PACKAGE}.{name}", None)

    def provide(self, name: str, source: str, folder: Any) -> None:
        """Make `kestrune.<name>` importable, but not loaded, from `source` written to `folder`."""
        import kestrune

        self.unload(name)
        (folder / f"{name}.py").write_text(source)
        self._monkeypatch.setattr(kestrune, "__path__", [str(folder), *kestrune.__path__])
        # The import will bind the module in both places: have both restored afterwards.
        for table, key in ((sys.modules, f"{PACKAGE}.{name}"), (vars(kestrune), name)):
            self._monkeypatch.setitem(table, key, None)
            del table[key]

    def log_out(self) -> None:
        """Leave no auth object anywhere."""
        self.onboarding._auth_manager = None
        self.templates._auth = None

    def run_search(self, tracker: Any, **attributes: Any) -> SimpleNamespace:
        """Add a live search handle over `tracker` and return it."""
        handle = SimpleNamespace(_tracker=tracker, _stopped=False, **attributes)
        self.templates._active_handles.append(handle)
        return handle


def session(token: Any = "token") -> SimpleNamespace:
    """An auth object whose `get_token()` returns `token`."""
    return SimpleNamespace(get_token=lambda: token)


def raw_pool(name: Any = "main", threshold: Any = 0.7, **more: Any) -> dict[str, Any]:
    """A pool entry as an era configuration holds it."""
    return {"name": name, "is_correlation_threshold": threshold, **more}


def failing(error: BaseException | type[BaseException]) -> Any:
    """A function that raises `error` whatever it is given: a class is raised anew each time."""

    def fail(*args: Any, **kwargs: Any) -> Any:
        raise error

    return fail
