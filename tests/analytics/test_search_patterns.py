"""Depth distribution and family yield."""

from __future__ import annotations

import pytest
from kestrune.search_analytics import (
    DepthBucket,
    EvalPool,
    FamilyYield,
    SearchPatternsResult,
)
from support.environment import failing
from support.parts import FILTERS, engine_over, evaluation, function_item, using


def patterns(evals, **arguments):
    return engine_over(evals).get_search_patterns(**arguments)


def of_depth(depth, passed=True):
    return evaluation(tree_depth=depth, passed_thresholds=passed)


def of_families(*families, passed=True):
    return evaluation(
        function_metadata=[function_item(f"f{i}", family) for i, family in enumerate(families)],
        passed_thresholds=passed,
    )


def families(result):
    return [(y.function_family, y.total, y.passed, y.yield_rate) for y in result.family_yield_rates]


@pytest.mark.parametrize("evals", [[], (), {}, ""], ids=repr)
def test_no_evaluations_give_an_empty_result(evals):
    result = patterns(evals)
    assert result == SearchPatternsResult()
    assert result.depth_distribution is not result.family_yield_rates


def test_no_history_at_all_is_a_type_error():
    with pytest.raises(TypeError, match=r"object of type 'NoneType' has no len\(\)"):
        patterns(None)


def test_truthy_passes_are_counted():
    result = patterns([of_depth(1), of_depth(1, False), of_depth(1, "yes"), of_depth(1, None)])
    assert (result.total_evaluations, result.total_passed) == (4, 2)


def test_depths_stand_in_ascending_order():
    result = patterns([of_depth(3), of_depth(1, False), of_depth(2), of_depth(1), of_depth(3)])
    assert result.depth_distribution == [
        DepthBucket(depth=1, total=2, passed=1, yield_rate=0.5),
        DepthBucket(depth=2, total=1, passed=1, yield_rate=1.0),
        DepthBucket(depth=3, total=2, passed=2, yield_rate=1.0),
    ]


def test_a_depth_without_passes_has_a_yield_of_zero():
    (bucket,) = patterns([of_depth(1, False)]).depth_distribution
    assert bucket == DepthBucket(depth=1, total=1, passed=0, yield_rate=0.0)
    assert (type(bucket.passed), type(bucket.yield_rate)) == (int, float)


def test_depths_are_keys_and_the_first_of_equal_ones_is_kept():
    buckets = patterns([of_depth(True), of_depth(1), of_depth(1.0)]).depth_distribution
    assert len(buckets) == 1
    assert buckets[0].depth is True
    assert buckets[0].total == 3


def test_a_depth_of_none_is_a_key_like_any_other():
    (bucket,) = patterns([of_depth(None), of_depth(None, False)]).depth_distribution
    assert bucket == DepthBucket(depth=None, total=2, passed=1, yield_rate=0.5)


def test_depths_that_cannot_be_ordered_are_a_type_error():
    with pytest.raises(TypeError, match="'<' not supported between instances of"):
        patterns([of_depth(None), of_depth(1)])


def test_an_unhashable_depth_is_a_type_error():
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        patterns([of_depth([])])


def test_depths_that_are_no_numbers_are_buckets_of_their_own():
    nan = float("nan")
    buckets = patterns([of_depth(nan), of_depth(nan), of_depth(float("nan"))]).depth_distribution
    assert sorted(bucket.total for bucket in buckets) == [1, 2]


def test_an_evaluation_without_functions_counts_everywhere_but_in_families():
    result = patterns([evaluation(function_metadata=None, tree_depth=5)])
    assert (result.total_evaluations, result.total_passed) == (1, 1)
    assert result.depth_distribution == [DepthBucket(5, 1, 1, 1.0)]
    assert result.family_yield_rates == []


def test_a_family_is_counted_once_per_evaluation():
    result = patterns([of_families("A", "A", "A"), of_families("A", passed=False)])
    assert families(result) == [("A", 2, 1, 0.5)]


def test_an_evaluation_counts_in_each_of_its_families():
    result = patterns([of_families("A"), of_families("A", "B", passed=False)])
    assert families(result) == [("A", 2, 1, 0.5), ("B", 1, 0, 0.0)]
    assert type(result.family_yield_rates[0]) is FamilyYield


def test_families_stand_from_the_highest_yield():
    result = patterns([of_families("low", passed=False), of_families("high"), of_families("low")])
    assert [row[0] for row in families(result)] == ["high", "low"]


