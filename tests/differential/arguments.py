"""Arguments of generated calls."""

from __future__ import annotations

import math
from decimal import Decimal
from fractions import Fraction
from types import SimpleNamespace
from typing import Any

from differential.hooks import HookedEquality, HookedOrder, HookedText, HookedTruth, hooked
from differential.usage import CLEAN_FEATURES
from differential.values import (
    CLEAN_FAMILIES,
    HookedOrderedFloat,
    PlainText,
    fresh_error,
    name,
)
from differential.world import NANS, World
from support.parts import FILTERS, USAGE_FILTERS

OTHER_FILTERS = tuple(name for name in FILTERS if name not in (*USAGE_FILTERS, "eval_type"))


def filters(w: World) -> dict[str, Any]:
    """Some of the shared filters, in a random order of keywords."""
    chosen: dict[str, Any] = {}
    if w.chance(15):
        for filter_name in USAGE_FILTERS:
            if w.chance(40):
                names = CLEAN_FAMILIES if filter_name.startswith("function") else CLEAN_FEATURES
                chosen[filter_name] = "" if w.chance(15) else name(w, (*CLEAN_FAMILIES, *names))
    if w.chance(40):
        for filter_name in OTHER_FILTERS:
            if w.chance(30):
                chosen[filter_name] = _other(w, filter_name)
    if w.chance(30):
        chosen["eval_type"] = eval_type(w)
    return chosen


def _other(w: World, filter_name: str) -> Any:
    if filter_name == "era_id":
        if w.odd(20):
            return w.pick((7, NANS[0], "", HookedEquality(w.note, "era filter", "era-1")))
        return w.pick(("era-1", "era-2", None))
    if filter_name == "metaparameters":
        return w.tag({"horizon": 5}, "metaparameters")
    return w.pick(("pool-a", "pool-b", "x' OR 1=1; --", "", None))


def eval_type(w: World) -> Any:
    """An evaluation type, sometimes one that is refused."""
    if w.broken(30):
        wrong = ("Signal", "", 3, b"signal", ["signal"], True, HookedEquality(w.note, "type", "x"))
        return w.pick(wrong)
    if w.odd(20):
        return w.pick(
            (
                PlainText("signal"),
                hooked(HookedText, w.note, "type", "strategy"),
                HookedEquality(w.note, "type", "strategy"),
            )
        )
    return w.pick(("signal", "strategy", None))


def eval_pool(w: World) -> Any:
    """A member of the side's own `EvalPool`, or something else."""
    pools = w.module.EvalPool
    if w.odd(10):
        return w.pick((None, "all", "passed", 1, w.module.TimeWindow.ERA, NANS[0]))
    if w.odd(4):
        return _EqualTo(w, pools.SUBMITTED)
    return w.pick((pools.ALL, pools.PASSED, pools.SUBMITTED))


class _EqualTo:
    """Equals a member, says so in the trace, and hashes as it."""

    def __init__(self, w: World, *members: Any, unhashable: bool = False) -> None:
        self.world, self.members, self.unhashable = w, members, unhashable

    def __eq__(self, other: Any) -> Any:
        self.world.note("member", "eq", getattr(other, "name", type(other).__name__))
        return any(other is member for member in self.members)

    def __repr__(self) -> str:
        return "<_EqualTo>"

    def __hash__(self) -> int:
        self.world.note("member", "hash")
        if self.unhashable:
            raise TypeError("this member has no hash")
        return 5


def aggregate_by(w: World) -> Any:
    """A member of the side's own `AggregateBy`, or something else."""
    members = list(w.module.AggregateBy)
    if w.broken(15):
        wrong = (
            None,
            "function",
            w.module.EvalPool.ALL,
            SimpleNamespace(value=("function",)),
            SimpleNamespace(value=("function", "feature", "more")),
            SimpleNamespace(value=("nowhere", "feature")),
            SimpleNamespace(value=("function", "nowhere")),
            SimpleNamespace(value=([], "feature")),
            SimpleNamespace(value=None),
        )
        return w.pick(wrong)
    if w.odd(10):
        unusual = (
            SimpleNamespace(value=["function", "feature"]),
            SimpleNamespace(value=iter(("function_family", "feature_family"))),
            _EqualTo(w, members[-1]),
            SimpleNamespace(value=(PlainText("function"), "feature")),
        )
        return w.pick(unusual)
    return w.pick(members)


