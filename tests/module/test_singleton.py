"""The module-wide engine: checked on each call, built once, never half-built."""

from __future__ import annotations

import builtins
import sys
from types import SimpleNamespace

import kestrune.search_analytics as search_analytics
import pytest
from support.children import run_child
from support.environment import FakeAuthError, failing, session
from support.parts import RecordingTracker, pool

WALLET = "No wallet initialized. Call register() or login() first."


@pytest.fixture
def resolved(monkeypatch, client):
    """Replace the resolution: the list of its calls; `resolved.result` is what it returns."""
    resolution = SimpleNamespace(calls=[], result=(RecordingTracker(), [pool()]))

    def resolve(onboarding_mod):
        resolution.calls.append(onboarding_mod)
        return resolution.result

    monkeypatch.setattr(search_analytics, "_resolve_tracker_and_pools", resolve)
    return resolution


def test_no_engine_is_cached_at_import():
    assert search_analytics._singleton is None


def test_the_first_call_builds_and_caches_the_engine(client, resolved):
    engine = search_analytics._get_or_init()
    assert type(engine) is search_analytics.SearchAnalytics
    assert engine is search_analytics._singleton
    assert (engine._tracker, engine._pool_configs) == resolved.result
    assert engine._pool_configs is resolved.result[1]
    assert resolved.calls == [client.onboarding]


def test_later_calls_return_the_same_engine_without_resolving(resolved):
    assert search_analytics._get_or_init() is search_analytics._get_or_init()
    assert len(resolved.calls) == 1


def test_later_changes_of_the_environment_are_not_seen(client, resolved):
    engine = search_analytics._get_or_init()
    resolved.result = (RecordingTracker(), [pool("other")])
    client.onboarding._config = {}
    assert search_analytics._get_or_init() is engine


def test_registration_is_checked_on_every_call(monkeypatch, client, resolved):
    checked = []
    monkeypatch.setattr(search_analytics, "_require_registered_or_logged_in", checked.append)
    search_analytics._get_or_init()
    search_analytics._get_or_init()
    assert checked == [client.onboarding, client.onboarding]


def test_logging_out_locks_a_cached_engine(client, resolved):
    engine = search_analytics._get_or_init()
    client.log_out()
    with pytest.raises(FakeAuthError) as caught:
        search_analytics._get_or_init()
    assert str(caught.value) == WALLET
    assert search_analytics._singleton is engine
    client.onboarding._auth_manager = session()
    assert search_analytics._get_or_init() is engine


def test_a_missing_login_leaves_nothing_cached(client, resolved):
    client.log_out()
    with pytest.raises(FakeAuthError):
        search_analytics._get_or_init()
    assert search_analytics._singleton is None
    assert resolved.calls == []


def test_a_missing_onboarding_module_is_reported_first(monkeypatch, client, resolved):
    client.log_out()
    client.block("agent_onboarding")
    with pytest.raises(ModuleNotFoundError, match=r"kestrune\.agent_onboarding"):
        search_analytics._get_or_init()
    assert search_analytics._singleton is None


def test_the_onboarding_module_is_the_attribute_of_the_package(monkeypatch, client, resolved):
    """`import a.b as c` binds the attribute `b` of `a`, and `sys.modules` only without one."""
    import kestrune

    attribute = SimpleNamespace(_auth_manager=session())
    monkeypatch.setattr(kestrune, "agent_onboarding", attribute, raising=False)
    search_analytics._get_or_init()
    assert resolved.calls == [attribute]


def test_the_onboarding_module_is_imported_when_it_is_not_loaded(client, resolved, tmp_path):
    source = "class _auth_manager:\n    get_token = staticmethod(lambda: 'token')\n"
    client.provide("agent_onboarding", source, tmp_path)
    search_analytics._get_or_init()
    assert resolved.calls == [sys.modules["kestrune.agent_onboarding"]]
    assert resolved.calls[0].__file__ == str(tmp_path / "agent_onboarding.py")


UNPACKING = {
    "three": lambda: (1, 2, 3),
    "one": lambda: (1,),
    "none": lambda: (),
    "list of three": lambda: [1, 2, 3],
    "None": lambda: None,
    "number": lambda: 5,
    "three letters": lambda: "abc",
    "iterator of one": lambda: iter([1]),
}


@pytest.mark.parametrize("make", UNPACKING.values(), ids=UNPACKING)
def test_anything_but_a_pair_fails_as_unpacking_does_and_is_tried_again(resolved, make):
    with pytest.raises((ValueError, TypeError)) as expected:
        _tracker, _pools = make()
    good = resolved.result
    resolved.result = make()
    with pytest.raises(type(expected.value)) as caught:
        search_analytics._get_or_init()
    assert str(caught.value) == str(expected.value)
    assert search_analytics._singleton is None
    resolved.result = good
    assert search_analytics._get_or_init()._tracker is good[0]
    assert len(resolved.calls) == 2


