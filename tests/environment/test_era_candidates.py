"""The candidate era configurations: their order, their laziness, and the generator protocol."""

from __future__ import annotations

import collections.abc
import gc
import inspect
import sys
import weakref
from contextlib import nullcontext
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import _candidate_era_configs
from support.environment import failing

KEYS = ("era_config", "current_era_config", "synced_era_config", "era")


def test_keys_come_first_in_their_fixed_order_then_the_mapping_itself():
    config = {key: SimpleNamespace(key=key) for key in reversed(KEYS)}
    *by_key, last = _candidate_era_configs(config)
    assert [candidate.key for candidate in by_key] == list(KEYS)
    assert last is config


def test_then_come_the_handle_and_the_runtime():
    config, handle_config, runtime_config = {}, object(), object()
    candidates = _candidate_era_configs(
        config,
        SimpleNamespace(_era_config=handle_config),
        SimpleNamespace(era_config=runtime_config),
    )
    assert list(candidates) == [config, handle_config, runtime_config]


def test_a_present_key_is_a_candidate_even_when_it_holds_none():
    assert list(_candidate_era_configs({"era": None})) == [None, {"era": None}]


@pytest.mark.parametrize("config", [None, 5, [], SimpleNamespace(era_config=1)], ids=repr)
def test_a_configuration_that_is_no_mapping_contributes_nothing(config):
    assert list(_candidate_era_configs(config)) == []
    assert list(_candidate_era_configs(config, None, SimpleNamespace(era_config=1))) == [1]


def test_sources_without_the_attribute_contribute_none():
    assert list(_candidate_era_configs(None, object(), object())) == [None, None]


def test_every_candidate_is_unwrapped():
    inner = {"signal_pools": []}
    wrapper = {"era_config": inner}
    converted = SimpleNamespace(to_dict=lambda: "converted")
    config = {"era_config": inner, "era": wrapper}
    candidates = _candidate_era_configs(
        config, SimpleNamespace(_era_config=converted), SimpleNamespace(era_config=wrapper)
    )
    assert list(candidates) == [inner, inner, inner, "converted", inner]


def test_keys_are_tested_with_in_and_read_with_get():
    asked = []

    class Mapping(dict):
        def __contains__(self, key):
            asked.append(("in", key))
            return key == "era"

        def get(self, *args):
            asked.append(("get", *args))

    list(_candidate_era_configs(Mapping()))
    assert asked == [
        *(("in", key) for key in KEYS),
        ("get", "era"),
        ("get", "era_config"),  # the mapping itself, when it is unwrapped
    ]


def test_nothing_is_touched_before_the_first_step():
    class Mapping(dict):
        __contains__ = failing(AssertionError("touched"))

    candidates = _candidate_era_configs(Mapping(), object(), object())
    with pytest.raises(AssertionError, match="touched"):
        next(candidates)


def test_later_sources_are_not_touched_before_they_are_reached():
    touched = []

    class Source:
        @property
        def _era_config(self):
            touched.append("handle")

        @property
        def era_config(self):
            touched.append("runtime")

    candidates = _candidate_era_configs({"era": 1}, Source(), Source())
    assert next(candidates) == 1
    next(candidates)
    assert touched == []
    next(candidates)
    assert touched == ["handle"]
    next(candidates)
    assert touched == ["handle", "runtime"]
    assert next(candidates, "end") == "end"


def test_changes_between_two_steps_are_seen():
    config = {"era_config": 1}
    candidates = _candidate_era_configs(config)
    assert next(candidates) == 1
    config["era"] = 2
    assert next(candidates) == 2


def test_it_is_a_generator_to_everyone_who_asks():
    candidates = _candidate_era_configs({})
    assert isinstance(candidates, collections.abc.Generator)
    assert isinstance(candidates, collections.abc.Iterator)
    assert iter(candidates) is candidates
    assert not isinstance(candidates, collections.abc.Sequence)
    assert inspect.isgeneratorfunction(_candidate_era_configs)
    candidates.close()


def test_send_before_the_start_takes_none_only():
    candidates = _candidate_era_configs({})
    with pytest.raises(TypeError) as caught:
        candidates.send(1)
    assert str(caught.value) == "can't send non-None value to a just-started generator"
    assert candidates.send(None) == {}


def test_sent_values_are_ignored_afterwards():
    candidates = _candidate_era_configs({"era": 1})
    assert next(candidates) == 1
    assert candidates.send("anything") == {"era": 1}
    with pytest.raises(StopIteration) as caught:
        candidates.send("anything")
    assert caught.value.value is None


def test_an_exhausted_generator_stays_exhausted():
    candidates = _candidate_era_configs(None)
    for _ in range(3):
        with pytest.raises(StopIteration):
            next(candidates)
        with pytest.raises(StopIteration):
            candidates.send(1)
    assert list(candidates) == []


@pytest.mark.parametrize("started", [False, True], ids=["fresh", "started"])
def test_a_thrown_error_comes_out_and_ends_it(started):
    candidates = _candidate_era_configs({"era": 1})
    if started:
        next(candidates)
    error = KeyError("mine")
    with pytest.raises(KeyError) as caught:
        candidates.throw(error)
    assert caught.value is error
    assert list(candidates) == []


def test_throwing_into_an_exhausted_generator_raises_the_error():
    candidates = _candidate_era_configs(None)
    assert list(candidates) == []
    with pytest.raises(KeyError):
        candidates.throw(KeyError("mine"))


def test_throw_takes_a_class():
    candidates = _candidate_era_configs({})
    with pytest.raises(ZeroDivisionError):
        candidates.throw(ZeroDivisionError)


