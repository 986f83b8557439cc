"""The garbage collector at its busiest, cycles through everything, and whole modules freed."""

from __future__ import annotations

import gc
import importlib.util
import weakref

import kestrune.search_analytics as search_analytics
import pytest
from support.operations import WALKS, walk
from support.parts import RecordingTracker, engine_over, evaluation, pool

pytestmark = pytest.mark.usefixtures("now")
EVERY_WALK = pytest.mark.parametrize("name", WALKS)


@pytest.fixture
def threshold():
    before = gc.get_threshold()
    yield gc.set_threshold
    gc.set_threshold(*before)


def copy_of_the_module():
    spec = importlib.util.spec_from_file_location(
        "kestrune.search_analytics", search_analytics.__spec__.origin
    )
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


@EVERY_WALK
def test_a_collection_at_every_allocation_changes_nothing(threshold, name):
    engine = engine_over([evaluation()] * 20)
    expected = walk(engine, name)
    threshold(1, 1, 1)
    found = walk(engine, name)
    threshold(700, 10, 10)
    assert found == expected


@EVERY_WALK
def test_a_collection_may_empty_the_history(threshold, name):
    """A callback of the collector runs inside the walk and clears what is being walked."""
    calls = []

    def callback(phase, info):
        calls.append(phase)
        evals.clear()

    evals = [evaluation() for _ in range(200)]
    engine = engine_over(evals)
    gc.callbacks.append(callback)
    try:
        threshold(1, 1, 1)
        walk(engine, name)
    finally:
        threshold(700, 10, 10)
        gc.callbacks.remove(callback)
    assert calls


@EVERY_WALK
def test_frozen_objects_are_no_obstacle(name):
    engine = engine_over([evaluation()] * 3)
    gc.freeze()
    try:
        expected = walk(engine, name)
        assert walk(engine, name) == expected
    finally:
        gc.unfreeze()


@EVERY_WALK
def test_a_result_in_a_cycle_with_its_engine_is_collected(name):
    engine = engine_over([evaluation()] * 3)
    result = walk(engine, name)
    result.engine, engine.result = engine, result
    references = [weakref.ref(engine), weakref.ref(result)]
    del engine, result
    gc.collect()
    assert [reference() for reference in references] == [None, None]


@EVERY_WALK
def test_dying_records_may_call_back_into_the_module(name):
    """A weak reference's callback runs the same operation again."""

    class Record:
        def __getattr__(self, attribute):
            try:
                return vars(plain)[attribute]
            except KeyError:
                raise AttributeError(attribute) from None

    class Fleeting:
        def __iter__(self):
            for _ in range(5):
                record = Record()
                references.append(weakref.ref(record, lambda _: called.append(walk(other, name))))
                yield record

        def __len__(self):
            return 5

    plain = evaluation()
    references, called = [], []
    other = engine_over([plain])
    walk(engine_over(Fleeting()), name)
    gc.collect()
    assert len(called) >= 5
    assert len({type(result) for result in called}) == 1


def test_a_function_in_a_cycle_with_its_attributes_is_collected():
    class Note:
        pass

    copy = copy_of_the_module()
    note = Note()
    note.function = copy._usage_value
    copy._usage_value.note = note
    reference = weakref.ref(note)
    del note, copy
    gc.collect()
    assert reference() is None


def test_a_bound_method_in_a_cycle_is_collected():
    engine = engine_over([])
    engine.method = engine.get_search_stats
    reference = weakref.ref(engine)
    del engine
    gc.collect()
    assert reference() is None


def test_a_module_that_nobody_holds_is_freed_with_everything_in_it():
    module = copy_of_the_module()
    module.SearchAnalytics(RecordingTracker([evaluation()]), [pool()]).get_search_stats()
    made = [
        module,
        module.SearchAnalytics,
        module.get_search_stats,
        module.StatsRow,
        module.EvalPool,
    ]
    references = [weakref.ref(one) for one in made]
    del module, made
    for _ in range(3):  # enumerations and record classes free each other round by round
        gc.collect()
    assert [reference() for reference in references] == [None] * 5


def test_what_outlives_its_module_goes_on_working():
    module = copy_of_the_module()
    engine = module.SearchAnalytics(RecordingTracker([evaluation()]), [pool()])
    lookup = module._get_attr_or_item
    factory = module.StatsRow.__dataclass_fields__["group_key"].default_factory
    del module
    gc.collect()
    assert engine.get_search_patterns().total_evaluations == 1
    assert lookup({"a": 1}, "a") == 1
    assert factory() == (frozenset(), frozenset())


def test_a_module_whose_names_were_all_deleted_fails_in_words():
    module = copy_of_the_module()
    engine = module.SearchAnalytics(RecordingTracker([evaluation()]), [pool()])
    vars(module).clear()
    for name in WALKS:
        with pytest.raises(NameError, match="is not defined"):
            walk(engine, name)
