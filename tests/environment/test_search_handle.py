"""The first live search handle that has a tracker."""

from __future__ import annotations

import importlib
import sys
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import _active_search_handle
from support.environment import failing


def handle(tracker="tracker", **attributes):
    return SimpleNamespace(_tracker=tracker, **attributes)


def test_without_handles_there_is_none(client):
    assert _active_search_handle() is None


def test_a_search_module_without_handles(client):
    del client.templates._active_handles
    assert _active_search_handle() is None


def test_the_first_live_handle_with_a_tracker(client):
    handles = [handle(_stopped=True), handle(None), handle(), handle()]
    client.templates._active_handles = handles
    assert _active_search_handle() is handles[2]


def test_a_stopped_handle_is_skipped_even_with_a_tracker(client):
    client.templates._active_handles = [handle(_stopped=True)]
    assert _active_search_handle() is None


def test_a_live_handle_without_tracker_gives_way_to_the_next(client):
    second = handle()
    client.templates._active_handles = [handle(None, _stopped=False), second]
    assert _active_search_handle() is second


def test_absent_attributes_mean_live_and_without_tracker(client):
    client.templates._active_handles = [object(), SimpleNamespace(_stopped=False)]
    assert _active_search_handle() is None
    live = handle()
    client.templates._active_handles.append(live)
    assert _active_search_handle() is live


def test_a_falsy_tracker_is_still_a_tracker(client):
    live = handle(0)
    client.templates._active_handles = [live]
    assert _active_search_handle() is live


@pytest.mark.parametrize("stopped", [1, "yes", [0]], ids=repr)
def test_any_truthy_mark_stops_a_handle(client, stopped):
    client.templates._active_handles = [handle(_stopped=stopped)]
    assert _active_search_handle() is None


def test_the_tracker_of_a_stopped_handle_is_not_read(client):
    class Stopped:
        _stopped = True
        _tracker = property(failing(AssertionError("read")))

    client.templates._active_handles = [Stopped()]
    assert _active_search_handle() is None


def test_handles_after_the_chosen_one_are_not_read(client):
    class Untouchable:
        _stopped = property(failing(AssertionError("read")))

    live = handle()
    client.templates._active_handles = [live, Untouchable()]
    assert _active_search_handle() is live


def test_the_walk_runs_over_a_snapshot(client):
    class Fickle:
        _tracker = None

        @property
        def _stopped(self):
            client.templates._active_handles.clear()
            client.templates._active_handles.append(handle("new"))
            return True

    last = handle("last")
    client.templates._active_handles = [Fickle(), Fickle(), last]
    assert _active_search_handle() is last


@pytest.mark.parametrize(
    "kind",
    [tuple, iter, lambda items: (x for x in items), dict.fromkeys],
    ids=["tuple", "iterator", "generator", "dictionary"],
)
def test_handles_may_be_any_iterable(client, kind):
    class Handle:
        _tracker = 1

    live = Handle()
    client.templates._active_handles = kind([Handle(), live])
    assert type(_active_search_handle()) is Handle


@pytest.mark.parametrize(("wrong", "kind"), [(None, "NoneType"), (5, "int")], ids=["None", "5"])
def test_handles_that_cannot_be_iterated_are_a_type_error(client, wrong, kind):
    client.templates._active_handles = wrong
    with pytest.raises(TypeError, match=f"'{kind}' object is not iterable"):
        _active_search_handle()


def test_a_search_module_that_is_not_loaded_is_imported(client, tmp_path):
    source = "class _Handle:\n    _tracker = 1\n_active_handles = [_Handle]\n"
    client.provide("search_templates", source, tmp_path)
    assert _active_search_handle() is sys.modules["kestrune.search_templates"]._Handle


def test_a_search_module_that_cannot_be_imported_gives_none(client, tmp_path):
    client.unload("search_templates")
    assert _active_search_handle() is None
    client.block("search_templates")
    assert _active_search_handle() is None
    client.provide("search_templates", "raise ImportError('mine')\n", tmp_path)
    assert _active_search_handle() is None


def test_other_errors_of_that_import_pass(client, tmp_path):
    client.provide("search_templates", "raise OSError('mine')\n", tmp_path)
    with pytest.raises(OSError, match="mine"):
        _active_search_handle()


@pytest.mark.parametrize("loaded", [True, False], ids=["loaded", "imported"])
def test_an_import_error_while_taking_the_snapshot_passes(client, tmp_path, loaded):
    """Only the import itself may fail."""
    source = "def _fail():\n    raise ImportError('mine')\n    yield\n_active_handles = _fail()\n"
    client.provide("search_templates", source, tmp_path)
    if loaded:
        importlib.import_module("kestrune.search_templates")
    with pytest.raises(ImportError, match="mine"):
        _active_search_handle()


@pytest.mark.parametrize("attribute", ["_stopped", "_tracker"])
@pytest.mark.parametrize("error", [ValueError("mine"), KeyboardInterrupt()], ids=repr)
def test_errors_of_a_handle_pass_unchanged(client, attribute, error):
    broken = type("Broken", (), {attribute: property(failing(error))})()
    client.templates._active_handles = [broken, handle()]
    with pytest.raises(type(error)) as caught:
        _active_search_handle()
    assert caught.value is error


def test_an_error_of_the_marks_truth_passes(client):
    class Mark:
        __bool__ = failing(ValueError("mine"))

    client.templates._active_handles = [handle(_stopped=Mark())]
    with pytest.raises(ValueError, match="mine"):
        _active_search_handle()