def test_families_of_equal_yield_stay_as_first_met():
    names = ["z", "a", "m", "b"]
    assert [row[0] for row in families(patterns([of_families(n) for n in names]))] == names


def test_families_of_one_evaluation_are_met_in_the_order_of_a_set():
    names = [f"family {number}" for number in range(40)]
    met = set()
    for name in names:
        met.add(name)
    assert [row[0] for row in families(patterns([of_families(*names)]))] == list(met)


def test_an_item_without_family_counts_under_its_name():
    assert families(patterns([using("f")])) == [("f", 1, 1, 1.0)]
    assert families(patterns([evaluation(function_metadata=["bare"])])) == [("", 1, 1, 1.0)]


def test_a_family_of_none_from_a_replaced_helper_is_a_family(monkeypatch):
    import kestrune.search_analytics as search_analytics

    monkeypatch.setattr(search_analytics, "_usage_value", lambda *args: None)
    assert families(patterns([of_families("A")])) == [(None, 1, 1, 1.0)]


def test_metadata_that_cannot_be_iterated_is_a_type_error():
    with pytest.raises(TypeError, match="'int' object is not iterable"):
        patterns([evaluation(function_metadata=5)])


def test_an_unhashable_family_is_a_type_error():
    with pytest.raises(TypeError, match="unhashable type: 'list'"):
        patterns([of_families(["A"])])


@pytest.mark.parametrize("missing", ["passed_thresholds", "tree_depth"])
def test_a_record_without_an_attribute_is_an_attribute_error(missing):
    record = evaluation()
    delattr(record, missing)
    with pytest.raises(AttributeError, match=f"no attribute '{missing}'"):
        patterns([record])


def test_attributes_of_a_record_are_read_in_order():
    reads = []

    class Record:
        def __getattribute__(self, name):
            reads.append(name)
            return getattr(evaluation(), name)

    patterns([Record()])
    assert reads == ["passed_thresholds", "tree_depth", "function_metadata"]


def test_the_evaluation_type_is_checked_before_the_tracker_is_asked():
    engine = engine_over([])
    with pytest.raises(ValueError, match="eval_type must be"):
        engine.get_search_patterns(eval_type="x")
    assert engine._tracker.calls == []


def test_every_filter_and_the_pool_reach_the_fetch_by_keyword():
    fetched = []
    engine = engine_over([])
    engine._fetch_evaluations = lambda *args, **kwargs: fetched.append((args, kwargs)) or []
    values = {name: object() for name in FILTERS} | {"eval_type": "signal"}
    engine.get_search_patterns(**values, eval_pool=EvalPool.PASSED)
    assert fetched == [((), {**values, "eval_pool": EvalPool.PASSED})]


def test_errors_of_a_record_pass_unchanged():
    error = LookupError("mine")
    record = type("Record", (), {"passed_thresholds": property(failing(error))})()
    with pytest.raises(LookupError) as caught:
        patterns([record])
    assert caught.value is error


def test_the_clock_is_not_read(monkeypatch):
    import kestrune.search_analytics as search_analytics

    monkeypatch.setattr(search_analytics, "time", None)
    assert patterns([evaluation()]).total_evaluations == 1


class Compared(float):
    """A depth that logs the types of the depths it is compared with."""

    log: list

    def __eq__(self, other):
        self.log.append(type(other))
        return float.__eq__(self, other)

    __hash__ = float.__hash__


@pytest.mark.parametrize(
    ("depths", "passing"),
    [((1, True), bool), ((True, 1), int), ((1.0, True), bool), ((1, 1.0), float)],
    ids=str,
)
def test_passes_are_found_under_the_first_depth_that_passed(depths, passing):
    first, second = depths
    last = Compared(1)
    last.log = []
    result = patterns([of_depth(first, passed=False), of_depth(second), of_depth(last)])
    (bucket,) = result.depth_distribution
    assert (bucket.depth, type(bucket.depth)) == (first, type(first))
    assert (bucket.total, bucket.passed) == (3, 2)
    # Each count is looked up, then set.
    assert last.log == [type(first)] * 2 + [passing] * 2


def test_a_depth_that_cannot_be_found_again_is_the_key_of_the_error():
    class Moving(tuple):
        hashes = iter(range(9))

        def __hash__(self):
            return next(self.hashes)

    depth = Moving("ab")
    with pytest.raises(KeyError) as caught:
        patterns([of_depth(depth)])
    (key,) = caught.value.args
    assert key is depth
