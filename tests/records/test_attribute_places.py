"""Records with slots, and records without an attribute that may be absent.

Where a slot is, and that an attribute is not there, is worth remembering from one record to the
next; each test here makes what is remembered wrong.
"""

from __future__ import annotations

import sys

import pytest
from support.parts import engine_over, evaluation, function_item

pytestmark = pytest.mark.usefixtures("now")

FIELDS = vars(evaluation(tree_depth=1, function_metadata=[function_item("f", "old", "S")]))
HALF = 20


def slotted(names=tuple(FIELDS), base=object):
    return type("Slotted", (base,), {"__slots__": names})


def filled(cls, count=2 * HALF, **fields):
    records = [cls() for _ in range(count)]
    for record in records:
        for name, value in {**FIELDS, **fields}.items():
            setattr(record, name, value)
    return records


def hooked(change):
    """A record whose depth is 0, and which calls `change` when it is asked for it."""

    class Hooked:
        @property
        def tree_depth(self):
            change()
            return 0

        def __getattr__(self, name):
            if name == "rejection_reason":
                raise AttributeError(name)
            return FIELDS[name]

    return Hooked()


def depths(evals):
    buckets = engine_over(evals).get_search_patterns().depth_distribution
    return {bucket.depth: bucket.total for bucket in buckets}


def walked(records, change):
    return depths([*records[:HALF], hooked(change), *records[HALF:]])


@pytest.mark.parametrize(
    "cls",
    [
        slotted(),
        slotted((), slotted()),
        slotted(("more",), slotted()),
        slotted(("__dict__", *FIELDS)),
    ],
    ids=["slots", "slots of a base", "more slots", "slots and a dictionary"],
)
def test_slots_are_read_as_attributes(cls):
    assert depths(filled(cls)) == {1: 2 * HALF}


def test_a_slot_that_is_written_on_the_way_is_seen():
    records = filled(slotted())

    def change():
        for record in records:
            record.tree_depth = 2

    assert walked(records, change) == {0: 1, 1: HALF, 2: HALF}


def test_a_slot_that_is_emptied_is_a_missing_attribute():
    records = filled(slotted())

    def change():
        del records[-1].tree_depth

    with pytest.raises(AttributeError, match="tree_depth"):
        walked(records, change)


def test_a_class_that_hides_its_slot_is_asked():
    cls = slotted()
    assert walked(filled(cls), lambda: setattr(cls, "tree_depth", property(lambda self: 2))) == {
        0: 1,
        1: HALF,
        2: HALF,
    }


def test_a_subclass_that_hides_the_slot_is_asked():
    cls = type("Hiding", (slotted(),), {"__slots__": (), "tree_depth": 2})
    records = filled(slotted()) + [cls() for _ in range(HALF)]
    for record in records[-HALF:]:
        for name in FIELDS.keys() - {"tree_depth"}:
            setattr(record, name, FIELDS[name])
    assert depths(records) == {1: 2 * HALF, 2: HALF}


def test_a_record_that_changes_its_class_is_read_by_the_new_one():
    records, other = filled(slotted()), slotted(tuple(reversed(FIELDS)))

    def change():
        records[HALF:] = filled(other, HALF, tree_depth=2)
        evals[HALF + 1 :] = records[HALF:]

    evals = [*records[:HALF], hooked(change), *records[HALF:]]
    assert depths(evals) == {0: 1, 1: HALF, 2: HALF}


def test_the_slot_of_an_unrelated_class_is_a_type_error():
    cls = slotted()
    records = filled(cls)
    cls.tree_depth = slotted(tuple(reversed(FIELDS))).tree_depth
    with pytest.raises(TypeError, match="doesn't apply"):
        depths(records)


def plain():
    return type("Plain", (), {})


def rejections(evals):
    """What the rationale says of each record's rejection."""
    rationale = engine_over(evals).get_yield_analysis().usefulness_rationale
    return [entry["rejection_reason"] for entry in rationale]


def give_each(records):
    for record in records:
        record.rejection_reason = "given"


def give_by_dictionary(records):
    # A name that the interpreter has not interned.
    name = "".join(["rejection", "_", "reason"])
    assert name is not sys.intern("rejection_reason")
    for record in records:
        vars(record)[name] = "given"


def give_by_another_dictionary(records):
    for record in records:
        record.__dict__ = {**vars(record), "rejection_reason": "given"}


