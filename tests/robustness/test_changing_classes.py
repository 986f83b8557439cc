"""Long lists of ordinary instances whose class or attributes change in the midst of a walk.

Reading many records of one class invites short cuts: each change here makes a short cut wrong that
goes on as before. Half-way through the list stands a record that makes the change when it is read.
"""

from __future__ import annotations

import dataclasses
import gc
from types import SimpleNamespace

import pytest
from support.parts import engine_over, evaluation, function_item

pytestmark = pytest.mark.usefixtures("now")

FIELDS = vars(evaluation(tree_depth=1, function_metadata=[function_item("f", "old", "S")]))
COUNT = 40


def plain(bases=(object,), **members):
    """A new class of ordinary instances."""

    class Record(*bases):
        def __init__(self, fields):
            for name, value in fields.items():
                setattr(self, name, value)

    for name, value in members.items():
        setattr(Record, name, value)
    return Record


def wide(fields):
    """More attributes than instances of a class share the keys of."""
    return {**{f"extra_{number}": number for number in range(60)}, **fields}


def spoiled(cls):
    """A class whose instances were first made with other attributes, in another order."""
    cls(dict.fromkeys(reversed(FIELDS)))
    cls({"tree_depth": 5, "unknown": 6})
    return cls


def instances(kind):
    """`COUNT` records of one new class of that kind."""
    if kind == "dataclass":
        cls = dataclasses.make_dataclass("Record", FIELDS)
        return [cls(**FIELDS) for _ in range(COUNT)]
    if kind == "slots":
        slots = {"__slots__": ("another_slot", "unrelated_slot")}
        cls = type("Record", (type("Slotted", (plain(),), slots),), {})
    elif kind == "subclass":
        cls = plain((plain((plain(),)),))
    elif kind == "other order":
        cls = spoiled(plain())
    elif kind == "int":
        cls = plain((plain(),), __index__=lambda self: 1)
    else:
        cls = plain()
    records = [cls(wide(FIELDS) if kind == "wide" else FIELDS) for _ in range(COUNT)]
    if kind == "with dictionary":
        assert all(vars(record) for record in records)
    if kind == "reordered":
        for record in records[::2]:
            del record.tree_depth
            record.tree_depth = 1
    return records


KINDS = [
    *("plain", "dataclass", "slots", "subclass", "other order", "wide", "with dictionary"),
    *("reordered", "int"),
]


class Hiding:
    """A data descriptor: it comes before what the instance holds."""

    def __get__(self, record, cls=None):
        return 2

    def __set__(self, record, value):
        raise AttributeError


def each(change):
    def apply(records, cls):
        for record in records:
            change(record)

    return apply


def override_reading(records, cls):
    cls.__getattribute__ = lambda self, name: (
        2 if name == "tree_depth" else object.__getattribute__(self, name)
    )


def move_to_another_class(records, cls):
    other = type("Other", (cls,), {"tree_depth": Hiding()})
    for record in records:
        record.__class__ = other


def fall_back_to_the_class(records, cls):
    for record in records:
        del record.tree_depth
    cls.tree_depth = 2


def fall_back_to_getattr(records, cls):
    for record in records:
        del record.tree_depth
    cls.__getattr__ = lambda self, name: {"tree_depth": 2}[name]


def crowd(record):
    for number in range(40):
        setattr(record, f"more_{number}", number)
    record.tree_depth = 2


def leave_the_dictionary(record):
    vars(record)["tree_depth"] = 2


def replace_the_dictionary(record):
    record.__dict__ = {**vars(record), "tree_depth": 2}


CHANGES = {
    "property": lambda records, cls: setattr(cls, "tree_depth", property(lambda self: 2)),
    "data descriptor": lambda records, cls: setattr(cls, "tree_depth", Hiding()),
    "descriptor of a base": lambda records, cls: setattr(cls.__mro__[-2], "tree_depth", Hiding()),
    "getattribute": override_reading,
    "class": move_to_another_class,
    "fall back to the class": fall_back_to_the_class,
    "fall back to getattr": fall_back_to_getattr,
    "assignment": each(lambda record: setattr(record, "tree_depth", 2)),
    "dictionary written": each(leave_the_dictionary),
    "dictionary replaced": each(replace_the_dictionary),
    "many attributes": each(crowd),
}
# What changes nothing: the instance's own value comes first.
HARMLESS = {
    "class attribute": lambda records, cls: setattr(cls, "tree_depth", 2),
    "plain getattr": lambda records, cls: setattr(cls, "__getattr__", lambda self, name: 2),
    "dictionary made": each(vars),
    "other attribute": lambda records, cls: setattr(cls, "unrelated", property(lambda self: 2)),
    "collection": lambda records, cls: gc.collect(),
}


class Trigger:
    """The record in the middle: makes the change when its depth is read; its depth is 0."""

    def __init__(self, change):
        self.change = change

    @property
    def tree_depth(self):
        self.change()
        return 0

    def __getattr__(self, name):
        return FIELDS[name]


def depths(evals):
    """How many records there were of each depth."""
    buckets = engine_over(evals).get_search_patterns().depth_distribution
    return {bucket.depth: bucket.total for bucket in buckets}