def time_windows(w: World) -> Any:
    """Windows for the statistics: None, a list of members, or something else."""
    members = list(w.module.TimeWindow)
    if w.chance(40):
        return None
    if w.broken(15):
        wrong = (
            [],
            (),
            {},
            "",
            members[0],
            5,
            [members[0], members[0]],
            [[], members[1]],
            iter(members),
            [_EqualTo(w, unhashable=True)],
            [1, True],
        )
        return w.pick(wrong)
    chosen = [member for member in members if w.chance(60)] or [members[w.below(4)]]
    if w.chance(30):
        chosen.reverse()
    if w.odd(20):
        kind = w.below(8)
        if kind == 0:
            return tuple(chosen)
        if kind == 1:
            return dict.fromkeys(chosen)
        if kind == 2:
            return "lifetime"[: 1 + w.below(4)]
        if kind == 3:
            return [*chosen, "lifetime", None]
        if kind == 4:
            return [_EqualTo(w, *members)]
        if kind == 5:
            return [*chosen, _EqualTo(w, members[2], members[1])]
        if kind == 6:
            return {chosen[0]}
        return [w.module.EvalPool.ALL, *chosen]
    return chosen


def pnl_column(w: World) -> Any:
    """A column of profit and loss."""
    if w.broken(8):
        return w.pick((3, b"gross_returns", ["gross_returns"], ()))
    if w.odd(8):
        return w.pick((PlainText("net_returns"), hooked(HookedText, w.note, "col", "net_returns")))
    return w.pick((None, "gross_returns", "net_returns", "", "unknown"))


def count(w: World, usual: tuple[int, ...], wrong: tuple[Any, ...]) -> Any:
    """A number such as `top_n` or `min_sample_size`."""
    if w.chance(4) or w.broken(15):
        return w.pick(wrong)
    if w.odd(12):
        unusual = (
            True,
            1.5,
            2.0,
            math.nan,
            math.inf,
            Fraction(3, 2),
            Decimal(1),
            10**30,
            _Index(w, 2),
            HookedOrder(w.note, "count", 2),
        )
        return w.pick(unusual)
    return w.pick(usual)


class _Index:
    """Orderable, and usable as an index."""

    def __init__(self, w: World, value: int) -> None:
        self.world, self.value = w, value

    def __repr__(self) -> str:
        return "<_Index>"

    def __lt__(self, other: Any) -> Any:
        self.world.note("index", "lt")
        return self.value < other

    def __gt__(self, other: Any) -> Any:
        self.world.note("index", "gt")
        return self.value > other

    def __index__(self) -> int:
        self.world.note("index", "index")
        return self.value


BAD_COUNTS = (0, -1, None, "3", -0.5, [], 1j, -(10**30), -(10**5000))


def min_sample_size(w: World) -> Any:
    """The smallest group shown."""
    return count(w, (0, 1, 2, 0, 3, 100), BAD_COUNTS)


def top_n(w: World) -> Any:
    """How many entries of a ranking."""
    return count(w, (10, 1, 2, 20, 3), BAD_COUNTS)


def sort_ascending(w: World) -> Any:
    """A direction, by its truth."""
    if w.odd(10):
        return w.pick((1, 0, "", "up", None, HookedTruth(w.note, "direction", True)))
    if w.broken(3):
        return HookedTruth(w.note, "direction", fresh_error(w))
    return w.pick((False, True))


MINUTES = (60, 360, 1440, 1, 5, 10080)


def minutes(w: World) -> Any:
    """One window's length."""
    if w.broken(6):
        return w.pick((0, -5, None, "60", -0.0, [], 1j, 10**400, HookedOrder(w.note, "m", 0)))
    if w.odd(15):
        unusual = (
            0.5,
            True,
            90.0,
            math.nan,
            math.inf,
            Fraction(1, 2),
            Fraction(60),
            5e-324,
            10**20,
            HookedOrderedFloat(w),
        )
        return w.pick(unusual)
    return w.pick(MINUTES)


def windows(w: World) -> Any:
    """Windows for the velocity."""
    if w.chance(25):
        return None
    if w.broken(8):
        return w.pick(([], (), {}, "", 5, iter([60]), [0, -1], "ab"))
    chosen = [minutes(w) for _ in range(1 + w.below(4))]
    if w.odd(10):
        return w.pick((tuple(chosen), dict.fromkeys((60, 5)), {60}, range(1, 3), b"\x3c\x05"))
    return chosen


def pools(w: World) -> Any:
    """Signal-pool configurations, valid ones."""
    thresholds = (0.5, 0.7, 0.3, 1, 2.5)
    made = []
    for index in range(1 + w.below(3)):
        threshold: Any = w.pick(thresholds)
        if w.odd(8):
            threshold = w.pick((NANS[0], math.inf, 5e-324, 2**60))
        elif w.odd(5):
            threshold = HookedOrderedFloat(w)
        pool_name: Any = f"pool-{index}" if not w.chance(8) else "pool-0"
        if w.broken(2):
            pool_name = w.pick(([], HookedEquality(w.note, "pool", fresh_error(w)), None))
        pool = SimpleNamespace(name=pool_name, is_correlation_threshold=threshold)
        made.append(pool)
    if w.odd(8):
        return tuple(made)
    return made
