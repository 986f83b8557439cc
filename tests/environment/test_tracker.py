"""The runtime, the tracker over a data directory, and the pair that the engine is built from."""

from __future__ import annotations

import os
import pathlib
from collections import UserDict
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from kestrune.search_analytics import (
    _resolve_tracker_and_pools,
    _runtime_from_onboarding,
    _tracker_from_config,
)
from support.environment import FakeSearchTracker, failing, raw_pool

NO_DIRECTORY = (
    "Search analytics needs a configured data directory. "
    "Run kestrune.configure(data_dir=...) or register()/login() first."
)


def missing(path):
    return (
        f"Search analytics data directory does not exist: {path}. Run kestrune.search(...) to "
        "initialize local search data, or configure data_dir to an existing Kestrune data "
        "directory."
    )


def directory_error(call, *args):
    with pytest.raises(OSError) as caught:  # noqa: PT011 - callers compare the whole text
        call(*args)
    assert type(caught.value) is OSError
    assert caught.value.errno is None
    (text,) = caught.value.args
    return text


@pytest.fixture
def bootstrap(client):
    """Give the onboarding module a bootstrap function; the list of its calls."""
    calls = []
    client.onboarding.ensure_runtime_bootstrapped = lambda *args, **kwargs: (
        calls.append((args, kwargs)) or "bootstrapped"
    )
    return calls


def test_the_package_runtime_comes_first(client, bootstrap):
    client.runtime_module.get_runtime = lambda: "runtime"
    assert _runtime_from_onboarding(client.onboarding) == "runtime"
    assert bootstrap == []


def test_a_falsy_runtime_is_still_a_runtime(client, bootstrap):
    client.runtime_module.get_runtime = lambda: 0
    assert _runtime_from_onboarding(client.onboarding) == 0


def test_get_runtime_is_called_without_arguments(client):
    asked = []
    client.runtime_module.get_runtime = lambda *args, **kwargs: asked.append((args, kwargs))
    _runtime_from_onboarding(client.onboarding)
    assert asked == [((), {})]


def test_the_runtime_module_may_stand_only_in_the_table_of_loaded_modules(client):
    import kestrune

    assert not hasattr(kestrune, "_runtime")
    client.runtime_module.get_runtime = lambda: "runtime"
    assert _runtime_from_onboarding(client.onboarding) == "runtime"


def test_the_attribute_of_the_package_wins_over_the_table(client, monkeypatch):
    import kestrune

    attribute = SimpleNamespace(get_runtime=lambda: "attribute")
    monkeypatch.setattr(kestrune, "_runtime", attribute, raising=False)
    assert _runtime_from_onboarding(client.onboarding) == "attribute"


def test_the_runtime_module_is_imported_when_it_is_not_loaded(client, tmp_path):
    client.provide("_runtime", "def get_runtime():\n    return 'imported'\n", tmp_path)
    assert _runtime_from_onboarding(client.onboarding) == "imported"


def test_without_a_runtime_the_onboarding_module_bootstraps_one(client, bootstrap):
    assert _runtime_from_onboarding(client.onboarding) == "bootstrapped"
    assert bootstrap == [((), {"strict": False})]


def broken_runtime(client, how, tmp_path):
    if how == "missing module":
        client.unload("_runtime")
    elif how == "None in the table":
        client.block("_runtime")
    elif how == "failing module":
        client.provide("_runtime", "raise ZeroDivisionError\n", tmp_path)
    elif how == "missing function":
        del client.runtime_module.get_runtime
    elif how == "not callable":
        client.runtime_module.get_runtime = 5
    else:
        client.runtime_module.get_runtime = failing(RuntimeError("mine"))


BREAKAGES = [
    *("missing module", "None in the table", "failing module"),
    *("missing function", "not callable", "failing function"),
]


@pytest.mark.parametrize("how", BREAKAGES)
def test_whatever_is_wrong_with_the_package_runtime_is_swallowed(client, bootstrap, tmp_path, how):
    broken_runtime(client, how, tmp_path)
    assert _runtime_from_onboarding(client.onboarding) == "bootstrapped"


@pytest.mark.parametrize("how", BREAKAGES)
def test_no_runtime_and_no_bootstrap_is_none(client, tmp_path, how):
    broken_runtime(client, how, tmp_path)
    assert _runtime_from_onboarding(client.onboarding) is None


@pytest.mark.parametrize("bootstrap_function", [None, 5, "text"], ids=repr)
def test_a_bootstrap_that_cannot_be_called_is_none(client, bootstrap_function):
    client.onboarding.ensure_runtime_bootstrapped = bootstrap_function
    assert _runtime_from_onboarding(client.onboarding) is None