class OtherDictionary(dict):
    """A dictionary whose own look-up nobody asks for attributes."""

    def get(self, key, default=None):
        raise AssertionError(key)


def give_by_a_dictionary_of_another_type(records):
    for record in records:
        record.__dict__ = OtherDictionary(vars(record), rejection_reason="given")


GIFTS = {
    "dictionary of another type": give_by_a_dictionary_of_another_type,
    "instance": give_each,
    "another dictionary": give_by_another_dictionary,
    "dictionary": give_by_dictionary,
    "class": lambda records: setattr(type(records[0]), "rejection_reason", "given"),
    "getattr": lambda records: setattr(type(records[0]), "__getattr__", lambda self, name: "given"),
    "getattribute": lambda records: setattr(
        type(records[0]),
        "__getattribute__",
        lambda self, name: (
            "given" if name == "rejection_reason" else object.__getattribute__(self, name)
        ),
    ),
}


def without_rejection(cls, count=2 * HALF):
    fields = {name: value for name, value in FIELDS.items() if name != "rejection_reason"}
    records = [cls() for _ in range(count)]
    for record in records:
        for name, value in fields.items():
            setattr(record, name, value)
    return records


@pytest.mark.parametrize("give", GIFTS.values(), ids=GIFTS)
def test_an_attribute_that_was_absent_is_seen_once_it_is_there(give):
    records = without_rejection(plain())
    assert rejections(records) == [None] * len(records)
    give(records)
    assert rejections(records) == ["given"] * len(records)


@pytest.mark.parametrize("give", GIFTS.values(), ids=GIFTS)
def test_an_absent_attribute_that_appears_in_the_midst_is_seen(give):
    records = without_rejection(plain())

    class Giving:
        """Gives the others the attribute when its own is asked for."""

        @property
        def rejection_reason(self):
            give(records)
            raise AttributeError("rejection_reason")

        def __getattr__(self, name):
            if name == "rejection_reason" or name not in FIELDS:
                raise AttributeError(name)
            return FIELDS[name]

    evals = [*records[:HALF], Giving(), *records[HALF:]]
    assert rejections(evals) == [None] * (HALF + 1) + ["given"] * HALF


@pytest.mark.parametrize("place", [0, HALF])
def test_an_attribute_named_by_a_text_of_its_own_is_not_overlooked(place):
    """An instance's dictionary may bring a name into the class that is equal, not identical."""
    cls = plain()
    # The first instances number what those after them hold.
    give_by_dictionary(without_rejection(cls, 1))
    records = without_rejection(cls)
    records[place].rejection_reason = "given"
    assert [number for number, reason in enumerate(rejections(records)) if reason] == [place]


class Later:
    """A value in the class, which becomes a descriptor when its own class changes."""


def become_data_descriptor():
    Later.__get__ = lambda value, record, cls=None: 2
    Later.__set__ = lambda value, record, new: None


@pytest.fixture
def later():
    """Leave the class as it was."""
    yield
    for name in ("__get__", "__set__"):
        if name in vars(Later):
            delattr(Later, name)


class Springing:
    """A truth that makes a change first."""

    def __init__(self, change):
        self.change = change

    def __bool__(self):
        self.change()
        return True


@pytest.mark.usefixtures("later")
def test_a_value_in_the_class_may_become_a_descriptor():
    cls = plain()
    cls.tree_depth = Later()
    records = filled(cls, 6)
    records[3].passed_thresholds = Springing(become_data_descriptor)
    assert depths(records) == {1: 3, 2: 3}


class Printed:
    """A reason that runs an action when it is shown."""

    def __init__(self, action):
        self.action = action

    def __str__(self):
        self.action()
        return "shown"


@pytest.mark.parametrize("give", GIFTS.values(), ids=GIFTS)
def test_an_absent_attribute_that_a_record_of_the_same_class_gives_is_seen(give):
    records = without_rejection(plain(), 6)
    records[3].failure_reason = Printed(lambda: give(records[4:]))
    found = rejections(records)
    assert found[4:] == ["given"] * 2
    assert found[:3] == [None] * 3


def test_an_attribute_that_a_property_denies_one_record_is_not_absent_in_others():
    cls = plain()
    cls.rejection_reason = property(lambda record: record.own)
    records = without_rejection(cls, 6)
    for record in records[3:]:
        record.own = "given"
    assert rejections(records) == [None] * 3 + ["given"] * 3
