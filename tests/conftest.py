"""Fixtures shared by every test: a clean engine cache, the fake client package, a fixed clock."""

from __future__ import annotations

import sys
from collections.abc import Iterator
from types import SimpleNamespace

import pytest
from support.environment import Client
from support.parts import NOW

MODULE = "kestrune.search_analytics"

pytest_plugins = ["support.runs"]


def pytest_configure(config: pytest.Config) -> None:
    """Register the markers of this suite (markers are strict)."""
    config.addinivalue_line("markers", "leaks: counts memory blocks; meaningless under a sanitizer")
    config.addinivalue_line("markers", "faults: makes allocations fail in child processes")


@pytest.fixture(autouse=True)
def uncached_engine() -> Iterator[None]:
    """Start and end every test without a cached module-wide engine."""
    module = sys.modules.get(MODULE)
    if module is not None:
        module._singleton = None
    yield
    if module is not None and sys.modules.get(MODULE) is module:
        module._singleton = None


@pytest.fixture
def client(monkeypatch: pytest.MonkeyPatch) -> Client:
    """The fake sibling modules, standing in `sys.modules` for one test; logged in, one pool."""
    return Client(monkeypatch)


@pytest.fixture
def now(monkeypatch: pytest.MonkeyPatch) -> float:
    """Stop the module's clock at `NOW` (seconds since the epoch) and return that instant."""
    import kestrune.search_analytics as search_analytics

    monkeypatch.setattr(search_analytics, "time", SimpleNamespace(time=lambda: NOW))
    return NOW
