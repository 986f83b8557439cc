"""Function items, names and keys that change, lie or raise while they are read."""

from __future__ import annotations

import pytest
from kestrune.search_analytics import AggregateBy
from support.environment import failing
from support.operations import ending, walk
from support.parts import engine_over, evaluation, function_item, using

pytestmark = pytest.mark.usefixtures("now")
READERS = ["get_search_stats", "get_search_patterns", "get_correlation_patterns"]
EVERY_READER = pytest.mark.parametrize("name", READERS)


@EVERY_READER
@pytest.mark.parametrize(
    ("metadata", "error"),
    [(5, "'int' object is not iterable"), (object(), "not iterable")],
    ids=["int", "object"],
)
def test_metadata_that_cannot_be_iterated(name, metadata, error):
    with pytest.raises(TypeError, match=error):
        walk(engine_over([evaluation(function_metadata=metadata)]), name)


def test_a_generator_as_metadata_is_used_up_by_the_filter():
    record = evaluation(function_metadata=(function_item(n, "F") for n in "ab"))
    engine = engine_over([record])
    (row,) = engine.get_search_stats(
        function_family="F", aggregate_by=AggregateBy.NONE, min_sample_size=0
    ).rows
    assert row.group_key[0] == {"b"}


@EVERY_READER
def test_metadata_that_is_emptied_while_it_is_read(name):
    class Item(dict):
        def get(self, *args):
            metadata.clear()
            return super().get(*args)

    metadata = [Item(function_item(n, "F")) for n in "abc"]
    record = evaluation(function_metadata=metadata)
    ending(lambda: walk(engine_over([record, record]), name))
    assert metadata == []


@EVERY_READER
def test_metadata_that_grows_while_it_is_read(name):
    class Item(dict):
        def get(self, *args):
            if len(metadata) < 50:
                metadata.append(Item(function_item(f"new {len(metadata)}", "F")))
            return super().get(*args)

    metadata = [Item(function_item("first", "F"))]
    walk(engine_over([evaluation(function_metadata=metadata)]), name)
    assert len(metadata) == 50


@EVERY_READER
@pytest.mark.parametrize("error", [ValueError("x"), KeyboardInterrupt(), SystemExit(3)], ids=repr)
def test_errors_of_an_item_pass_unchanged(name, error):
    class Item(dict):
        get = failing(error)

    with pytest.raises(type(error)) as caught:
        walk(engine_over([evaluation(function_metadata=[Item()])]), name)
    assert caught.value is error


@EVERY_READER
def test_an_item_that_deletes_its_own_get(name):
    class Item(dict):
        def get(self, *args):
            if "get" in vars(Item):
                del Item.get
            return "mine"

    record = evaluation(function_metadata=[Item(function_item("f", "F", "S"))])
    ending(lambda: walk(engine_over([record]), name))
    assert "get" not in vars(Item)


@EVERY_READER
def test_a_key_with_the_hash_of_a_name_key_is_compared(name):
    compared = []

    class Key:
        def __hash__(self):
            return hash("function_name")

        def __eq__(self, other):
            compared.append(other)
            return False

    item = {Key(): 1, "function_name": "f", "function_family": None, "function_subfamily": None}
    walk(engine_over([evaluation(function_metadata=[item, item])]), name)
    assert "function_name" in compared


@EVERY_READER
def test_a_key_whose_comparison_raises(name):
    class Key:
        def __hash__(self):
            return hash("function_name")

        __eq__ = failing(LookupError("mine"))

    item = {Key(): 1}
    if name != "get_correlation_patterns":  # the others ask for the family first
        item.update(function_family=None, function_subfamily=None)
    with pytest.raises(LookupError, match="mine"):
        walk(engine_over([evaluation(function_metadata=[item])]), name)


class Name(str):
    """A name with a hash, equality and order of its own."""

    def __hash__(self):
        return 7

    def __eq__(self, other):
        return str.__eq__(self, other)

    def __lt__(self, other):
        return str.__gt__(self, other)


@pytest.mark.parametrize(
    ("names", "expected"),
    [
        (["b" * 1_000_000, "a" * 1_000_000], ("a" * 1_000_000, "b" * 1_000_000)),
        (["\udc80", "\ud800"], ("\ud800", "\udc80")),
        (["a\0b", "a\0a"], ("a\0a", "a\0b")),
        ([("t", 2), ("t", 1)], (("t", 1), ("t", 2))),
        ([Name("a"), Name("b")], ("b", "a")),
        ([b"y", b"x"], (b"x", b"y")),
    ],
    ids=["megabyte", "lone surrogates", "embedded NUL", "tuples", "own order", "bytes"],
)
def test_odd_names_make_pairs_and_groups(names, expected):
    engine = engine_over([using(*names)])
    (pair,) = engine.get_correlation_patterns().pairs
    assert (pair.function_a, pair.function_b) == expected
    (row,) = engine.get_search_stats(min_sample_size=0, aggregate_by=AggregateBy.NONE).rows
    assert row.group_key[0] == frozenset(names)


