"""Finding the auth object, and refusing callers who are neither registered nor logged in."""

from __future__ import annotations

import sys
import traceback
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import (
    _auth_from_onboarding_or_search,
    _require_registered_or_logged_in,
)
from support.environment import failing, session
from support.growth import quietly, reference_growth

WALLET = "No wallet initialized. Call register() or login() first."


def refusal(client):
    with pytest.raises(client.auth.AuthError) as caught:
        _require_registered_or_logged_in(client.onboarding)
    assert caught.value.args == (WALLET,)
    return caught.value


def test_the_manager_of_the_onboarding_module_comes_first(client):
    client.templates._auth = session()
    assert _auth_from_onboarding_or_search(client.onboarding) is client.onboarding._auth_manager


def test_a_falsy_manager_is_still_a_manager(client):
    client.onboarding._auth_manager = 0
    assert _auth_from_onboarding_or_search(client.onboarding) == 0


@pytest.mark.parametrize("absent", [True, False], ids=["absent", "None"])
def test_then_the_auth_of_the_loaded_search_module(client, absent):
    client.onboarding._auth_manager = None
    if absent:
        del client.onboarding._auth_manager
    client.templates._auth = session()
    assert _auth_from_onboarding_or_search(client.onboarding) is client.templates._auth


def test_a_loaded_search_module_without_auth_gives_none(client):
    client.onboarding._auth_manager = None
    assert _auth_from_onboarding_or_search(client.onboarding) is None


def test_a_loaded_search_module_is_taken_from_the_table_not_from_the_package(client, monkeypatch):
    import kestrune

    client.log_out()
    client.templates._auth = session()
    other = SimpleNamespace(_auth="other")
    monkeypatch.setattr(kestrune, "search_templates", other, raising=False)
    assert _auth_from_onboarding_or_search(client.onboarding) is client.templates._auth


def test_a_search_module_that_is_not_loaded_is_imported(client, tmp_path):
    client.log_out()
    client.provide("search_templates", "_auth = 'imported'\n", tmp_path)
    assert _auth_from_onboarding_or_search(client.onboarding) == "imported"
    assert "kestrune.search_templates" in sys.modules


def test_an_imported_search_module_without_auth_gives_none(client, tmp_path):
    client.log_out()
    client.provide("search_templates", "", tmp_path)
    assert _auth_from_onboarding_or_search(client.onboarding) is None


def test_a_search_module_that_cannot_be_imported_gives_none(client):
    client.log_out()
    client.unload("search_templates")
    assert _auth_from_onboarding_or_search(client.onboarding) is None
    client.block("search_templates")  # None in the table means: not loaded
    assert _auth_from_onboarding_or_search(client.onboarding) is None


def test_an_import_error_inside_the_search_module_gives_none(client, tmp_path):
    client.log_out()
    client.provide("search_templates", "raise ImportError('mine')\n", tmp_path)
    assert _auth_from_onboarding_or_search(client.onboarding) is None


@pytest.mark.parametrize("error", ["ValueError('mine')", "KeyboardInterrupt()", "SystemExit(3)"])
def test_other_errors_of_that_import_pass(client, tmp_path, error):
    client.log_out()
    client.provide("search_templates", f"raise {error}\n", tmp_path)
    with pytest.raises((ValueError, KeyboardInterrupt, SystemExit)) as caught:
        _auth_from_onboarding_or_search(client.onboarding)
    assert repr(caught.value) == error


def test_only_the_import_itself_may_fail(client, tmp_path):
    """The attribute of a module that was imported is read outside the `try`."""
    client.log_out()
    source = "def __getattr__(name):\n    raise ImportError('mine')\n"
    client.provide("search_templates", source, tmp_path)
    with pytest.raises(ImportError, match="mine"):
        _auth_from_onboarding_or_search(client.onboarding)


def test_a_truthy_token_admits_the_caller(client):
    assert _require_registered_or_logged_in(client.onboarding) is None


