"""A record that has to be asked is asked as often as by Python: looking for places asks nobody."""

from __future__ import annotations

import pytest
from differential.traps import assert_same, call, fields
from differential.world import NOW
from support.records import ATTRIBUTES


def set_each(record, **values):
    for name, value in values.items():
        setattr(record, name, value)


KINDS = {
    "array": lambda: type("Record", (), {"__init__": set_each}),
    "slots": lambda: type("Record", (), {"__init__": set_each, "__slots__": ATTRIBUTES}),
}


class Noting:
    """A descriptor that notes each reading; what an instance holds itself goes before it."""

    def __init__(self, w):
        self.w = w

    def __get__(self, record, cls=None):
        self.w.note("asked")
        return NOW


def note_by_property(w, records):
    type(records[0]).timestamp = property(lambda record: w.note("asked") or NOW)


def note_by_function(w, records):
    def read(record, name):
        w.note("asked", name)
        return object.__getattribute__(record, name)

    type(records[0]).__getattribute__ = read


def note_what_is_missing(w, records):
    del records[0].timestamp
    type(records[0]).timestamp = Noting(w)


def leave_it_missing(w, records):
    del records[0].timestamp


def leave_out_what_is_not_read(w, records):
    records[0].timestamp = 0.0
    del records[0].passed_thresholds


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize(
    "change",
    [
        note_by_property,
        note_by_function,
        note_what_is_missing,
        leave_it_missing,
        leave_out_what_is_not_read,
    ],
)
def test_the_first_record_is_asked_as_often_as_by_python(change, kind):
    """The walk over all windows at once looks at it before it asks any."""

    def build(w):
        cls = KINDS[kind]()
        records = [cls(**fields(i)) for i in range(4)]
        change(w, records)
        return call(w, records, "get_search_velocity")

    assert_same(build)