@pytest.mark.parametrize(
    "wrap",
    [tuple, list, iter, lambda pair: (x for x in pair)],
    ids=["tuple", "list", "iterator", "generator"],
)
def test_any_iterable_of_two_serves(resolved, wrap):
    tracker, pools = resolved.result
    resolved.result = wrap((tracker, pools))
    engine = search_analytics._get_or_init()
    assert (engine._tracker, engine._pool_configs) == (tracker, pools)


def test_an_endless_result_is_refused_after_its_third_value(resolved):
    taken = []

    def endless():
        while True:
            taken.append(1)
            yield len(taken)

    resolved.result = endless()
    with pytest.raises(ValueError, match="too many values to unpack"):
        search_analytics._get_or_init()
    assert len(taken) == 3


def test_an_engine_that_cannot_be_built_is_not_cached(resolved):
    resolved.result = (RecordingTracker(), [])
    with pytest.raises(ValueError, match="pool_configs must be non-empty"):
        search_analytics._get_or_init()
    assert search_analytics._singleton is None


def test_errors_of_the_resolution_pass_unchanged(monkeypatch, resolved):
    error = KeyError("mine")
    monkeypatch.setattr(search_analytics, "_resolve_tracker_and_pools", failing(error))
    with pytest.raises(KeyError) as caught:
        search_analytics._get_or_init()
    assert caught.value is error
    assert caught.value.__cause__ is None
    assert search_analytics._singleton is None


def test_the_engine_class_is_looked_up_when_it_is_needed(monkeypatch, resolved):
    built = []
    monkeypatch.setattr(
        search_analytics, "SearchAnalytics", lambda *args, **kw: built.append((args, kw)) or "mine"
    )
    assert search_analytics._get_or_init() == "mine"
    assert built == [(resolved.result, {})]
    assert search_analytics._singleton == "mine"


@pytest.mark.parametrize("replacement", [0, "", object()], ids=["zero", "empty text", "object"])
def test_whatever_else_than_none_stands_as_singleton_is_returned(resolved, replacement):
    search_analytics._singleton = replacement
    assert search_analytics._get_or_init() is replacement
    assert resolved.calls == []


def test_a_deleted_singleton_is_a_missing_name(monkeypatch, resolved):
    monkeypatch.delattr(search_analytics, "_singleton")
    with pytest.raises(NameError) as caught:
        search_analytics._get_or_init()
    assert str(caught.value) == "name '_singleton' is not defined"


def test_reentry_from_the_login_check_serves_both_calls(client, resolved):
    inner = []

    def get_token():
        if not inner:
            inner.append(None)
            inner[0] = search_analytics._get_or_init()
        return "token"

    client.onboarding._auth_manager = SimpleNamespace(get_token=get_token)
    assert search_analytics._get_or_init() is inner[0]
    assert len(resolved.calls) == 1


def test_reentry_from_the_resolution_lets_the_later_assignment_win(monkeypatch, client):
    engines = []

    def resolve(onboarding_mod):
        if not engines:
            engines.append(None)
            engines[0] = search_analytics._get_or_init()
        return RecordingTracker(), [pool()]

    monkeypatch.setattr(search_analytics, "_resolve_tracker_and_pools", resolve)
    outer = search_analytics._get_or_init()
    assert outer is not engines[0]
    assert search_analytics._singleton is outer


def test_documentation_and_annotation():
    assert search_analytics._get_or_init.__doc__ == (
        "Return the module-level analytics singleton, initializing lazily."
    )
    assert search_analytics._get_or_init.__annotations__ == {"return": "SearchAnalytics"}


def test_a_pair_of_another_type_is_unpacked_by_its_own_iteration(resolved):
    class Pair(tuple):
        __slots__ = ()

        def __iter__(self):
            return iter(expected)

    expected = (RecordingTracker(), [pool()])
    resolved.result = Pair((None, None))
    engine = search_analytics._get_or_init()
    assert (engine._tracker, engine._pool_configs) == expected


def test_an_import_is_told_which_module_imports(client, resolved, monkeypatch):
    seen = []
    original = builtins.__import__

    def importing(name, globals=None, locals=None, fromlist=(), level=0):
        seen.append((name, (globals or {}).get("__name__")))
        return original(name, globals, locals, fromlist, level)

    monkeypatch.setattr(builtins, "__import__", importing)
    search_analytics._get_or_init()
    assert ("kestrune.agent_onboarding", "kestrune.search_analytics") in seen


def test_statements_are_compiled_once():
    run_child(
        """
        import sys
        from types import ModuleType
        import kestrune.search_analytics as search_analytics

        def note(event, arguments):
            if event == "compile" and arguments[1] == "<kestrune.search_analytics>":
                compiled.append(arguments[0])

        compiled = []
        sys.addaudithook(note)
        for _ in range(3):
            try:
                search_analytics._get_or_init()
            except ImportError:
                pass
        assert len(compiled) == len(set(compiled)) == 1, compiled
        """
    )