def test_the_token_is_asked_for_once_and_without_arguments(client):
    asked = []
    client.onboarding._auth_manager = SimpleNamespace(
        get_token=lambda *args, **kwargs: asked.append((args, kwargs)) or "token"
    )
    _require_registered_or_logged_in(client.onboarding)
    assert asked == [((), {})]


def test_no_auth_object_is_refused_without_cause(client):
    client.log_out()
    error = refusal(client)
    assert error.__cause__ is None
    assert error.__context__ is None


def test_no_auth_object_and_no_search_module_is_refused(client):
    client.log_out()
    client.block("search_templates")
    refusal(client)


def test_an_auth_object_without_get_token_is_refused(client):
    client.onboarding._auth_manager = object()
    assert refusal(client).__context__ is None


@pytest.mark.parametrize("token", [None, "", 0, [], False], ids=repr)
def test_a_falsy_token_is_refused_without_cause(client, token):
    client.onboarding._auth_manager = session(token)
    error = refusal(client)
    assert error.__cause__ is None
    assert error.__context__ is None


@pytest.mark.parametrize(
    "error",
    [RuntimeError("mine"), AttributeError("mine"), StopIteration(), MemoryError()],
    ids=repr,
)
def test_an_error_of_get_token_is_the_cause_and_the_context(client, error):
    client.onboarding._auth_manager = SimpleNamespace(get_token=failing(error))
    refused = refusal(client)
    assert refused.__cause__ is error
    assert refused.__context__ is error
    assert refused.__suppress_context__ is True
    assert refused.__traceback__ is not None


def test_a_get_token_that_cannot_be_called_is_refused_with_its_cause(client):
    client.onboarding._auth_manager = SimpleNamespace(get_token=5)
    assert str(refusal(client).__cause__) == "'int' object is not callable"


@pytest.mark.parametrize("error", [KeyboardInterrupt(), SystemExit(3), GeneratorExit()], ids=repr)
def test_what_is_no_exception_of_the_family_passes(client, error):
    client.onboarding._auth_manager = SimpleNamespace(get_token=failing(error))
    with pytest.raises(type(error)) as caught:
        _require_registered_or_logged_in(client.onboarding)
    assert caught.value is error


def test_an_error_of_the_get_token_lookup_passes(client):
    class Auth:
        get_token = property(failing(ValueError("mine")))

    client.onboarding._auth_manager = Auth()
    with pytest.raises(ValueError, match="mine"):
        _require_registered_or_logged_in(client.onboarding)


def test_get_token_is_looked_up_twice(client):
    """Once to see whether it is there, once to call it: the second look-up is inside the `try`."""

    class Auth:
        def __init__(self):
            self.seen = 0

        def __getattr__(self, name):
            self.seen += 1
            if self.seen == 2:
                raise ValueError("second look-up")
            return

    client.onboarding._auth_manager = Auth()
    assert str(refusal(client).__cause__) == "second look-up"


def test_an_error_of_the_tokens_truth_passes(client):
    class Token:
        __bool__ = failing(ValueError("mine"))

    client.onboarding._auth_manager = session(Token())
    with pytest.raises(ValueError, match="mine"):
        _require_registered_or_logged_in(client.onboarding)


def test_the_error_class_is_imported_first(client):
    client.block("auth")
    with pytest.raises(ModuleNotFoundError, match=r"kestrune\.auth"):
        _require_registered_or_logged_in(client.onboarding)


def test_an_auth_module_without_the_error_class(client):
    del client.auth.AuthError
    with pytest.raises(ImportError, match="cannot import name 'AuthError'"):
        _require_registered_or_logged_in(client.onboarding)


def test_an_auth_error_that_is_no_exception_cannot_be_raised(client):
    client.auth.AuthError = str
    client.log_out()
    with pytest.raises(TypeError, match="exceptions must derive from BaseException"):
        _require_registered_or_logged_in(client.onboarding)