@pytest.mark.parametrize("wrong", [1, "text", int, None], ids=repr)
def test_throw_takes_nothing_but_errors(wrong):
    def ordinary():
        yield

    with pytest.raises(TypeError) as expected:
        ordinary().throw(wrong)
    with pytest.raises(TypeError) as caught:
        _candidate_era_configs({}).throw(wrong)
    assert str(caught.value) == str(expected.value)


def test_throwing_stop_iteration_becomes_a_runtime_error():
    candidates = _candidate_era_configs({"era": 1})
    next(candidates)
    with pytest.raises(RuntimeError, match="generator raised StopIteration") as caught:
        candidates.throw(StopIteration())
    assert isinstance(caught.value.__cause__, StopIteration)


@pytest.mark.parametrize("steps", [0, 1, 5], ids=["fresh", "started", "exhausted"])
def test_close_ends_it_quietly(steps):
    candidates = _candidate_era_configs({"era": 1})
    for _ in range(steps):
        next(candidates, None)
    assert candidates.close() is None
    assert candidates.close() is None
    assert list(candidates) == []


def test_an_error_inside_comes_out_and_ends_it():
    error = LookupError("mine")
    candidates = _candidate_era_configs(
        {"era_config": SimpleNamespace(to_dict=failing(error)), "era": 1}
    )
    with pytest.raises(LookupError) as caught:
        next(candidates)
    assert caught.value is error
    assert list(candidates) == []


def test_stop_iteration_inside_becomes_a_runtime_error():
    error = StopIteration("mine")
    candidates = _candidate_era_configs({"era": SimpleNamespace(to_dict=failing(error))})
    with pytest.raises(RuntimeError, match="generator raised StopIteration") as caught:
        next(candidates)
    assert caught.value.__cause__ is error
    assert caught.value.__context__ is error
    assert list(candidates) == []


@pytest.mark.parametrize("reentry", ["next", "send", "throw", "close"])
def test_reentry_is_refused(reentry):
    outcomes = []

    def enter_again():
        calls = {
            "next": lambda: next(candidates),
            "send": lambda: candidates.send(None),
            "throw": lambda: candidates.throw(KeyError),
            "close": lambda: candidates.close(),
        }
        with pytest.raises(ValueError, match="generator already executing"):
            calls[reentry]()
        outcomes.append("refused")
        return "converted"

    candidates = _candidate_era_configs({"era": SimpleNamespace(to_dict=enter_again)})
    assert next(candidates) == "converted"
    assert outcomes == ["refused"]


def test_an_unfinished_generator_is_freed_with_what_it_holds():
    class Handle:
        pass

    handle = Handle()
    reference = weakref.ref(handle)
    candidates = _candidate_era_configs({}, handle)
    next(candidates)
    del handle
    assert reference() is not None
    del candidates
    gc.collect()
    assert reference() is None


def test_a_cycle_through_the_generator_is_collected():
    class Handle:
        pass

    handle = Handle()
    handle.candidates = _candidate_era_configs({}, handle)
    next(handle.candidates)
    reference = weakref.ref(handle)
    del handle
    gc.collect()
    assert reference() is None


def test_it_takes_weak_references_and_can_be_delegated_to():
    candidates = _candidate_era_configs({"era": 1})
    assert weakref.ref(candidates)() is candidates

    def delegate():
        yield from _candidate_era_configs({"era": 1})

    assert list(delegate()) == [1, {"era": 1}]


def test_its_names_are_those_of_the_function():
    candidates = _candidate_era_configs({})
    assert candidates.__name__ == "_candidate_era_configs"
    assert candidates.__qualname__ == "_candidate_era_configs"
    assert repr(candidates).startswith("<generator object _candidate_era_configs at 0x")


def test_arguments_are_bound_before_the_first_step():
    with pytest.raises(TypeError, match="missing 1 required positional argument"):
        _candidate_era_configs()
    assert list(_candidate_era_configs(onboarding_config=None, runtime=None)) == []


OWN, OTHER = ValueError("own"), KeyError("other")
THROWN = {
    "class and text": ((ValueError, "text"), ValueError, ("text",)),
    "class and several": ((ValueError, ("a", "b")), ValueError, ("a", "b")),
    "class and nothing": ((ValueError, None), ValueError, ()),
    "class and instance": ((ValueError, OWN), ValueError, ("own",)),
    "base class and instance": ((Exception, OWN), ValueError, ("own",)),
    "class and other instance": ((ValueError, OTHER), ValueError, (OTHER,)),
    "class and no traceback": ((ValueError, "text", None), ValueError, ("text",)),
    "instance and nothing": ((OWN, None), ValueError, ("own",)),
    "instance and value": (
        (OWN, 5),
        TypeError,
        ("instance exception may not have a separate value",),
    ),
    "traceback of another type": (
        (ValueError, "text", 5),
        TypeError,
        ("throw() third argument must be a traceback object",),
    ),
}


def throw(*arguments):
    """Throw into new candidates; from 3.12 on, generators warn of all but one argument."""
    warns = sys.version_info >= (3, 12) and len(arguments) > 1
    with pytest.warns(DeprecationWarning, match="signature of throw") if warns else nullcontext():
        return _candidate_era_configs({}).throw(*arguments)


@pytest.mark.parametrize(("arguments", "kind", "values"), THROWN.values(), ids=THROWN)
def test_throw_takes_what_generators_take(arguments, kind, values):
    with pytest.raises((LookupError, TypeError, ValueError)) as caught:
        throw(*arguments)
    assert type(caught.value) is kind
    assert caught.value.args == values


def test_throw_gives_the_error_that_traceback():
    try:
        raise KeyError
    except KeyError as error:
        trace = error.__traceback__
    with pytest.raises(ValueError, match="text") as caught:
        throw(ValueError, "text", trace)
    found = caught.value.__traceback__
    while found.tb_next is not None:
        found = found.tb_next
    assert found is trace
