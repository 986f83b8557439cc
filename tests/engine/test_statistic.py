"""One statistic of a record: the per-column table first, the record itself otherwise."""

from __future__ import annotations

from types import MappingProxyType, SimpleNamespace

import pytest
from differential.traps import assert_same, call, plain
from support.environment import failing
from support.parts import engine_over


def stat(record, column=None, name="sharpe"):
    return engine_over([])._get_stat(record, column, name)


def record(table, **stats):
    return SimpleNamespace(per_column_stats=table, **{"sharpe": 0.7, **stats})


def test_the_default_column_is_gross_returns():
    assert stat(record({"gross_returns_sharpe": 1.5})) == 1.5


@pytest.mark.parametrize("table", [None, {}, 0, ""], ids=repr)
def test_an_empty_table_gives_the_records_own_value(table):
    assert stat(record(table)) == 0.7
    assert stat(record(table), "net") == 0.7


def test_a_missing_column_gives_the_records_own_value():
    assert stat(record({"gross_returns_sharpe": 1.5}), "net_returns") == 0.7


def test_another_column_is_looked_up_under_its_own_key():
    assert stat(record({"net_sharpe": 2.5, "gross_returns_sharpe": 1.5}), "net") == 2.5
    assert stat(record({"_sharpe": 2.5}), "") == 2.5


def test_whatever_the_table_holds_is_returned_even_none():
    value = object()
    assert stat(record({"net_sharpe": value}), "net") is value
    assert stat(record({"net_sharpe": None}), "net") is None


def test_any_statistic_can_be_asked_for():
    assert stat(record({}, turnover=0.5), None, "turnover") == 0.5
    assert stat(record({"gross_returns_turnover": 3}), None, "turnover") == 3


def test_a_record_without_the_statistic_is_an_attribute_error():
    with pytest.raises(AttributeError, match="no attribute 'turnover'"):
        stat(record({}), None, "turnover")


def test_a_record_without_the_table_is_an_attribute_error():
    with pytest.raises(AttributeError, match="no attribute 'per_column_stats'"):
        stat(SimpleNamespace(sharpe=1))


def test_the_records_own_value_is_not_read_when_the_table_has_it():
    class Record:
        per_column_stats = MappingProxyType({"gross_returns_sharpe": 1.5})
        sharpe = property(failing(AssertionError("read")))

    assert stat(Record()) == 1.5


def test_the_table_is_read_three_times():
    reads = []

    class Record:
        @property
        def per_column_stats(self):
            reads.append(1)
            return {"gross_returns_sharpe": len(reads)}

    assert stat(Record()) == 3


def test_the_key_is_a_concatenation():
    with pytest.raises(TypeError) as expected:
        5 + "_"  # noqa: B018
    with pytest.raises(TypeError) as caught:
        stat(record({}), 5)
    assert str(caught.value) == str(expected.value)
    with pytest.raises(TypeError, match="can only concatenate str"):
        stat(record({}), "net", 5)


def test_any_mapping_serves_as_table():
    assert stat(record(MappingProxyType({"net_sharpe": 2.5})), "net") == 2.5

    class Table(dict):
        def __contains__(self, key):
            return True

        def __missing__(self, key):
            return key

    assert stat(record(Table(a=1)), "net") == "net_sharpe"


def test_a_table_that_knows_no_membership_is_a_type_error():
    with pytest.raises(TypeError, match="argument of type 'int' is not"):
        stat(record(5))


def test_a_key_that_vanishes_is_a_key_error():
    class Table(dict):
        def __contains__(self, key):
            return True

    with pytest.raises(KeyError, match="gross_returns_sharpe"):
        stat(record(Table(a=1)))


@pytest.mark.parametrize(
    "table",
    [5, "text", MappingProxyType({"gross_returns_sharpe": 9.5}), ["gross_returns_sharpe"]],
    ids=lambda table: type(table).__name__,
)
def test_a_table_of_another_kind_is_asked_among_records_that_have_none(table):
    def build(w):
        history = [plain(index, per_column_stats=None) for index in range(6)]
        history[4].per_column_stats = table
        return call(w, history, "get_search_stats")

    assert_same(build)
