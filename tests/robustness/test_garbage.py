"""The garbage collector at its busiest, cycles through everything, and whole modules freed."""

from __future__ import annotations

import atexit
import gc
import sys
import weakref

import kestrune.search_analytics as search_analytics
import pytest
from support.copies import copy_of_the_module
from support.operations import WALKS, walk
from support.parts import RecordingTracker, engine_over, evaluation, function_item, pool

pytestmark = pytest.mark.usefixtures("now")
EVERY_WALK = pytest.mark.parametrize("name", WALKS)


@pytest.fixture
def threshold():
    before = gc.get_threshold()
    yield gc.set_threshold
    gc.set_threshold(*before)


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


@pytest.mark.skipif(
    sys.version_info >= (3, 12), reason="the collector waits until bytecode runs, not for objects"
)
@pytest.mark.parametrize("number", range(1, 6))
def test_what_a_collection_replaces_counts_for_the_records_after_it(threshold, monkeypatch, number):
    """Making a set starts the collector, of which a callback replaces a helper."""

    class Arming:
        def __getattr__(self, name):
            if name == "passed_thresholds":
                armed.append(name)
                threshold(1, 1, 1)
            return getattr(template, name)

    def callback(phase, info):
        if armed and phase == "start":
            collections.append(phase)
            if len(collections) == number:
                monkeypatch.setattr(search_analytics, "_usage_value", replaced)

    def replaced(item, key, name_key):
        if item["function_name"] == "f":  # none of those of the arming record
            read.append(item[key])
        return original(item, key, name_key)

    def families(place):
        return [function_item("f", f"{side} {place}") for side in ("left", "right")]

    original, template = search_analytics._usage_value, evaluation()
    armed, collections, read = [], [], []
    evals = [evaluation(function_metadata=families(place)) for place in range(40)]
    evals[5] = Arming()
    engine = engine_over(evals)
    gc.callbacks.append(callback)
    try:
        engine.get_search_patterns()
    finally:
        threshold(700, 10, 10)
        gc.callbacks.remove(callback)
    assert len(collections) >= number
    assert read[-2:] == ["left 39", "right 39"]
    first = int(read[0].partition(" ")[2])
    assert len(read) == 2 * (40 - first)


def test_a_module_that_is_gone_leaves_nothing_of_its_namespace():
    module = copy_of_the_module()
    name, namespace = sys.intern("agent_server_is_pnl_mi_delta"), vars(module)
    del module
    namespace.clear()
    for _ in range(3):
        gc.collect()
    alone = {}
    assert sys.getrefcount(namespace) == sys.getrefcount(alone)
    before = sys.getrefcount(name)
    for _ in range(5):
        copy_of_the_module()
        for _ in range(3):
            gc.collect()
    assert sys.getrefcount(name) == before


def test_a_module_is_among_those_that_refer_to_its_types():
    function_type = type(search_analytics.get_search_stats)
    assert any(each is search_analytics for each in gc.get_referrers(function_type))
    assert gc.get_referrers(vars(search_analytics))


def test_copies_of_the_module_ask_for_one_notice_of_the_end():
    before = atexit._ncallbacks()
    copies = [copy_of_the_module() for _ in range(3)]
    assert len(copies) == 3
    assert atexit._ncallbacks() == before
