"""Whatever Python code could replace in a module, a caller may replace: the environment."""

from __future__ import annotations

import os
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.environment import raw_pool, session


class ReplacedError(Exception):
    """Raised by a replacement, to show that it was called."""


def overriding(*args, **kwargs):
    raise ReplacedError


def test_the_login_message_is_read_at_each_call(monkeypatch, client):
    client.log_out()
    monkeypatch.setattr(search_analytics, "_AUTH_REQUIRED_MESSAGE", "knock first")
    with pytest.raises(client.auth.AuthError) as caught:
        search_analytics.get_available_eras()
    assert caught.value.args == ("knock first",)


@pytest.mark.parametrize("function", ["isdir", "expanduser"])
@pytest.mark.parametrize("place", ["_os of the module", "os.path itself"])
def test_paths_are_asked_of_the_replaced_function(monkeypatch, tmp_path, function, place):
    if place == "os.path itself":
        monkeypatch.setattr(os.path, function, overriding)
    else:
        path = SimpleNamespace(isdir=os.path.isdir, expanduser=os.path.expanduser)
        setattr(path, function, overriding)
        monkeypatch.setattr(search_analytics, "_os", SimpleNamespace(path=path))
    with pytest.raises(ReplacedError):
        search_analytics._tracker_from_config({"data_dir": str(tmp_path)})


def test_loaded_modules_are_looked_up_in_the_replaced_table(monkeypatch, client):
    client.log_out()
    mine = SimpleNamespace(_auth=session(), _active_handles=[SimpleNamespace(_tracker=1)])
    table = {"kestrune.search_templates": mine}
    monkeypatch.setattr(search_analytics, "_sys", SimpleNamespace(modules=table))
    assert search_analytics._auth_from_onboarding_or_search(client.onboarding) is mine._auth
    assert search_analytics._active_search_handle() is mine._active_handles[0]


POOL_CHAIN = {
    "_candidate_era_configs": lambda *args: [{"signal_pools": [raw_pool("mine")]}],
    "_extract_raw_pools": lambda era_config: [raw_pool("mine")],
    "_iter_pool_configs": lambda raw_pools: [raw_pool("mine")],
    "_normalize_pool_config": lambda pool, index: SimpleNamespace(name="mine"),
    "_get_attr_or_item": lambda value, key, default=None: (
        [1] if key == "signal_pools" else "mine" if key == "name" else 1
    ),
    "_unwrap_era_config": lambda value: {"signal_pools": [raw_pool("mine")]},
}


@pytest.mark.parametrize(("name", "replacement"), POOL_CHAIN.items(), ids=POOL_CHAIN)
def test_pool_resolution_uses_the_replaced_helper(monkeypatch, name, replacement):
    monkeypatch.setattr(search_analytics, name, replacement)
    pools = [{"name": "theirs", "is_correlation_threshold": 1}]
    if name == "_get_attr_or_item":
        monkeypatch.setattr(search_analytics, "_iter_pool_configs", lambda raw: pools)
    resolved = search_analytics._resolve_pool_configs({"signal_pools": pools})
    assert [config.name for config in resolved] == ["mine"]


def recorded(monkeypatch):
    """The arguments of every call of `_get_attr_or_item` from now on."""
    calls = []
    original = search_analytics._get_attr_or_item

    def record(*args, **kwargs):
        calls.append((args, kwargs))
        return original(*args, **kwargs)

    monkeypatch.setattr(search_analytics, "_get_attr_or_item", record)
    return calls


@pytest.mark.parametrize("kind", [dict, SimpleNamespace], ids=lambda kind: kind.__name__)
def test_fields_of_a_pool_are_asked_for_with_a_default(monkeypatch, kind):
    entry = kind(**raw_pool("a", 1))
    calls = recorded(monkeypatch)
    search_analytics._normalize_pool_config(entry, 0)
    assert calls == [
        ((entry, "name", None), {}),
        ((entry, "is_correlation_threshold", None), {}),
        ((entry, "os_correlation_threshold", None), {}),
    ]


def test_pools_are_asked_for_with_a_default(monkeypatch):
    era = {"signal_pools": [raw_pool()]}
    calls = recorded(monkeypatch)
    search_analytics._extract_raw_pools(era)
    assert calls == [((era, "signal_pools", None), {})]


def test_a_helper_without_a_default_of_its_own_resolves_pools(monkeypatch):
    def read(value, key, default):
        return value.get(key, default)

    monkeypatch.setattr(search_analytics, "_get_attr_or_item", read)
    (config,) = search_analytics._resolve_pool_configs({"signal_pools": [raw_pool("mine", 1)]})
    assert vars(config) == {
        "name": "mine",
        "is_correlation_threshold": 1,
        "os_correlation_threshold": None,
    }


def test_a_missing_namespace_class_is_met_before_the_second_threshold_is_read(monkeypatch):
    calls = recorded(monkeypatch)
    monkeypatch.delattr(search_analytics, "SimpleNamespace")
    with pytest.raises(NameError, match="'SimpleNamespace'"):
        search_analytics._normalize_pool_config(raw_pool(), 0)
    assert [args[1] for args, _ in calls] == ["name", "is_correlation_threshold"]


RESOLUTION_CHAIN = {
    "_active_search_handle": lambda: SimpleNamespace(_tracker="mine"),
    "_runtime_from_onboarding": lambda onboarding: SimpleNamespace(search_tracker="mine"),
    "_tracker_from_config": lambda config: "mine",
}


@pytest.mark.parametrize(("name", "replacement"), RESOLUTION_CHAIN.items(), ids=RESOLUTION_CHAIN)
def test_tracker_resolution_uses_the_replaced_helper(monkeypatch, client, name, replacement):
    monkeypatch.setattr(search_analytics, name, replacement)
    monkeypatch.setattr(search_analytics, "_resolve_pool_configs", lambda *args: args)
    tracker, pools = search_analytics._resolve_tracker_and_pools(client.onboarding)
    assert tracker == "mine"
    assert pools[0] is client.onboarding._config


def test_the_login_check_uses_the_replaced_lookup(monkeypatch, client):
    monkeypatch.setattr(search_analytics, "_auth_from_onboarding_or_search", lambda mod: None)
    with pytest.raises(client.auth.AuthError):
        search_analytics._require_registered_or_logged_in(client.onboarding)


def test_a_replaced_namespace_class_makes_the_pool_configs(monkeypatch):
    monkeypatch.setattr(search_analytics, "SimpleNamespace", dict)
    assert search_analytics._normalize_pool_config(raw_pool("a", 1), 0) == {
        "name": "a",
        "is_correlation_threshold": 1,
        "os_correlation_threshold": None,
    }
