"""Copies of the module that the collector is taking apart, in child processes.

A finaliser makes a weak reference to a part of the garbage; an object that is freed while the
garbage is taken apart reaches that part by it, and uses it.
"""

from __future__ import annotations

import pytest
from support.children import run_child

DYING = """
    import gc, importlib.util, inspect, sys, weakref
    import kestrune.search_analytics as search_analytics
    from support.copies import copy_of_the_module
    from support.operations import WALKS
    from support.parts import RecordingTracker, evaluation, pool
    from support.signatures import DECLARATIONS, function

    gc.disable()
    references, used, problems = [], [], []

    class Finaliser:
        '''Runs before anything is taken apart.'''
        def __init__(self, *parts):
            self.parts = parts
        def __del__(self):
            references.extend(weakref.ref(part) for part in self.parts)

    class Ghost:
        '''Frozen before there is garbage: freed while that is taken apart.'''
        def __del__(self):
            for reference in references:
                part = reference()
                if part is not None:
                    use(part)

    ghosts = [Ghost() for _ in range(1000)]
    gc.freeze()

    def attempt(call):
        try:
            used.append(type(call()))
        except Exception as error:
            used.append(type(error))
            if isinstance(error, (SystemError, AssertionError)):
                problems.append(repr(error))

    def haunt(module):
        '''Put ghosts wherever the module and its parts let go of what they hold.'''
        module._os = ghosts.pop()  # the first name, which is let go of before the functions
        for name in DECLARATIONS:
            one = function(module, name)
            one.ghost = ghosts.pop()
            one.__annotations__["ghost"] = ghosts.pop()
            one.__kwdefaults__ = {"ghost": ghosts.pop()}
        for one in vars(module).values():
            if isinstance(one, type) and one.__module__ == module.__name__:
                one.ghost = ghosts.pop()
        module.last = ghosts.pop()

    def collect():
        gc.collect()
        assert used, "no part was reached"
        assert not problems, problems[:3]
"""

PLAIN = """
    import gc, weakref

    class Part:
        pass

    class Finaliser:
        def __init__(self, part):
            self.part = part
        def __del__(self):
            references.append(weakref.ref(self.part))

    class Ghost:
        def __del__(self):
            print(*(reference() is not None for reference in references))

    references, ghosts = [], [Ghost()]
    gc.freeze()
    part = Part()
    part.itself, part.ghost, part.finaliser = part, ghosts.pop(), Finaliser(part)
    del part
    gc.collect()
"""
"""The same with nothing but plain objects: says whether the part was reached."""


@pytest.fixture(scope="module", autouse=True)
def reached_garbage():
    """Late releases of CPython clear what finalisers made before they take anything apart."""
    if run_child(PLAIN).stdout.strip() == "False":
        pytest.skip("the collector clears weak references that finalisers make")


USES = {
    "a call of a function": (
        "module._usage_items, module._get_attr_or_item, module._usage_value, module._get_or_init",
        "lambda: part(*'abc'), lambda: part({}, 'a'), part",
    ),
    "a call that does not fit": ("module._usage_items", "lambda: part(1, 2, 3, 4, 5, none=6)"),
    "what a function says of itself": (
        "*(function(module, name) for name in DECLARATIONS)",
        "lambda: repr(part), lambda: inspect.signature(part), lambda: part.__code__, "
        "lambda: part.__builtins__, lambda: vars(part), lambda: part.__annotations__, "
        "lambda: part.__globals__, lambda: part.__module__, lambda: part.__reduce__()",
    ),
    "every function without arguments": (
        "*(function(module, name) for name in DECLARATIONS)",
        "part, lambda: part(None), lambda: part(None, None), lambda: part({}, {}, {})",
    ),
    "a generator of candidates": (
        "module._candidate_era_configs({'era': {}}, {}, {})",
        "lambda: next(part), lambda: part.throw(KeyError), part.close, lambda: repr(part)",
    ),
    "a new generator": ("module._candidate_era_configs", "lambda: list(part({'era': {}}))"),
    "the factory of a field": (
        "module.StatsRow.__dataclass_fields__['group_key'].default_factory",
        "part",
    ),
    "the unpacking of a pair": (
        "module._get_or_init",
        "part",
    ),
}


@pytest.mark.parametrize(("parts", "uses"), USES.values(), ids=USES)
def test_a_part_of_a_dying_copy_works_or_fails_in_words(parts, uses):
    run_child(
        DYING
        + f"""
    def use(part):
        for call in [{uses}]:
            attempt(call)

    module = copy_of_the_module()
    module.finaliser = Finaliser({parts})
    haunt(module)
    del module
    collect()
    """
    )


@pytest.mark.parametrize("emptied", ["False", "True"], ids=["whole", "namespace put back"])
def test_an_engine_of_a_dying_copy_works_or_fails_in_words(emptied):
    """Also where the namespace is filled again, so that no name is missing."""
    run_child(
        DYING
        + f"""
    def use(engine):
        kind = type(engine)
        for name in WALKS:
            method = kind.__dict__.get(name) or methods.get(name)
            if method is not None:
                methods[name] = method
                if {emptied}:
                    method.__globals__.update(vars(search_analytics))
                attempt(lambda: method(engine))
                for dimension in search_analytics.AggregateBy:
                    attempt(lambda: method(engine, aggregate_by=dimension))

    methods = {{}}
    module = copy_of_the_module()
    engine = module.SearchAnalytics(RecordingTracker([evaluation()] * 3), [pool()])
    for name in WALKS:
        getattr(engine, name)()
    module.kept = engine
    module.finaliser = Finaliser(engine)
    haunt(module)
    engine.ghost = ghosts.pop()
    del module, engine
    collect()
    """
    )


def test_classes_of_a_dying_copy_make_records_or_fail_in_words():
    run_child(
        DYING
        + """
    def use(record):
        attempt(walk)

    def walk():
        method = methods[0]()
        method.__globals__.update(classes)
        method.__globals__.update(
            {name: value for name, value in vars(search_analytics).items() if name not in classes}
        )
        return method(engine)

    module = copy_of_the_module()
    classes = {}
    methods = [weakref.ref(module.SearchAnalytics.get_search_patterns)]
    engine = search_analytics.SearchAnalytics(RecordingTracker([evaluation()] * 3), [pool()])

    class First:
        def __init__(self, module):
            self.module = module
        def __del__(self):
            methods[0] = weakref.ref(self.module.SearchAnalytics.get_search_patterns)

    module.first_finaliser = First(module)
    module.finaliser = Finaliser(module.SearchPatternsResult, module.DepthBucket)
    haunt(module)
    del module
    collect()
    """
    )
