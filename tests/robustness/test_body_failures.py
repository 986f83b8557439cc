"""A module body that fails at some step leaves no half module, and the next import works."""

from __future__ import annotations

import pytest
from support.children import run_child

ATTEMPT = """
    import sys
    # Whole, before anything is patched: some import others only when they need them.
    import dataclasses, enum, math, os, re, time, types, typing

    class Planned(Exception):
        pass

    def fails(patch, error=Planned):
        '''Import with `patch` in force; it must fail with `error` and leave nothing behind.'''
        undo = patch()
        try:
            import kestrune.search_analytics
        except error:
            pass
        else:
            raise SystemExit("the import came through")
        finally:
            undo()
        assert "kestrune.search_analytics" not in sys.modules
        import kestrune
        assert not hasattr(kestrune, "search_analytics")

    def works():
        import kestrune.search_analytics as search_analytics
        from support.operations import WALKS, walk
        from support.parts import engine_over, evaluation
        for name in WALKS:
            walk(engine_over([evaluation()]), name)
        assert list(search_analytics.AggregateBy)[-1] is search_analytics.AggregateBy.NONE
        del sys.modules["kestrune.search_analytics"]
        del sys.modules["kestrune"].search_analytics

    def replacing(owner, name, value):
        def patch():
            before = getattr(owner, name)
            setattr(owner, name, value)
            return lambda: setattr(owner, name, before)
        return patch

    def failing_at(number, original):
        '''`original`, but for its call of that number, which fails.'''
        calls = []
        def call(*args, **kwargs):
            calls.append(1)
            if len(calls) == number:
                raise Planned
            return original(*args, **kwargs)
        return call
"""


@pytest.mark.parametrize("module", ["os", "time", "math", "dataclasses", "enum", "types", "typing"])
def test_a_standard_module_that_cannot_be_imported(module):
    run_child(
        f"""{ATTEMPT}
    def patch():
        before = sys.modules[{module!r}]
        sys.modules[{module!r}] = None
        return lambda: sys.modules.__setitem__({module!r}, before)
    fails(patch, ImportError)
    works()
    """
    )


@pytest.mark.parametrize(
    ("module", "name"),
    [
        *(("dataclasses", "dataclass"), ("dataclasses", "field"), ("enum", "Enum")),
        *(("types", "SimpleNamespace"), ("typing", "List"), ("typing", "Optional")),
        *(("typing", "Tuple"), ("typing", "FrozenSet")),
    ],
)
def test_a_name_that_is_missing_from_its_module(module, name):
    run_child(
        f"""{ATTEMPT}
    def patch():
        before = {module}.__dict__.pop({name!r})
        return lambda: setattr({module}, {name!r}, before)
    fails(patch, ImportError)
    works()
    """
    )


def test_a_decorator_that_fails_at_any_record():
    run_child(f"""{ATTEMPT}
    original = dataclasses.dataclass
    for number in range(1, 13):
        fails(replacing(dataclasses, "dataclass", failing_at(number, original)))
    works()
    """)


def test_a_field_that_fails_at_any_use():
    run_child(f"""{ATTEMPT}
    original = dataclasses.field
    for number in range(1, 14):
        fails(replacing(dataclasses, "field", failing_at(number, original)))
    works()
    """)


@pytest.mark.parametrize("method", ["__prepare__", "__new__"])
def test_an_enumeration_that_fails_at_any_of_the_three(method):
    run_child(f"""{ATTEMPT}
    Meta = type(enum.Enum)
    original = getattr(Meta, {method!r})
    for number in range(1, 4):
        call = failing_at(number, original)
        if {method!r} == "__prepare__":
            inner = failing_at(number, Meta.__dict__["__prepare__"].__func__)
            value = classmethod(lambda *args, inner=inner, **kwargs: inner(*args, **kwargs))
            before = Meta.__dict__["__prepare__"]
        else:
            value, before = staticmethod(call), Meta.__dict__[{method!r}]
        def patch():
            setattr(Meta, {method!r}, value)
            return lambda: setattr(Meta, {method!r}, before)
        fails(patch)
    works()
    """)


@pytest.mark.parametrize("value", ["None", "5", "object", "lambda *args, **kwargs: None"])
def test_an_enumeration_base_that_is_something_else(value):
    """Whatever stands there: an error or a module that was built with it, but no crash."""
    run_child(f"""{ATTEMPT}
    before = enum.Enum
    enum.Enum = {value}
    try:
        import kestrune.search_analytics
    except Exception as error:
        assert not isinstance(error, SystemError), error
        assert "kestrune.search_analytics" not in sys.modules
    else:
        del sys.modules["kestrune.search_analytics"]
        del sys.modules["kestrune"].search_analytics
    enum.Enum = before
    works()
    """)


@pytest.mark.parametrize("value", ["None", "5", "lambda cls: None", "lambda cls: 5"])
def test_a_decorator_that_is_something_else(value):
    run_child(f"""{ATTEMPT}
    before = dataclasses.dataclass
    dataclasses.dataclass = {value}
    try:
        import kestrune.search_analytics
    except Exception as error:
        assert not isinstance(error, SystemError), error
        assert "kestrune.search_analytics" not in sys.modules
    else:
        from support.operations import WALKS, ending, walk
        from support.parts import engine_over, evaluation
        for name in WALKS:
            ending(lambda: walk(engine_over([evaluation()]), name))
        del sys.modules["kestrune.search_analytics"]
        del sys.modules["kestrune"].search_analytics
    dataclasses.dataclass = before
    works()
    """)


@pytest.mark.parametrize("error", ["KeyboardInterrupt", "SystemExit", "MemoryError"])
def test_interrupts_of_the_body_pass(error):
    run_child(f"""{ATTEMPT}
    def interrupt(cls):
        raise {error}
    fails(replacing(dataclasses, "dataclass", interrupt), {error})
    works()
    """)


def test_a_failed_body_is_freed():
    run_child(f"""{ATTEMPT}
    import gc
    def interrupt(cls):
        raise Planned
    def once():
        fails(replacing(dataclasses, "dataclass", interrupt))
        gc.collect()
    for _ in range(5):
        once()
    counts = []
    for _ in range(3):
        before = sys.getallocatedblocks()
        for _ in range(10):
            once()
        counts.append(sys.getallocatedblocks() - before)
    # A whole half-built module is some thousand blocks.
    assert min(counts) < 100, counts
    """)


def test_a_table_of_modules_that_runs_code_keeps_the_error():
    """A copy that is not in the table stands there while its records are made, whatever happens."""
    run_child(f"""{ATTEMPT}
    import importlib.util, traceback
    import kestrune.search_analytics as search_analytics

    class Modules(dict):
        def __delitem__(self, name):
            deleted.append(name)
            super().__delitem__(name)

    name, deleted = "kestrune.search_analytics", []
    spec = importlib.util.spec_from_file_location(name, search_analytics.__spec__.origin)
    del sys.modules[name]
    sys.modules = Modules(sys.modules)
    undo = replacing(dataclasses, "dataclass", failing_at(3, dataclasses.dataclass))()
    try:
        spec.loader.exec_module(importlib.util.module_from_spec(spec))
    except Planned as error:
        frames = [frame.name for frame in traceback.extract_tb(error.__traceback__)]
        assert frames[-1] == "call", frames
    else:
        raise SystemExit("the module came through")
    finally:
        undo()
    assert deleted == [name], deleted
    """)