@EVERY_READER
@pytest.mark.parametrize("name_value", [["list"], {"dict": 1}, {1}], ids=repr)
def test_unhashable_names_are_a_type_error(name, name_value):
    with pytest.raises(TypeError, match="unhashable type"):
        walk(engine_over([evaluation(function_metadata=[function_item(name_value)])]), name)


@EVERY_READER
def test_a_hash_that_raises(name):
    class Hashless:
        __hash__ = failing(LookupError("mine"))

    with pytest.raises(LookupError, match="mine"):
        walk(engine_over([using(Hashless(), "b")]), name)


@EVERY_READER
def test_a_hash_that_changes_ends_in_a_value_or_an_error(name):
    class Fickle:
        count = 0

        def __hash__(self):
            Fickle.count += 1
            return Fickle.count

        def __lt__(self, other):
            return False

    ending(lambda: walk(engine_over([using(Fickle(), Fickle()) for _ in range(20)]), name))


@EVERY_READER
def test_a_hash_that_empties_what_is_being_read(name):
    class Emptying:
        def __hash__(self):
            names.clear()
            evals.clear()
            return 1

        def __lt__(self, other):
            return False

    names = [Emptying(), Emptying()]
    evals = [evaluation(function_metadata=None, functions=names)] * 3
    ending(lambda: walk(engine_over(evals), name))
    assert evals == []


@EVERY_READER
def test_an_equality_that_empties_or_raises_while_a_set_is_probed(name):
    class Same:
        def __hash__(self):
            return 1

        def __lt__(self, other):
            return False

        def __eq__(self, other):
            evals.clear()
            raise LookupError("mine")

    evals = [using(Same(), Same()) for _ in range(3)]
    with pytest.raises(LookupError, match="mine"):
        walk(engine_over(evals), name)


@EVERY_READER
def test_an_equality_that_is_always_true(name):
    class Everyone:
        def __hash__(self):
            return 1

        def __eq__(self, other):
            return True

        def __lt__(self, other):
            return False

    result = walk(engine_over([using(Everyone(), Everyone()) for _ in range(5)]), name)
    if name == "get_search_stats":
        assert [row.evaluation_count for row in result.rows] == [5]
    elif name == "get_search_patterns":
        assert [family.total for family in result.family_yield_rates] == [5]
    else:
        assert result.pairs == []


@EVERY_READER
def test_a_thousand_names_of_one_hash(name):
    class Colliding(str):
        def __hash__(self):
            return 5

    evals = [using(Colliding(number)) for number in range(1000)]
    result = walk(engine_over(evals), name)
    if name == "get_search_stats":
        assert result.total_groups == 1000
    elif name == "get_search_patterns":
        assert len(result.family_yield_rates) == 1000
    else:
        assert result.total_evaluations == 1000


@pytest.mark.parametrize(
    ("printed", "error"),
    [(failing(LookupError("x")), LookupError), (lambda self: 5, TypeError)],
    ids=["error", "no text"],
)
@EVERY_READER
def test_bare_names_that_cannot_be_printed(name, printed, error):
    class Bare:
        __str__ = printed

    arguments = {"aggregate_by": AggregateBy.NONE} if name == "get_search_stats" else {}
    engine = engine_over([evaluation(function_metadata=[Bare(), "b"])])
    if name == "get_search_patterns":  # families of bare items are never printed
        assert walk(engine, name).family_yield_rates[0].function_family == ""
    else:
        with pytest.raises(error):
            walk(engine, name, **arguments)


@pytest.mark.parametrize("name", READERS)
def test_names_that_change_while_items_are_built(name):
    class Names(list):
        def __iter__(self):
            for element in list(self):
                self.clear()
                yield element

    ending(
        lambda: walk(engine_over([evaluation(function_metadata=None, functions=Names("ab"))]), name)
    )


def test_an_order_that_raises_half_way_through_the_sort():
    class Sulking(str):
        def __lt__(self, other):
            raise LookupError("mine")

        __hash__ = str.__hash__

    with pytest.raises(LookupError, match="mine"):
        engine_over([using("a", Sulking("b"), "c")]).get_correlation_patterns()


def test_an_order_that_empties_the_history():
    class Emptying(str):
        def __lt__(self, other):
            evals.clear()
            return str.__lt__(self, other)

        __hash__ = str.__hash__

    evals = [using(Emptying("b"), Emptying("a")) for _ in range(5)]
    result = engine_over(evals).get_correlation_patterns()
    assert len(result.pairs) == 1
