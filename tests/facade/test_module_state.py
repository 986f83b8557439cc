"""Where a function of the module finds what its module lacks: among what is built in."""

from __future__ import annotations

import _imp
import builtins
import importlib.util
import sys

import kestrune.search_analytics as search_analytics
import pytest
from support.parts import RecordingTracker, engine_over, pool


class Mapping:
    """What may stand for the built-in names without being a dictionary."""

    def __init__(self, error=KeyError, **values):
        self.error, self.values = error, values

    def __getitem__(self, key):
        if key in self.values:
            return self.values[key]
        if hasattr(builtins, key):
            return getattr(builtins, key)
        raise self.error(key)


@pytest.mark.parametrize("error", [KeyError, ArithmeticError])
def test_a_missing_name_is_one_whatever_the_caller_has_built_in(monkeypatch, error):
    """A function looks in what was built in when the module's body ran, not in its caller's."""
    monkeypatch.delattr(search_analytics, "_DEFAULT_ANALYTICS_HISTORY_LIMIT")
    scope = {"__builtins__": Mapping(error), "ask": engine_over([]).get_search_patterns}
    with pytest.raises(NameError, match="'_DEFAULT_ANALYTICS_HISTORY_LIMIT' is not defined"):
        exec("ask()", scope)


@pytest.mark.skipif(
    sys.version_info < (3, 13), reason="import statements need a dictionary before 3.13"
)
@pytest.mark.parametrize(
    ("built_in", "ending"),
    [
        (Mapping(), NameError),
        (Mapping(ArithmeticError), ArithmeticError),
        (Mapping(_DEFAULT_ANALYTICS_HISTORY_LIMIT=7), None),
    ],
    ids=["missing", "failing", "there"],
)
def test_what_is_built_in_for_a_body_may_be_any_mapping(built_in, ending):
    """The body is run by code that has a mapping in the place of the built-in names."""
    own = search_analytics.__spec__
    spec = importlib.util.spec_from_file_location(own.name, own.origin)
    copy = importlib.util.module_from_spec(spec)
    exec("run(copy)", {"__builtins__": built_in, "run": _imp.exec_dynamic, "copy": copy})
    del copy._DEFAULT_ANALYTICS_HISTORY_LIMIT
    tracker = RecordingTracker([])
    engine = copy.SearchAnalytics(tracker, [pool()])
    if ending is None:
        engine.get_search_patterns()
        assert tracker.calls[0]["limit"] == 7
    else:
        with pytest.raises(ending, match="_DEFAULT_ANALYTICS_HISTORY_LIMIT"):
            engine.get_search_patterns()
    assert copy._usage_value.__builtins__ is built_in
