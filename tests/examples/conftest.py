"""The example client and the demo's parts, freshly imported, and a PostgreSQL server to share.

The rest of the suite fakes the client's modules. Here the real ones stand in their place, for
one test, and make one package with the extension under test.
"""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path
from types import ModuleType
from typing import Any

import pytest

EXAMPLES = Path(__file__).parents[2] / "examples"
DATABASES = ("sqlite", "postgres")


def _loaded(package: str) -> list[str]:
    return [name for name in sys.modules if name.partition(".")[0] == package]


@pytest.fixture
def demo(monkeypatch: pytest.MonkeyPatch) -> Iterator[ModuleType]:
    """The package of the demo's parts, imported for this test only, with its own client."""
    for name in (*_loaded("kestrune"), *_loaded("demo")):
        monkeypatch.delitem(sys.modules, name)
    monkeypatch.syspath_prepend(str(EXAMPLES))
    monkeypatch.syspath_prepend(str(EXAMPLES / "client"))
    import demo

    yield demo
    for name in (*_loaded("kestrune"), *_loaded("demo")):
        del sys.modules[name]


@pytest.fixture
def kestrune(demo: ModuleType) -> Iterator[ModuleType]:
    """The example client: not configured, not logged in."""
    import kestrune

    yield kestrune
    kestrune.logout()


@pytest.fixture(scope="session")
def programs() -> ModuleType:
    """PostgreSQL can be run; where it cannot, that is an error but on CPythons without a wheel."""
    sys.path.insert(0, str(EXAMPLES))
    try:
        from demo import postgres_server
    finally:
        sys.path.remove(str(EXAMPLES))
    if sys.version_info >= (3, 15) and not postgres_server._program_folders():
        pytest.skip("no PostgreSQL here, and its package is not made for this CPython")
    return postgres_server


@pytest.fixture(scope="session")
def server(programs: ModuleType) -> Iterator[Any]:
    """One PostgreSQL server for the whole session; it must start, or the tests fail."""
    with programs.PostgresServer() as running:
        yield running


@pytest.fixture
def database_url(server: Any) -> Iterator[str]:
    """The address of an empty part of the server's database that only this test uses."""
    import psycopg

    with psycopg.connect(server.url, autocommit=True) as admin:
        admin.execute("CREATE SCHEMA one_test")
        yield f"{server.url}&options=-csearch_path%3Done_test"
        admin.execute("DROP SCHEMA one_test CASCADE")


@pytest.fixture
def both_trackers(
    kestrune: ModuleType, tmp_path: Path, database_url: str
) -> Iterator[dict[str, Any]]:
    """An empty tracker on each kind of database, by its name."""
    from kestrune.search_tracking import SearchTracker

    with SearchTracker(tmp_path, "") as sqlite, SearchTracker(tmp_path, database_url) as postgres:
        yield {"sqlite": sqlite, "postgres": postgres}


@pytest.fixture(params=DATABASES)
def tracker(both_trackers: dict[str, Any], request: pytest.FixtureRequest) -> Any:
    """An empty tracker, on each kind of database in turn."""
    return both_trackers[request.param]