@pytest.mark.parametrize("error", [RuntimeError("mine"), StopIteration(), MemoryError()], ids=repr)
def test_errors_of_the_bootstrap_are_swallowed(client, error):
    client.onboarding.ensure_runtime_bootstrapped = failing(error)
    assert _runtime_from_onboarding(client.onboarding) is None


def test_a_bootstrap_that_does_not_know_strict_gives_none(client):
    client.onboarding.ensure_runtime_bootstrapped = lambda: "never"
    assert _runtime_from_onboarding(client.onboarding) is None


@pytest.mark.parametrize("error", [KeyboardInterrupt(), SystemExit(3)], ids=repr)
@pytest.mark.parametrize("place", ["get_runtime", "bootstrap", "import"])
def test_interrupts_and_exits_are_never_swallowed(client, tmp_path, place, error):
    if place == "get_runtime":
        client.runtime_module.get_runtime = failing(error)
    elif place == "bootstrap":
        client.onboarding.ensure_runtime_bootstrapped = failing(error)
    else:
        client.provide("_runtime", f"raise {error!r}\n", tmp_path)
    with pytest.raises(type(error)):
        _runtime_from_onboarding(client.onboarding)


def test_an_error_of_the_bootstrap_lookup_passes(client):
    class Onboarding:
        ensure_runtime_bootstrapped = property(failing(ValueError("mine")))

    with pytest.raises(ValueError, match="mine"):
        _runtime_from_onboarding(Onboarding())


def test_a_tracker_is_made_over_the_configured_directory(client, tmp_path):
    tracker = _tracker_from_config({"data_dir": str(tmp_path)})
    assert type(tracker) is FakeSearchTracker
    assert (tracker.args, tracker.kwargs) == ((str(tmp_path),), {})


@pytest.mark.parametrize(
    "config",
    [None, {}, [], {"data_dir": None}, {"data_dir": ""}, UserDict(data_dir="/"), {"data_dir": 0}],
    ids=repr,
)
def test_no_configured_directory(client, config):
    assert directory_error(_tracker_from_config, config) == NO_DIRECTORY


def test_the_get_of_a_mapping_subclass_is_honoured(client, tmp_path):
    class Config(dict):
        def get(self, *args):
            assert args == ("data_dir",)
            return str(tmp_path)

    assert _tracker_from_config(Config()).args == (str(tmp_path),)


def test_a_leading_tilde_is_expanded(client, monkeypatch, tmp_path):
    monkeypatch.setenv("HOME", str(tmp_path))
    (tmp_path / "data").mkdir()
    assert _tracker_from_config({"data_dir": "~/data"}).args == (str(tmp_path / "data"),)
    text = directory_error(_tracker_from_config, {"data_dir": "~/none"})
    assert text == missing(tmp_path / "none")


def test_a_directory_that_does_not_exist(client, tmp_path):
    path = str(tmp_path / "none")
    assert directory_error(_tracker_from_config, {"data_dir": path}) == missing(path)


def test_a_file_is_no_directory(client, tmp_path):
    path = tmp_path / "file"
    path.write_text("")
    assert directory_error(_tracker_from_config, {"data_dir": str(path)}) == missing(path)


def test_the_path_is_not_made_absolute(client, monkeypatch, tmp_path):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "data").mkdir()
    assert _tracker_from_config({"data_dir": "data/../data/"}).args == ("data/../data/",)


def test_a_path_object_is_expanded_to_text(client, tmp_path):
    assert _tracker_from_config({"data_dir": pathlib.Path(tmp_path)}).args == (
        os.path.expanduser(tmp_path),
    )


def test_the_expanded_value_is_printed_as_text(client):
    assert directory_error(_tracker_from_config, {"data_dir": b"/no/such"}) == missing(b"/no/such")


def test_a_value_that_is_no_path_is_the_error_of_expanduser(client):
    with pytest.raises(TypeError) as expected:
        os.path.expanduser(5)
    with pytest.raises(TypeError) as caught:
        _tracker_from_config({"data_dir": 5})
    assert str(caught.value) == str(expected.value)


def test_the_tracking_module_is_needed_only_for_an_existing_directory(client, tmp_path):
    client.block("search_tracking")
    assert directory_error(_tracker_from_config, {}) == NO_DIRECTORY
    path = str(tmp_path / "none")
    assert directory_error(_tracker_from_config, {"data_dir": path}) == missing(path)
    with pytest.raises(ModuleNotFoundError, match=r"kestrune\.search_tracking"):
        _tracker_from_config({"data_dir": str(tmp_path)})


def test_a_tracking_module_without_the_class(client, tmp_path):
    del client.tracking.SearchTracker
    with pytest.raises(ImportError, match="cannot import name 'SearchTracker'"):
        _tracker_from_config({"data_dir": str(tmp_path)})


