"""Running the code of a function, and calls whose arguments the interpreter binds."""

from __future__ import annotations

import gc
import io
import pickle
import types
from collections import Counter
from typing import Any

import kestrune.search_analytics as search_analytics
import pytest
from support.copies import copy_of_the_module
from support.operations import WALKS, walk
from support.parts import engine_over, evaluation
from support.signatures import DECLARATIONS, function, ordinary


def rebuilt(native: Any, namespace: dict[str, Any] | None = None) -> types.FunctionType:
    """Return a function of the interpreter's own made of the parts of another one."""
    return types.FunctionType(
        native.__code__,
        {} if namespace is None else namespace,
        native.__name__,
        native.__defaults__,
        native.__closure__,
    )


@pytest.mark.parametrize("name", WALKS)
def test_a_function_made_of_the_code_does_the_same(now, name):
    engine = engine_over([evaluation()] * 3)
    method = rebuilt(getattr(search_analytics.SearchAnalytics, name))
    assert type(method) is types.FunctionType
    assert method(engine, **WALKS[name]) == walk(engine, name)


@pytest.mark.parametrize("name", WALKS)
def test_a_module_function_made_of_the_code_does_the_same(monkeypatch, now, name):
    engine = engine_over([evaluation()] * 3)
    monkeypatch.setattr(search_analytics, "_get_or_init", lambda: engine)
    native = getattr(search_analytics, name)
    assert rebuilt(native, vars(search_analytics))(**WALKS[name]) == walk(engine, name)


def test_a_generator_function_made_of_the_code_does_the_same():
    candidates = rebuilt(search_analytics._candidate_era_configs)({"era": 1})
    assert isinstance(candidates, types.GeneratorType)
    assert list(candidates) == [1, {"era": 1}]


def test_code_without_parameters_can_be_executed(monkeypatch):
    called = []
    monkeypatch.setattr(
        search_analytics, "_get_or_init", lambda: called.append(1) or engine_over([], eras=[])
    )
    exec(search_analytics.get_available_eras.__code__, {})
    assert called == [1]


def test_code_with_parameters_asks_for_them():
    with pytest.raises(TypeError, match="missing"):
        exec(search_analytics._usage_value.__code__, {})


@pytest.mark.parametrize("name", DECLARATIONS)
def test_code_fails_as_its_function_does(name):
    native = function(search_analytics, name)
    arguments = [object()] * native.__code__.co_argcount

    def outcome(call):
        try:
            return str(type(call(*arguments)))
        except Exception as error:
            return repr(error)

    made = rebuilt(native)
    if name == "_candidate_era_configs":
        assert list(made(*arguments)) == list(native(*arguments))
    else:
        assert outcome(made) == outcome(native)


def test_code_of_a_function_that_is_gone_says_so():
    module = copy_of_the_module()
    made = rebuilt(module._usage_value)
    assert made({"a": 1}, "a", "b") == 1
    del module
    for _ in range(3):
        gc.collect()
    with pytest.raises(RuntimeError, match="the compiled function that this code calls is gone"):
        made({"a": 1}, "a", "b")


class ByValue(pickle.Pickler):
    """Takes functions apart, as picklers do that send them to where their module is missing."""

    def reducer_override(self, value: Any) -> Any:
        if isinstance(value, types.CodeType):
            names = ("co_argcount", "co_code", "co_consts", "co_names", "co_varnames")
            return tuple, ([getattr(value, name) for name in names],)
        if isinstance(value, types.FunctionType):
            return tuple, ([value.__code__, value.__name__, value.__defaults__],)
        return NotImplemented


@pytest.mark.parametrize("name", DECLARATIONS)
def test_pickling_by_value_is_refused(now, name):
    native = function(search_analytics, name)
    assert ByValue(io.BytesIO()).dump(ordinary(search_analytics, name)) is None
    with pytest.raises(TypeError, match="cannot pickle"):
        ByValue(io.BytesIO()).dump(native)
    assert pickle.loads(pickle.dumps(native)) is native


class Fickle(str):
    """A keyword that equals nothing until it has been compared so often."""

    __slots__ = ("left",)
    __hash__ = str.__hash__

    def __eq__(self, other):
        COMPARED[str(self)] += 1
        self.left -= 1
        return self.left < 0 and str.__eq__(self, other)


COMPARED: Counter[str] = Counter()


def fickle(text: str, left: int) -> Fickle:
    made = Fickle(text)
    made.left = left
    return made


@pytest.mark.parametrize("left", range(9))
def test_a_keyword_is_compared_as_often_as_by_a_def(left):
    def outcome(call):
        COMPARED.clear()
        try:
            answer = call({"a": 1}, "a", **{fickle("name_key", left): "b"})
        except TypeError as error:
            answer = str(error)
        return answer, COMPARED.total() if hasattr(COMPARED, "total") else sum(COMPARED.values())

    plain = ordinary(search_analytics, "_usage_value", "return 1")
    assert outcome(search_analytics._usage_value) == outcome(plain)


@pytest.mark.parametrize("name", DECLARATIONS)
def test_keywords_that_change_their_minds_bind_or_are_refused(name):
    native, plain = function(search_analytics, name), ordinary(search_analytics, name)
    parameters = native.__code__.co_varnames[: native.__code__.co_argcount]

    def refusal(call, left):
        try:
            call(**{fickle(parameter, left): object() for parameter in parameters})
        except TypeError as error:
            return str(error) if "argument" in str(error) else None
        except Exception:
            return None

    for left in range(2 * len(parameters)):
        assert refusal(native, left) == refusal(plain, left)
