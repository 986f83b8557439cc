"""Configuration, login, runtime and searches of the example client."""

from __future__ import annotations

import sys
from pathlib import Path
from typing import Any

import pytest

KEY = "0123456789abcdef" * 4


def engine_tracker() -> Any:
    """Return the tracker that the module-level analytics work on."""
    import kestrune.search_analytics as analytics

    return analytics._get_or_init()._tracker


def test_importing_the_analytics_imports_no_sibling(kestrune: Any) -> None:
    import kestrune.search_analytics

    # `kestrune` is the client's own package, and the extension is in it.
    assert Path(kestrune.__file__).parent.parent.name == "client"
    siblings = {name for name in sys.modules if name.startswith("kestrune.")}
    assert siblings == {"kestrune.search_analytics"}


def test_the_package_has_no_other_names(kestrune: Any) -> None:
    with pytest.raises(AttributeError, match="module 'kestrune' has no attribute 'absent'"):
        kestrune.absent  # noqa: B018


@pytest.mark.parametrize(
    "key",
    ["", "abc", KEY[:-1], KEY + "0", "g" * 64, None, 5],
    ids=["empty", "text", "short", "long", "other digits", "none", "int"],
)
def test_login_takes_private_keys_only(kestrune: Any, key: Any) -> None:
    from kestrune.auth import AuthError

    with pytest.raises(AuthError, match="64 hexadecimal digits"):
        kestrune.login(key)


@pytest.mark.parametrize(
    "key", [KEY, KEY.upper(), "0x" + KEY], ids=["plain", "upper case", "prefix"]
)
def test_login_makes_tokens_that_hide_the_key(kestrune: Any, key: str) -> None:
    from kestrune import agent_onboarding

    kestrune.login(key)
    auth = agent_onboarding._auth_manager
    assert auth.get_token() == auth.get_token() != ""
    assert KEY not in auth.get_token().lower()


def test_an_expired_token_is_replaced(kestrune: Any, monkeypatch: pytest.MonkeyPatch) -> None:
    from kestrune import auth

    seconds = 1000.0
    monkeypatch.setattr(auth.time, "time", lambda: seconds)
    manager = auth.AuthManager(KEY)
    first = manager.get_token()
    seconds += manager.TOKEN_SECONDS - 1
    assert manager.get_token() == first
    seconds += 1
    assert manager.get_token() != first


def test_register_returns_a_new_key_that_logs_in(kestrune: Any) -> None:
    first, second = kestrune.register(), kestrune.register()
    assert first != second
    kestrune.login(first)


def test_analytics_need_a_login_every_time(kestrune: Any, tmp_path: Path) -> None:
    import kestrune.search_analytics as analytics
    from kestrune.auth import AuthError

    kestrune.configure(data_dir=tmp_path)
    with pytest.raises(AuthError, match="No wallet initialized"):
        analytics.get_available_eras()
    key = kestrune.register()
    assert analytics.get_available_eras() == []
    with kestrune.search():
        pass
    kestrune.logout()
    with pytest.raises(AuthError, match="No wallet initialized"):
        analytics.get_available_aggregations()
    kestrune.login(key)
    assert len(analytics.get_available_aggregations()) == 10


def test_analytics_need_a_data_folder(kestrune: Any, tmp_path: Path) -> None:
    import kestrune.search_analytics as analytics

    kestrune.register()
    with pytest.raises(OSError, match="needs a configured data directory"):
        analytics.get_available_eras()
    kestrune.configure(data_dir=tmp_path / "absent")
    with pytest.raises(OSError, match="does not exist"):
        analytics.get_available_eras()


@pytest.mark.parametrize("database", ["sqlite", "postgres"])
def test_the_configured_url_chooses_the_database(
    kestrune: Any, tmp_path: Path, database_url: str, database: str
) -> None:
    url = database_url if database == "postgres" else ""
    kestrune.configure(data_dir=tmp_path, database_url=url)
    kestrune.register()
    assert getattr(engine_tracker()._conn, "dialect", "sqlite") == database
    assert (tmp_path / "search_tracking.sqlite3").exists() == (database == "sqlite")


def test_a_tracker_over_a_folder_alone_uses_the_configured_url(
    kestrune: Any, tmp_path: Path, database_url: str
) -> None:
    from kestrune.search_tracking import SearchTracker

    kestrune.configure(database_url=database_url)
    with SearchTracker(tmp_path) as tracker:
        assert tracker._conn.dialect == "postgres"


def test_a_running_search_lends_its_tracker_to_the_analytics(kestrune: Any, tmp_path: Path) -> None:
    from kestrune import _runtime

    kestrune.configure(data_dir=tmp_path / "new")
    kestrune.register()
    with kestrune.search() as handle:
        assert engine_tracker() is handle._tracker
    assert _runtime.get_runtime() is None


def test_a_stopped_search_is_no_longer_active(kestrune: Any, tmp_path: Path) -> None:
    from kestrune import search_templates

    kestrune.configure(data_dir=tmp_path)
    kestrune.register()
    first, second = kestrune.search(), kestrune.search()
    assert search_templates._active_handles == [first, second]
    first.stop()
    first.stop()
    assert search_templates._active_handles == [second]
    second.stop()


def test_a_search_needs_login_and_folder(kestrune: Any) -> None:
    from kestrune.auth import AuthError

    with pytest.raises(AuthError, match="No wallet initialized"):
        kestrune.search()
    kestrune.register()
    with pytest.raises(OSError, match="data directory"):
        kestrune.search()


def test_the_runtime_starts_once_and_ends_with_the_login(kestrune: Any, tmp_path: Path) -> None:
    from kestrune import _runtime, agent_onboarding

    assert agent_onboarding.ensure_runtime_bootstrapped(strict=False) is None
    with pytest.raises(RuntimeError, match="login and an existing data directory"):
        agent_onboarding.ensure_runtime_bootstrapped()
    kestrune.configure(data_dir=tmp_path)
    kestrune.register()
    runtime = agent_onboarding.ensure_runtime_bootstrapped()
    assert agent_onboarding.ensure_runtime_bootstrapped(strict=False) is runtime
    assert _runtime.get_runtime() is runtime
    kestrune.logout()
    assert _runtime.get_runtime() is None
    with pytest.raises(Exception, match="closed"):
        runtime.search_tracker.get_available_eras()


def test_a_configured_era_gives_the_pools(kestrune: Any, tmp_path: Path) -> None:
    import kestrune.search_analytics as analytics

    pool = {"name": "mine", "is_correlation_threshold": 0.5}
    kestrune.configure(data_dir=tmp_path, era_config={"signal_pools": [pool]})
    kestrune.register()
    assert [config.name for config in analytics._get_or_init()._pool_configs] == ["mine"]
