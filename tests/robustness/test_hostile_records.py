"""Records and histories that change, lie or raise while they are read."""

from __future__ import annotations

import gc
import re
import sys
import weakref
from types import SimpleNamespace

import pytest
from kestrune.search_analytics import EvalPool
from support.environment import failing
from support.operations import WALKS, ending, walk
from support.parts import NOW, engine_over, evaluation

pytestmark = pytest.mark.usefixtures("now")
EVERY_WALK = pytest.mark.parametrize("name", WALKS)
# The first attribute that each operation reads of each record, in its first pass.
FIRST_READ = {
    "get_search_stats": "per_column_stats",
    "get_suggestions": "per_column_stats",
    "get_search_patterns": "passed_thresholds",
    "get_search_velocity": "timestamp",
    "get_yield_analysis": "passed_thresholds",
    "get_correlation_patterns": "passed_thresholds",
}
FIELDS = vars(evaluation())


def field(name):
    """What a complete record has under that name."""
    try:
        return FIELDS[name]
    except KeyError:
        raise AttributeError(name) from None


class Record:
    """An evaluation whose attribute `watched` calls `act` at its first reading."""

    def __init__(self, number, watched, act, visits):
        self.number, self.watched, self.act, self.visits = number, watched, act, visits
        self.seen = False

    def visit(self):
        if not self.seen:
            self.seen = True
            self.visits.append(self.number)
            self.act(self)

    def __getattr__(self, name):
        if name == self.watched:
            self.visit()
        return field(name)


MUTATIONS = {
    "clear": lambda evals: evals.clear(),
    "pop the last": lambda evals: evals.pop(),
    "pop the first": lambda evals: evals.pop(0),
    "reverse": lambda evals: evals.reverse(),
    "sort": lambda evals: evals.sort(key=lambda record: -record.number),
    "drop the tail": lambda evals: evals.__setitem__(slice(2, None), []),
    "replace the middle": lambda evals: evals.__setitem__(slice(1, 4), evals[:1]),
    "extend": lambda evals: evals.extend(evals[:2]),
    "overwrite": lambda evals: evals.__setitem__(slice(None), [evals[0]] * len(evals)),
}


def history(watched, mutate, where):
    visits = []
    evals = []

    def act(record):
        if record.number == where:
            mutate(evals)

    evals.extend(Record(number, watched, act, visits) for number in range(6))
    return evals, visits


@EVERY_WALK
@pytest.mark.parametrize("where", [0, 3, 5], ids=["first", "middle", "last"])
@pytest.mark.parametrize("mutate", MUTATIONS.values(), ids=MUTATIONS)
def test_a_list_that_changes_is_walked_as_a_for_loop_walks_it(name, mutate, where):
    expected_list, expected = history(FIRST_READ[name], mutate, where)
    for record in expected_list:
        record.visit()
    evals, visits = history(FIRST_READ[name], mutate, where)
    ending(lambda: walk(engine_over(evals), name))
    assert visits[: len(expected)] == expected


@pytest.mark.parametrize("mutate", MUTATIONS.values(), ids=MUTATIONS)
@pytest.mark.parametrize(
    "filters", [{"eval_pool": EvalPool.SUBMITTED}, {"function_family": "x"}], ids=["pool", "family"]
)
def test_filters_walk_a_changing_list_as_a_for_loop_does(mutate, filters):
    watched = "submitted" if "eval_pool" in filters else "function_metadata"
    expected_list, expected = history(watched, mutate, 2)
    for record in expected_list:
        record.visit()
    evals, visits = history(watched, mutate, 2)
    engine_over(evals)._fetch_evaluations(**filters)
    assert visits == expected


@EVERY_WALK
def test_a_record_that_drops_its_own_last_reference_and_raises(name):
    class Suicidal:
        def __getattr__(self, attribute):
            evals[0] = None
            raise KeyError(attribute)

    evals = [Suicidal(), evaluation()]
    reference = weakref.ref(evals[0])
    with pytest.raises(KeyError) as caught:
        walk(engine_over(evals), name)
    del caught
    gc.collect()
    assert reference() is None