def test_a_failing_auth_error_class_raises_its_own_error(client):
    client.auth.AuthError = failing(LookupError("mine"))
    cause = RuntimeError("cause")
    client.onboarding._auth_manager = SimpleNamespace(get_token=failing(cause))
    with pytest.raises(LookupError, match="mine") as caught:
        _require_registered_or_logged_in(client.onboarding)
    assert caught.value.__context__ is cause


def test_an_auth_error_of_the_token_is_wrapped_like_any_other(client):
    error = client.auth.AuthError("expired")
    client.onboarding._auth_manager = SimpleNamespace(get_token=failing(error))
    assert refusal(client).__cause__ is error


@pytest.mark.parametrize("token", [None, RuntimeError("cause")], ids=["no token", "failure"])
def test_an_auth_error_that_makes_classes_is_raised_as_an_instance(client, token):
    client.auth.AuthError = lambda message: LookupError
    get_token = failing(token) if token else lambda: None
    client.onboarding._auth_manager = SimpleNamespace(get_token=get_token)
    with pytest.raises(LookupError) as caught:
        _require_registered_or_logged_in(client.onboarding)
    assert caught.value.args == ()
    assert caught.value.__cause__ is token


@pytest.mark.parametrize("cause", [None, RuntimeError("cause")], ids=["no token", "failure"])
@pytest.mark.parametrize("given", [5, ValueError("other")], ids=["no exception", "another class"])
def test_a_class_that_makes_something_else_is_raised_as_the_statement_does(client, given, cause):
    made = []

    class OddError(Exception):
        def __new__(cls, *args):
            made.append(args)
            return given

    def plainly():
        if cause is None:
            raise OddError
        try:
            raise cause
        except RuntimeError as failure:
            raise OddError from failure

    def told(call):
        made.clear()
        given_error.__cause__ = given_error.__context__ = None
        with pytest.raises((TypeError, ValueError)) as caught:
            call()
        error = caught.value
        # 3.10 makes it once more for each handler on its way out, of which the module has none.
        return type(error), str(error), error.__cause__, error.__context__, made[:2]

    given_error = given if isinstance(given, Exception) else Exception()
    client.auth.AuthError = lambda message: OddError
    get_token = failing(cause) if cause else lambda: None
    client.onboarding._auth_manager = SimpleNamespace(get_token=get_token)
    found = told(lambda: _require_registered_or_logged_in(client.onboarding))
    assert found == told(plainly)


def test_the_cause_keeps_its_traceback(client):
    def fetch():
        raise RuntimeError("mine")

    client.onboarding._auth_manager = SimpleNamespace(get_token=fetch)
    cause = refusal(client).__cause__
    names = [frame.name for frame in traceback.extract_tb(cause.__traceback__)]
    assert names == ["_require_registered_or_logged_in", "fetch"]


def test_what_was_refused_is_no_context_of_what_fails_later(client):
    client.onboarding._auth_manager = SimpleNamespace(get_token=failing(RuntimeError))
    refusal(client)
    assert sys.exc_info() == (None, None, None)
    with pytest.raises(LookupError) as caught:
        raise LookupError
    assert caught.value.__context__ is None


def test_a_refusal_keeps_nothing_of_its_cause(client):
    class FailureError(Exception):
        pass

    def fetch():
        raise failure.with_traceback(None)

    failure = FailureError()
    client.onboarding._auth_manager = SimpleNamespace(get_token=fetch)

    def refused():
        quietly(lambda: _require_registered_or_logged_in(client.onboarding))
        failure.__traceback__ = None

    assert reference_growth(refused, [failure, FailureError, client.auth.AuthError]) == [0, 0, 0]


def test_a_falsy_search_module_is_loaded_all_the_same(client, monkeypatch):
    import kestrune

    class Falsy(SimpleNamespace):
        def __bool__(self):
            return False

    client.log_out()
    client.install("search_templates", Falsy(_auth="loaded"))
    other = SimpleNamespace(_auth="other")
    monkeypatch.setattr(kestrune, "search_templates", other, raising=False)
    assert _auth_from_onboarding_or_search(client.onboarding) == "loaded"
