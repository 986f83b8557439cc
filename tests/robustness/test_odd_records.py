"""Records of every kind: without the attributes, with all of them, with whatever is asked."""

from __future__ import annotations

import collections
import types
import weakref
from types import SimpleNamespace
from unittest import mock

import pytest
from support.operations import WALKS, ending, walk
from support.parts import engine_over, evaluation

pytestmark = pytest.mark.usefixtures("now")
EVERY_WALK = pytest.mark.parametrize("name", WALKS)
FIELDS = vars(evaluation())


@EVERY_WALK
def test_a_record_that_denies_even_its_class(name):
    class Denying:
        def __getattribute__(self, attribute):
            raise AttributeError(attribute)

    with pytest.raises(AttributeError):
        walk(engine_over([Denying()]), name)


class Slotted:
    __slots__ = tuple(FIELDS)


ODD_RECORDS = {
    "None": None,
    "int": 5,
    "dict": dict(FIELDS),
    "class": SimpleNamespace,
    "module": types.ModuleType("record"),
    "unset slots": Slotted(),
    "function": ending,
    "bare": object(),
}


@EVERY_WALK
@pytest.mark.parametrize("record", ODD_RECORDS.values(), ids=ODD_RECORDS)
def test_a_record_without_the_attributes_is_an_attribute_error(name, record):
    with pytest.raises(AttributeError):
        walk(engine_over([record]), name)


def shapes():
    module = types.ModuleType("record")
    vars(module).update(FIELDS)
    slotted = Slotted()
    for key, value in FIELDS.items():
        setattr(slotted, key, value)
    return {
        "module": module,
        "slots": slotted,
        "class": type("Attributes", (), dict(FIELDS)),
        "namedtuple": collections.namedtuple("Named", FIELDS)(**FIELDS),
        "proxy": weakref.proxy(KEPT),
    }


class Referable(SimpleNamespace):
    """A namespace that takes weak references."""


KEPT = Referable(**FIELDS)


@EVERY_WALK
@pytest.mark.parametrize("shape", ["module", "slots", "class", "namedtuple", "proxy"])
def test_anything_with_the_attributes_is_a_record(name, shape):
    expected = walk(engine_over([evaluation()]), name)
    assert walk(engine_over([shapes()[shape]]), name) == expected


@EVERY_WALK
@pytest.mark.parametrize("double", [mock.Mock, mock.MagicMock], ids=lambda cls: cls.__name__)
def test_mocks_as_records_end_in_a_value_or_an_error(name, double):
    ending(lambda: walk(engine_over([double(), double()]), name))
