"""Which operators are asked, with what, and in which order: of arguments and of results."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from differential.hooks import HookedEquality, HookedText, hooked
from differential.traps import OPERATIONS, assert_same, call, engine, plain
from differential.world import World

Call = Callable[[], Any]


class Rate:
    """Passes per hour that log what they are multiplied and compared with."""

    def __init__(self, w: World, value: float) -> None:
        self.w, self.value = w, value

    def __mul__(self, other: Any) -> Rate:
        self.w.note("mul", other)
        return Rate(self.w, self.value * other)

    def __rmul__(self, other: Any) -> Rate:
        self.w.note("rmul", other)
        return Rate(self.w, self.value * other)

    def __gt__(self, other: Any) -> bool:
        self.w.note("gt")
        return self.value > other.value

    def __lt__(self, other: Any) -> bool:
        self.w.note("lt")
        return self.value < other.value


class Hours(float):
    """Hours that make a rate of what is divided by them."""

    w: World

    def __rtruediv__(self, other: Any) -> Rate:
        return Rate(self.w, other / float(self))


class Minutes(int):
    """Minutes that make hours of their own kind."""

    w: World

    def __truediv__(self, other: Any) -> Hours:
        hours = Hours(int(self) / other)
        hours.w = self.w
        return hours


def test_the_trend_multiplies_the_usual_rate() -> None:
    def build(w: World) -> Call:
        windows = [Minutes(60), Minutes(600)]
        for window in windows:
            window.w = w
        return call(w, [plain(i) for i in range(12)], "get_search_velocity", windows=windows)

    assert_same(build)


class Compared:
    """A type of evaluation that logs what it is compared with."""

    def __init__(self, w: World, equals: str) -> None:
        self.w, self.equals = w, equals

    def __eq__(self, other: object) -> bool:
        self.w.note("eq", other)
        return self.equals == other

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return "compared"


@pytest.mark.parametrize("equals", ["signal", "strategy", "neither"])
@pytest.mark.parametrize("pool", [None, "pool-1"])
def test_a_type_of_evaluation_is_compared_as_often_as_by_python(
    pool: str | None, equals: str
) -> None:
    def build(w: World) -> Call:
        made = engine(w, [plain()])
        kind = Compared(w, equals)
        return lambda: [
            made._fetch_evaluations(eval_type=kind, signal_pool_id=pool),
            made._validate_eval_type(kind),
        ]

    assert_same(build)


@pytest.mark.parametrize("operation", OPERATIONS)
def test_filters_are_handed_on_in_their_order(operation: str) -> None:
    def build(w: World) -> Call:
        made = engine(w, [])

        def fetch(**filters: Any) -> list[Any]:
            w.note("fetch", tuple(filters))
            return [plain()]

        made._fetch_evaluations = fetch
        return lambda: getattr(made, operation)()

    assert_same(build)


@pytest.mark.parametrize("name", ["function_family", "feature_family", "era_id"])
def test_own_texts_that_are_wanted_are_compared_by_themselves(name: str) -> None:
    def build(w: World) -> Call:
        wanted = hooked(HookedText, w.note, "wanted", "trend")
        history = [plain(i, era_id="trend" if i % 2 else "other") for i in range(4)]
        return call(w, history, "get_search_stats", **{name: wanted})

    assert_same(build)


class Key:
    """A key of an engine's attributes that cannot be told from a method's name without an error."""

    def __init__(self, w: World) -> None:
        self.w = w

    def __hash__(self) -> int:
        return hash("_build_group_key")

    def __eq__(self, other: object) -> bool:
        self.w.note("key", other)
        raise ValueError("not now")


def test_an_error_of_looking_a_method_up_passes_at_once() -> None:
    def build(w: World) -> Call:
        made = engine(w, [plain(i) for i in range(3)])
        # A dictionary of its own: the keys that engines share may hold the method's name by now.
        made.__dict__ = dict(vars(made))
        vars(made)[Key(w)] = 1
        return lambda: made.get_search_stats(min_sample_size=0)

    assert_same(build)


def test_what_a_record_has_is_compared_with_what_is_wanted() -> None:
    def build(w: World) -> Call:
        history = [plain(i, era_id=HookedEquality(w.note, f"era {i}", i % 2)) for i in range(4)]
        wanted = HookedEquality(w.note, "wanted", 1)
        return call(w, history, "get_search_stats", era_id=wanted)

    assert_same(build)