def test_errors_of_the_tracker_class_pass_unchanged(client, tmp_path):
    error = OSError("locked")
    client.tracking.SearchTracker = failing(error)
    with pytest.raises(OSError, match="locked") as caught:
        _tracker_from_config({"data_dir": str(tmp_path)})
    assert caught.value is error


def names(pools):
    return [config.name for config in pools]


def test_a_live_handle_gives_the_tracker_and_spares_the_runtime(client, bootstrap):
    client.runtime_module.get_runtime = failing(AssertionError("asked"))
    client.onboarding._config = {}
    handle = client.run_search("tracker", _era_config={"signal_pools": [raw_pool("handle")]})
    result = _resolve_tracker_and_pools(client.onboarding)
    assert type(result) is tuple
    assert result[0] is handle._tracker
    assert names(result[1]) == ["handle"]
    assert bootstrap == []


def test_with_a_handle_the_runtime_contributes_no_pools(client):
    client.onboarding._config = {}
    client.run_search("tracker")
    runtime = SimpleNamespace(era_config={"signal_pools": [raw_pool("runtime")]})
    client.runtime_module.get_runtime = lambda: runtime
    with pytest.raises(ValueError, match="Run register"):
        _resolve_tracker_and_pools(client.onboarding)


def test_without_a_handle_the_runtime_gives_tracker_and_pools(client):
    client.onboarding._config = {}
    client.runtime_module.get_runtime = lambda: SimpleNamespace(
        search_tracker="tracker", era_config={"signal_pools": [raw_pool("runtime")]}
    )
    tracker, pools = _resolve_tracker_and_pools(client.onboarding)
    assert (tracker, names(pools)) == ("tracker", ["runtime"])


@pytest.mark.parametrize(
    "runtime", [None, SimpleNamespace(), SimpleNamespace(search_tracker=None)], ids=repr
)
def test_then_the_tracker_is_made_over_the_configured_directory(client, tmp_path, runtime):
    client.onboarding._config["data_dir"] = str(tmp_path)
    client.runtime_module.get_runtime = lambda: runtime
    tracker, pools = _resolve_tracker_and_pools(client.onboarding)
    assert tracker.args == (str(tmp_path),)
    assert names(pools) == ["main"]


def test_a_failing_runtime_without_bootstrap_falls_back_to_the_directory(client, tmp_path):
    client.onboarding._config["data_dir"] = str(tmp_path)
    client.runtime_module.get_runtime = failing(RuntimeError())
    assert _resolve_tracker_and_pools(client.onboarding)[0].args == (str(tmp_path),)


def test_an_absent_configuration_is_an_empty_mapping(client):
    del client.onboarding._config
    assert directory_error(_resolve_tracker_and_pools, client.onboarding) == NO_DIRECTORY


def test_a_configuration_of_none_is_kept(client):
    client.onboarding._config = None
    assert directory_error(_resolve_tracker_and_pools, client.onboarding) == NO_DIRECTORY


def test_a_missing_directory_is_reported_before_missing_pools(client):
    client.onboarding._config = {"era_config": {"signal_pools": []}}
    assert directory_error(_resolve_tracker_and_pools, client.onboarding) == NO_DIRECTORY


def test_missing_pools_are_reported_after_the_tracker(client, tmp_path):
    client.onboarding._config = {"data_dir": str(tmp_path), "era": {"signal_pools": []}}
    with pytest.raises(ValueError, match="must contain non-empty pool configs"):
        _resolve_tracker_and_pools(client.onboarding)


def test_a_falsy_tracker_of_a_handle_is_used(client):
    client.run_search(0)
    assert _resolve_tracker_and_pools(client.onboarding)[0] == 0


def test_a_handle_whose_tracker_vanished_falls_back_to_the_directory(client, tmp_path):
    class Fickle:
        seen = 0

        @property
        def _tracker(self):
            self.seen += 1
            return "tracker" if self.seen == 1 else None

    client.templates._active_handles = [Fickle()]
    client.onboarding._config["data_dir"] = str(tmp_path)
    client.runtime_module.get_runtime = failing(AssertionError("asked"))
    assert _resolve_tracker_and_pools(client.onboarding)[0].args == (str(tmp_path),)


def test_a_falsy_configuration_is_handed_on_as_it_is(client, monkeypatch):
    client.onboarding._config = configuration = UserDict()
    asked = []
    for name in ("_tracker_from_config", "_resolve_pool_configs"):
        step = lambda config, *more: asked.append(config)  # noqa: E731
        monkeypatch.setattr(search_analytics, name, step)
    _resolve_tracker_and_pools(client.onboarding)
    assert [config is configuration for config in asked] == [True, True]
