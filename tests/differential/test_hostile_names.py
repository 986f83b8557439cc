"""Items, names and keys that misbehave: the same outcome as the model's."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import pytest
from differential.hooks import HookedDict, HookedText, hooked
from differential.traps import OPERATIONS, assert_same, call, engine, plain
from differential.world import World

ITEM_OPERATIONS = ("get_search_stats", "get_search_patterns", "get_correlation_patterns")
FILTERED = (*ITEM_OPERATIONS, "get_search_velocity")


class Dying(dict):  # type: ignore[type-arg]
    """An item whose `get` removes itself from its class."""

    def get(self, key: Any, default: Any = None) -> Any:
        del type(self).get
        return dict.get(self, key, default)


class Fresh(dict):  # type: ignore[type-arg]
    """An item with a new name at every reading."""

    reads = 0

    def get(self, key: Any, default: Any = None) -> Any:
        self.reads += 1
        return f"{key} {self.reads}"


def changing(change: Callable[[list[Any]], Any]) -> list[Any]:
    """A list of items, the first of which changes the list when it is read."""
    items: list[Any] = []

    class Changing(dict):  # type: ignore[type-arg]
        def get(self, key: Any, default: Any = None) -> Any:
            if len(items) in (3, 4):
                change(items)
            return dict.get(self, key, default)

    items.extend(
        [
            Changing(function_name="first", function_family="trend"),
            {"function_name": "second", "function_family": "rank"},
            {"function_name": "third", "function_family": "trend"},
        ]
    )
    return items


class SameHash:
    """A key with the hash of `function_name`; answers as it is told when it is compared."""

    def __init__(self, w: World, answer: Any, key: str = "function_name") -> None:
        self.w, self.answer, self.key = w, answer, key

    def __hash__(self) -> int:
        return hash(self.key)

    def __eq__(self, other: Any) -> Any:
        self.w.note("key", repr(other))
        if isinstance(self.answer, BaseException):
            raise self.answer
        return self.answer


NAMED = {"function_name": "sma", "function_family": "trend"}
OTHER = {"function_name": "ema", "function_family": "rank"}

METADATA: dict[str, Callable[[World], Any]] = {
    "not iterable": lambda w: 5,
    "text": lambda w: "ab",
    "dictionary": lambda w: {"sma": 1, "ema": 2},
    "generator": lambda w: (item for item in (NAMED, OTHER)),
    "failing generator": lambda w: (1 // index for index in (1, 0)),
    "numbers": lambda w: [1, 2.5, None],
    "names in it": lambda w: ["sma", NAMED, "ema"],
    "bytes": lambda w: b"ab",
    "clears": lambda w: changing(lambda items: items.clear()),
    "pops": lambda w: changing(lambda items: items.pop()),
    "grows": lambda w: changing(lambda items: items.append(OTHER)),
    "dying": lambda w: [type("Dying", (Dying,), {"get": Dying.get})(NAMED), OTHER],
    "fresh": lambda w: [Fresh(), Fresh()],
    "equal key": lambda w: [{SameHash(w, True): "odd"}, OTHER],
    "unequal key": lambda w: [{SameHash(w, False): "odd", "function_name": "sma"}, OTHER],
    "failing key": lambda w: [{SameHash(w, ValueError("key")): "odd"}, OTHER],
    "no truth": lambda w: NoTruth([NAMED]),
}


class NoTruth(list):  # type: ignore[type-arg]
    """A list without a truth."""

    def __bool__(self) -> bool:
        raise ValueError("ambiguous")


@pytest.mark.parametrize("metadata", list(METADATA))
@pytest.mark.parametrize("operation", FILTERED)
def test_metadata_of_any_kind_agree(operation: str, metadata: str) -> None:
    for filters in ({}, {"function_family": "trend"}, {"function_subfamily": "ema"}):

        def build(w: World, filters: dict[str, Any] = filters) -> Callable[[], Any]:
            history = [
                plain(function_metadata=METADATA[metadata](w)),
                plain(1),
                plain(2, function_metadata=METADATA[metadata](w)),
            ]
            return call(w, history, operation, **filters)

        assert_same(build)


class Hashed:
    """A name with a hash, an equality, an order and a truth of its own."""

    def __init__(self, w: World, label: str, **behaviour: Any) -> None:
        self.w, self.label, self.behaviour = w, label, behaviour

    def _do(self, what: str, usual: Any) -> Any:
        self.w.note(self.label, what)
        answer = self.behaviour.get(what, usual)
        if callable(answer):
            answer = answer()
        if isinstance(answer, BaseException):
            raise answer
        return answer

    def __hash__(self) -> int:
        return self._do("hash", 11)  # type: ignore[no-any-return]

    def __eq__(self, other: Any) -> Any:
        return self._do("eq", self is other)

    def __lt__(self, other: Any) -> Any:
        return self._do("lt", self.label < getattr(other, "label", str(other)))

    def __bool__(self) -> bool:
        return self._do("bool", True)  # type: ignore[no-any-return]

    def __str__(self) -> str:
        return self._do("str", self.label)  # type: ignore[no-any-return]

    def __repr__(self) -> str:
        return f"<Hashed {self.label}>"


def failing(message: str) -> Callable[[], Any]:
    """A behaviour that raises a new error each time."""

    def fail() -> Any:
        raise ValueError(message)

    return fail


def counting(*answers: Any) -> Callable[[], Any]:
    """A behaviour with another answer each time; the last one stays."""
    left = list(answers)
    return lambda: left.pop(0) if len(left) > 1 else left[0]


BEHAVIOURS: dict[str, Callable[[], dict[str, Any]]] = {
    "hash fails": lambda: {"hash": failing("hash")},
    "hash fails later": lambda: {"hash": counting(11, 11, 11, ValueError("late"))},
    "hash is no number": lambda: {"hash": "eleven"},
    "equality fails": lambda: {"eq": failing("eq")},
    "equal to all": lambda: {"eq": True},
    "order fails": lambda: {"lt": failing("lt")},
    "order not known": lambda: {"lt": NotImplemented},
    "truth fails": lambda: {"bool": failing("bool")},
    "false": lambda: {"bool": False},
    "false later": lambda: {"bool": counting(True, True, False)},
    "text fails": lambda: {"str": failing("str")},
    "text is no text": lambda: {"str": 5},
    "well-behaved": dict,
}


@pytest.mark.parametrize("shape", ["dictionaries", "bare", "unwrapped"])
@pytest.mark.parametrize("behaviour", list(BEHAVIOURS))
@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_names_of_any_behaviour_agree(operation: str, behaviour: str, shape: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        first = Hashed(w, "first", **BEHAVIOURS[behaviour]())
        second = Hashed(w, "second")
        history = [plain(), plain(1), plain(2), plain(3)]
        for record, names in zip(
            history[1:], ([first, second], [first], [second, "x"]), strict=True
        ):
            if shape == "dictionaries":
                record.function_metadata = [
                    {"function_name": name, "function_subfamily": name, "function_family": name}
                    for name in names
                ]
            elif shape == "bare":
                record.function_metadata, record.functions = None, names
            else:
                record.function_metadata = names
        return call(w, history, operation)

    assert_same(build)


NAMES: dict[str, list[Any]] = {
    "list": [["a"], "b"],
    "long": ["x" * 1_000_000, "y"],
    "surrogates": ["\ud800", "\udfff"],
    "zero byte": ["a\0b", "a"],
    "empty": ["", "a", 0, None, ()],
    "tuples": [("a", 1), ("a", "b")],
    "mixed": ["a", 5],
    "equal numbers": [1, True, 1.0],
    "not a number": [float("nan"), float("nan")],
    "bytes": [b"a", b"b"],
    "frozensets": [frozenset("a"), frozenset("b"), frozenset("ab")],
}


@pytest.mark.parametrize("names", list(NAMES))
@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_names_of_any_kind_agree(operation: str, names: str) -> None:
    for attribute in ("functions", "function_metadata"):

        def build(w: World, attribute: str = attribute) -> Callable[[], Any]:
            record = plain()
            record.function_metadata = None
            setattr(record, attribute, NAMES[names])
            return call(w, [record, plain(1), record], operation)

        assert_same(build)


class OwnText(str):
    """A string with the text of another."""

    def __str__(self) -> str:
        return "other"

    def __hash__(self) -> int:
        return 3

    def __eq__(self, other: Any) -> bool:
        return isinstance(other, OwnText)

    def __lt__(self, other: Any) -> bool:
        return len(self) < len(other)


@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_strings_of_their_own_kind(operation: str) -> None:
    for kind in (OwnText, lambda text: hooked(HookedText, lambda *entry: None, "name", text)):

        def build(w: World, kind: Any = kind) -> Callable[[], Any]:
            items = [{"function_name": kind(text)} for text in ("abc", "b", "abc", "")]
            return call(w, [plain(function_metadata=items), plain(1)], operation)

        assert_same(build)


@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_two_hundred_names_with_one_hash(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        silent = World(w.module, type("Zero", (), {"below": lambda self, n: 0})())
        names = [Hashed(silent, f"name {index:03}") for index in range(200)]
        records = [
            plain(
                index,
                function_metadata=[
                    {"function_name": names[index]},
                    {"function_name": names[(index * 7) % 200]},
                ],
            )
            for index in range(200)
        ]
        return call(w, records, operation)

    assert_same(build)


@pytest.mark.parametrize("what", ["hash", "eq", "lt", "bool"])
@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_name_clears_the_history(operation: str, what: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        history: list[Any] = [plain(), plain(1)]
        usual = {"hash": 11, "eq": False, "lt": False, "bool": True}[what]
        name = Hashed(w, "clearing", **{what: lambda: history.clear() or usual})
        items = [{"function_name": name}, {"function_name": Hashed(w, "other")}]
        history.insert(1, plain(2, function_metadata=items))
        history.insert(2, plain(3, function_metadata=list(items)))
        return call(w, history, operation)

    assert_same(build)


class Counting(list):  # type: ignore[type-arg]
    """Names that change while they are walked."""

    walks = 0

    def __iter__(self) -> Iterator[Any]:
        self.walks += 1
        yield from [f"walk {self.walks}", *list.__iter__(self)]


@pytest.mark.parametrize("operation", ITEM_OPERATIONS)
def test_bare_names_that_change_while_they_are_walked(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        record = plain(function_metadata=None, functions=Counting(["a", "b"]))
        return call(w, [record, record], operation)

    assert_same(build)


@pytest.mark.parametrize("operation", FILTERED)
def test_text_of_a_bare_name_changes_the_names(operation: str) -> None:
    def build(w: World) -> Callable[[], Any]:
        names: list[Any] = []
        first = Hashed(
            w,
            "first",
            str=lambda: names.append(f"n{len(names)}") or "first" if len(names) < 5 else "first",
        )
        names.extend([first, {"function_name": "sma"}])
        record = plain(function_metadata=None, functions=names)
        return call(w, [record, plain(1)], operation, function_subfamily="nowhere")

    assert_same(build)


def test_items_of_one_record_are_fetched_anew_for_each_filter() -> None:
    def build(w: World) -> Callable[[], Any]:
        item = hooked(HookedDict, w.note, "item", {"function_name": "sma"})
        record = plain(function_metadata=iter([item, item]))
        target = engine(w, [record, plain(1)])
        return lambda: target._fetch_evaluations(function_family="sma", function_subfamily="sma")

    assert_same(build)


def test_every_operation_that_reads_items_is_covered() -> None:
    assert set(ITEM_OPERATIONS) < set(OPERATIONS)