@EVERY_WALK
def test_a_record_that_drops_its_own_last_reference_and_answers(name):
    class Suicidal:
        def __getattr__(self, attribute):
            for index, record in enumerate(evals):
                if record is self:
                    evals[index] = evaluation()
            return field(attribute)

    evals = [Suicidal() for _ in range(5)]
    walk(engine_over(evals), name)
    assert not any(isinstance(record, Suicidal) for record in evals)


@EVERY_WALK
def test_a_record_that_changes_its_class_is_read_anew_each_time(name):
    class Second:
        def __getattr__(self, attribute):
            return field(attribute)

    class First(Second):
        def __getattr__(self, attribute):
            self.__class__ = Second
            return field(attribute)

    record = First()
    assert walk(engine_over([record]), name) == walk(engine_over([evaluation()]), name)
    assert type(record) is Second


def plainly_read():
    """Each (operation, attribute) that is read without a default."""
    stats = ["per_column_stats", "sharpe", "returns", "drawdown", "turnover", "correlation"]
    stats += ["passed_thresholds", "timestamp", "era_id"]
    reads = {
        "get_search_stats": stats,
        "get_search_patterns": ["passed_thresholds", "tree_depth"],
        "get_search_velocity": ["timestamp", "passed_thresholds"],
        "get_yield_analysis": ["passed_thresholds", "timestamp", "eval_type", "eval_id"],
        "get_correlation_patterns": ["passed_thresholds"],
    }
    return [(name, attribute) for name, attributes in reads.items() for attribute in attributes]


ERRORS = [
    *(AttributeError("x"), type("Mine", (AttributeError,), {})("x"), ValueError("x")),
    *(StopIteration(1), KeyboardInterrupt(), SystemExit(3), GeneratorExit(), MemoryError()),
    *(RecursionError("x"), type("Base", (BaseException,), {})("x")),
]
EVERY_ERROR = pytest.mark.parametrize("error", ERRORS, ids=lambda error: type(error).__name__)


@pytest.mark.parametrize(("name", "attribute"), plainly_read())
@EVERY_ERROR
def test_every_error_of_an_attribute_passes_unchanged(name, attribute, error):
    broken = type("Broken", (SimpleNamespace,), {attribute: property(failing(error))})
    fields = {key: value for key, value in FIELDS.items() if key != attribute}
    evals = [evaluation(), broken(**fields)]
    engine = engine_over(evals)
    with pytest.raises(type(error)) as caught:
        walk(engine, name)
    assert caught.value is error
    evals.pop()  # the next call is as good as ever
    assert walk(engine, name) == walk(engine_over([evaluation()]), name)


OPTIONAL = {
    "get_search_stats": ["function_metadata", "functions", "feature_metadata", "features"],
    "get_search_patterns": ["function_metadata", "functions"],
    "get_correlation_patterns": ["function_metadata", "functions"],
    "get_yield_analysis": ["is_correlation", "is_pnl_mi", "failure_reason", "strategy_pool_id"],
}


@pytest.mark.parametrize(
    ("name", "attribute"), [(name, a) for name, attributes in OPTIONAL.items() for a in attributes]
)
@EVERY_ERROR
def test_only_attribute_errors_mean_that_an_optional_attribute_is_absent(name, attribute, error):
    def record(**members):
        fields = {k: v for k, v in FIELDS.items() if not k.endswith("_metadata")}
        return type("Record", (SimpleNamespace,), members)(**fields)

    engine = engine_over([record(**{attribute: property(failing(error))})])
    if isinstance(error, AttributeError):
        assert walk(engine, name) == walk(engine_over([record()]), name)
    else:
        expected = type(error)
        with pytest.raises(expected) as caught:
            walk(engine, name)
        assert caught.value is error


class Lying(list):
    """A list whose length is what `answer` says."""

    answer = staticmethod(lambda: 0)

    def __len__(self):
        return self.answer()