def walked(records, change):
    half = COUNT // 2
    trigger = Trigger(lambda: change(records, type(records[0])))
    return depths([*records[:half], trigger, *records[half:]])


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("change", CHANGES.values(), ids=CHANGES)
def test_a_change_is_seen_by_every_record_after_it(kind, change):
    records = instances(kind)
    assert walked(records, change) == {0: 1, 1: COUNT // 2, 2: COUNT // 2}


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("change", HARMLESS.values(), ids=HARMLESS)
def test_what_does_not_concern_the_value_changes_nothing(kind, change):
    assert walked(instances(kind), change) == {0: 1, 1: COUNT}


@pytest.mark.parametrize("kind", KINDS)
def test_a_deleted_attribute_is_missing(kind):
    def change(records, cls):
        del records[-1].tree_depth

    with pytest.raises(AttributeError, match="tree_depth"):
        walked(instances(kind), change)


@pytest.mark.parametrize("kind", KINDS)
def test_records_that_are_freed_and_replaced(kind):
    """The rest of the list gives way to new records, at the same places in memory if it may be."""

    def change(records, cls):
        records.clear()
        other = plain()
        evals[half + 1 :] = [other({**FIELDS, "tree_depth": 2}) for _ in range(COUNT)]

    records, half = instances(kind), COUNT // 2
    trigger = Trigger(lambda: change(records, type(records[0])))
    evals = [*records[:half], trigger, *records[half:]]
    del trigger
    assert depths(evals) == {0: 1, 1: half, 2: COUNT}


@pytest.mark.parametrize("kind", KINDS)
def test_a_list_that_is_cut_short(kind):
    def change():
        del evals[half + 3 :]
        gc.collect()

    records, half = instances(kind), COUNT // 2
    evals = [*records[:half], Trigger(change), *records[half:]]
    del records
    assert depths(evals) == {0: 1, 1: half + 2}


@pytest.mark.parametrize("kind", KINDS)
def test_kinds_may_alternate(kind):
    """No two neighbours are of one class."""
    one, other = instances(kind), instances("plain")
    for record in other:
        record.tree_depth = 2
    mixed = [record for pair in zip(one, other, strict=True) for record in pair]
    mixed[5:5] = [SimpleNamespace(**FIELDS), evaluation(tree_depth=3)]
    assert depths(mixed) == {1: COUNT + 1, 2: COUNT, 3: 1}


def test_every_record_of_a_class_of_its_own():
    records = [plain()({**FIELDS, "tree_depth": number % 4}) for number in range(COUNT)]
    assert depths(records) == dict.fromkeys(range(4), COUNT // 4)


@pytest.mark.parametrize("kind", KINDS)
def test_an_optional_attribute_that_changes_is_seen(kind):
    """The same for what may be absent: function metadata, read with a default."""

    def change(records, cls):
        cls.function_metadata = property(lambda self: [function_item("f", "new", "S")])

    records = instances(kind)
    if kind == "dataclass":
        assert records[0].function_metadata[0]["function_family"] == "old"
    half = COUNT // 2
    trigger = Trigger(lambda: change(records, type(records[0])))
    evals = [*records[:half], trigger, *records[half:]]
    yields = engine_over(evals).get_search_patterns().family_yield_rates
    # The trigger has the old metadata; its depth was read before.
    assert {y.function_family: y.total for y in yields} == {"old": half + 1, "new": half}


@pytest.mark.parametrize("kind", KINDS)
def test_an_optional_attribute_that_goes_is_absent(kind):
    def change(records, cls):
        for record in records:
            if kind == "dataclass" or "function_metadata" in vars(record):
                del record.function_metadata

    records = instances(kind)
    half = COUNT // 2
    trigger = Trigger(lambda: change(records, type(records[0])))
    evals = [*records[:half], trigger, *records[half:]]
    (family,) = engine_over(evals).get_search_patterns().family_yield_rates
    assert (family.function_family, family.total) == ("old", half + 1)


@pytest.mark.parametrize("kind", KINDS)
def test_statistics_of_long_lists_are_those_of_each_record(kind):
    records = instances(kind)
    expected = [0.0] * 5
    names = ("sharpe", "returns", "turnover", "drawdown", "correlation")
    for number, record in enumerate(records):
        for position, name in enumerate(names):
            value = number * 0.1 + position
            setattr(record, name, value)
            expected[position] += value
        record.per_column_stats = {"gross_returns_sharpe": number * 0.1} if number % 2 else None
    (row,) = engine_over(records).get_search_stats(min_sample_size=0).rows
    found = [getattr(row.windows[0], name) for name in names]
    assert found == [total / COUNT for total in expected]


@pytest.mark.parametrize("kind", KINDS)
def test_a_value_that_is_replaced_while_it_is_used(kind):
    """Adding the statistic drops the record's last reference to it."""

    class Number(float):
        def __radd__(self, other):
            for record in records:
                record.sharpe = 1.0
            return other + float(self)

    records = instances(kind)
    for record in records:
        record.sharpe = Number(1.0)
    (row,) = engine_over(records).get_search_stats(min_sample_size=0).rows
    assert row.windows[0].sharpe == 1.0
