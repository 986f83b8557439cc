"""Windows, depths, pools and tables that change, lie or raise while they are read."""

from __future__ import annotations

from types import SimpleNamespace

import pytest
from kestrune.search_analytics import TimeWindow
from support.operations import ending, walk
from support.parts import NOW, engine_over, evaluation, pool

pytestmark = pytest.mark.usefixtures("now")


def test_windows_that_change_the_list_of_windows_when_they_are_hashed():
    class Window:
        def __hash__(self):
            windows.clear()
            return 1

    windows = [Window(), Window()]
    ending(lambda: engine_over([evaluation()]).get_search_stats(time_windows=windows))
    assert windows == []


def test_windows_that_change_the_list_of_windows_when_they_are_compared():
    class Window:
        def __eq__(self, other):
            windows.clear()
            return False

        def __hash__(self):
            return id(self)

    windows = [Window() for _ in range(5)]
    ending(lambda: engine_over([evaluation()]).get_search_stats(time_windows=windows))


@pytest.mark.parametrize(
    "windows",
    [{TimeWindow.ERA: 1}, "abc", range(3), frozenset(TimeWindow), (TimeWindow.LAST_24H,)],
    ids=["dictionary", "text", "range", "frozenset", "tuple"],
)
def test_any_sized_iterable_of_hashable_windows_serves(windows):
    (row,) = (
        engine_over([evaluation()]).get_search_stats(time_windows=windows, min_sample_size=0).rows
    )
    assert [window.window for window in row.windows] == list(windows)


def test_depths_whose_order_raises_half_way():
    class Depth(int):
        def __lt__(self, other):
            raise LookupError("mine")

        __hash__ = int.__hash__

    with pytest.raises(LookupError, match="mine"):
        engine_over([evaluation(tree_depth=Depth(n)) for n in range(4)]).get_search_patterns()


def test_depths_with_a_hostile_equality():
    class Depth:
        def __hash__(self):
            return 1

        def __eq__(self, other):
            evals.clear()
            return False

        def __lt__(self, other):
            return False

    evals = [evaluation(tree_depth=Depth()) for _ in range(4)]
    result = engine_over(evals).get_search_patterns()
    assert [bucket.total for bucket in result.depth_distribution] == [1, 1]


def test_pools_that_change_while_they_are_read():
    class Fickle(SimpleNamespace):
        @property
        def name(self):
            pools.clear()
            return "fickle"

    pools = [Fickle(is_correlation_threshold=0.5), pool("b"), pool("c")]
    engine = engine_over([evaluation(timestamp=NOW)], *pools)
    engine._pool_configs = pools
    ending(lambda: engine.get_search_stats(min_sample_size=0))
    assert pools == []


def test_tables_that_lie_about_their_keys():
    class Table(dict):
        def __contains__(self, key):
            return True

    with pytest.raises(KeyError, match="gross_returns_sharpe"):
        walk(engine_over([evaluation(per_column_stats=Table(a=1))]), "get_search_stats")


def test_a_table_whose_key_vanishes_between_the_test_and_the_reading():
    class Key(str):
        def __eq__(self, other):
            equal = str.__eq__(self, other)
            if equal and armed:
                table.clear()
            return equal

        __hash__ = str.__hash__

    armed = []
    table = {Key("net_sharpe"): 1.0}
    armed.append(True)
    ending(
        lambda: engine_over([evaluation(per_column_stats=table)]).get_search_stats(
            pnl_column="net", min_sample_size=0
        )
    )
    assert table == {}