@EVERY_WALK
@pytest.mark.parametrize(
    ("answer", "error"),
    [
        (lambda: -1, ValueError),
        (lambda: sys.maxsize + 1, OverflowError),
        (lambda: "one", TypeError),
        (failing(LookupError("mine")), LookupError),
    ],
    ids=["negative", "huge", "text", "raising"],
)
def test_a_length_that_cannot_be_is_the_interpreters_error(name, answer, error):
    evals = Lying([evaluation()])
    evals.answer = answer
    if name == "get_search_velocity":  # never asks for the length
        assert walk(engine_over(evals), name).windows[0].total_evaluations == 1
    else:
        with pytest.raises(error):
            walk(engine_over(evals), name)


@EVERY_WALK
def test_a_length_that_lies_does_not_mislead_the_walk(name):
    evals = Lying([evaluation()] * 3)
    evals.answer = lambda: min(2**40, sys.maxsize)
    visits = ending(lambda: walk(engine_over(evals), name))
    assert not isinstance(visits, type)


class Untrue:
    __bool__ = failing(ValueError("no truth"))


@EVERY_WALK
def test_marks_without_a_truth_raise_their_error(name):
    with pytest.raises(ValueError, match="no truth"):
        walk(engine_over([evaluation(passed_thresholds=Untrue())]), name)
    number = type("M", (), {"__bool__": int})()
    with pytest.raises(TypeError) as expected:
        bool(number)
    with pytest.raises(TypeError, match=re.escape(str(expected.value))):
        walk(engine_over([evaluation(passed_thresholds=number)]), name)


@EVERY_WALK
def test_ten_thousand_times_the_same_record(name):
    record = evaluation()
    before = sys.getrefcount(record)
    evals = [record] * 10_000
    walk(engine_over(evals), name)
    evals.clear()
    assert sys.getrefcount(record) == before


@EVERY_WALK
def test_records_that_come_back_from_the_dead(name):
    graveyard = []

    class Undead(SimpleNamespace):
        def __del__(self):
            graveyard.append(self)

    class Fleeting:
        """A history that makes its records while it is walked."""

        def __iter__(self):
            return (Undead(**FIELDS) for _ in range(20))

        def __len__(self):
            return 20

    walk(engine_over(Fleeting()), name)
    gc.collect()
    assert graveyard
    assert all(record.era_id == "era-1" for record in graveyard)
    graveyard.clear()


def test_era_comparisons_may_clear_the_list():
    class Era:
        def __eq__(self, other):
            evals.clear()
            return True

        __hash__ = None

    evals = [evaluation(era_id=Era()) for _ in range(4)]
    result = engine_over(evals).get_search_stats(era_id="x", min_sample_size=0)
    assert [row.evaluation_count for row in result.rows] == [1]


def test_comparisons_that_are_no_bool_raise_the_error_of_their_truth():
    stamp = type("Stamp", (), {"__ge__": lambda self, other: Untrue()})()
    for name in ("get_search_stats", "get_search_velocity", "get_yield_analysis"):
        with pytest.raises(ValueError, match="no truth"):
            walk(engine_over([evaluation(timestamp=stamp)]), name)
    correlation = type("Correlation", (), {"__lt__": lambda self, other: Untrue()})()
    with pytest.raises(ValueError, match="no truth"):
        walk(engine_over([evaluation(correlation=correlation)]), "get_search_stats")


def test_reflected_comparisons_and_additions_are_asked():
    class Threshold(float):
        def __gt__(self, other):
            return "yes"

    class Number:
        def __radd__(self, other):
            return other + 1.0

    engine = engine_over([evaluation(sharpe=Number(), timestamp=NOW)])
    engine._pool_configs[0].is_correlation_threshold = Threshold(-5)
    (row,) = engine.get_search_stats(min_sample_size=0).rows
    assert row.windows[0].submittable_yield == {"main": 1.0}
    assert row.windows[0].sharpe == 1.0
