"""What the records of fuzzed programs hold: ordinary values, odd ones, and ones with hooks."""

from __future__ import annotations

from typing import Any

from differential import evaluations, steady
from differential import usage as generated
from differential.hooks import (
    HookedEquality,
    HookedIterable,
    HookedLength,
    HookedOrder,
    HookedSequence,
    HookedTruth,
    HookedWords,
)
from differential.values import CLEAN_FAMILIES, CLEAN_NAMES, fresh_error
from differential.world import NOW
from fuzz.loud import (
    AnyNumber,
    LoudDict,
    LoudFloat,
    LoudInt,
    LoudIterator,
    LoudList,
    LoudText,
    LoudTuple,
    loud,
)
from fuzz.world import FuzzWorld

NUMBERS = (0.5, 0.0, 1.0, -0.75, 2.5, 0.1)


def hook(w: FuzzWorld, kind: Any, what: str, value: Any) -> Any:
    """One of the hooks of the differential tests."""
    label = w.label(what)
    return w.tag(kind(w.note, label, value), what)


def number(w: FuzzWorld) -> Any:
    """A statistic, a measure or a reading of the clock, with hooks."""
    value = w.pick(NUMBERS)
    kind = w.below(20)
    if kind < 8:
        return loud(w, LoudFloat, "float", value)
    if kind < 12:
        return loud(w, LoudInt, "int", w.below(4))
    return hook(w, AnyNumber if kind < 19 else HookedOrder, "number", value)


def flag(w: FuzzWorld) -> Any:
    """A truth with hooks."""
    kind = w.below(8)
    if kind < 4:
        return hook(w, HookedTruth, "truth", w.chance(60))
    if kind < 6:
        return hook(w, HookedLength, "length", w.below(2))
    if kind == 6:
        return hook(w, AnyNumber, "number", w.below(2))
    return hook(w, HookedTruth, "truth", w.pick((fresh_error(w), MemoryError("hostile"), 1)))


def turns(w: FuzzWorld) -> tuple[bool, ...]:
    """What a value says of its equality, in turn."""
    return tuple(w.chance(40) for _ in range(w.below(5)))


def text(w: FuzzWorld, texts: tuple[str, ...]) -> Any:
    """A name with hooks."""
    kind = w.below(8)
    if kind < 5:
        return loud(w, LoudText, "text", w.pick(texts), turns=turns(w))
    if kind == 5:
        return hook(w, HookedWords, "words", w.pick(texts))
    if kind == 6:
        return hook(w, HookedEquality, "equality", w.pick(texts))
    return loud(w, LoudText, "text", "")


def turning_number(w: FuzzWorld) -> Any:
    """A name that is a number: often one of the program's own, which is equal by turns.

    A dictionary goes by its hash, so that where it is stored and where it is found depend on it.
    """
    value = w.pick(w.numbers)
    return value if w.chance(40) else loud(w, LoudInt, "name", value, turns=turns(w))


def name(w: FuzzWorld, texts: tuple[str, ...]) -> Any:
    """The name of a function or of a family."""
    if w.numbers:
        return turning_number(w)
    return text(w, texts) if w.chance(w.loudness) else w.pick(texts)


def key(w: FuzzWorld, word: str) -> Any:
    """A key of a dictionary: itself, a text of its own, or one with hooks."""
    if w.chance(w.loudness):
        return loud(w, LoudText, "key", word, turns=turns(w))
    return "".join(list(word)) if w.chance(30) else word


def table(w: FuzzWorld, entries: list[tuple[str, Any]], what: str) -> Any:
    """A dictionary of those entries: an exact one, mostly with ordinary keys, or a loud one."""
    made: Any = {key(w, word): value for word, value in entries}
    if w.chance(w.loudness):
        made = loud(w, LoudDict, what, made)
    return w.thing("dict", made)


def columns(w: FuzzWorld) -> Any:
    """Statistics by column."""
    if w.chance(40):
        return None
    words = ("gross_returns_sharpe", "gross_returns_returns", "gross_returns_drawdown", "net")
    return table(w, [(word, statistic(w)) for word in words if w.chance(85)], "columns")


def statistic(w: FuzzWorld) -> Any:
    """A number as records hold it."""
    return number(w) if w.chance(w.loudness) else w.pick(NUMBERS)


def usage(w: FuzzWorld, side: str) -> dict[str, Any]:
    """The items of one side of a record."""
    if w.chance(w.oddness):
        return generated.usage(w, side)
    items: list[Any] = []
    for _ in range(w.pick((1, 2, 3, 0))):
        words = [(f"{side}_name", name(w, CLEAN_NAMES)), (f"{side}_family", None)]
        words[1] = (words[1][0], name(w, CLEAN_FAMILIES[:3]))
        if w.chance(30):
            words.append((f"{side}_subfamily", name(w, CLEAN_FAMILIES[:2])))
        items.append(table(w, words[w.below(2) :] if w.chance(15) else words, "item"))
    if w.chance(12):
        bare = [name(w, CLEAN_NAMES) for _ in items]
        return {f"{side}_metadata": w.pick((None, [])), f"{side}s": container(w, bare)}
    return {f"{side}_metadata": container(w, items)}


def container(w: FuzzWorld, items: list[Any]) -> Any:
    """Mostly the list itself; else something else that can be walked over."""
    w.thing("list", items)
    if not w.chance(w.loudness):
        return items
    kind = w.below(6)
    if kind == 0:
        return w.thing("list", loud(w, LoudList, "list", items))
    if kind == 1:
        return loud(w, LoudTuple, "tuple", items)
    if kind == 2:
        return loud(w, LoudIterator, "iterator", items)
    if kind == 3:
        return hook(w, HookedSequence, "sequence", items)
    if kind == 4:
        return hook(w, HookedIterable, "iterable", items)
    return iter(items)


def time_stamp(w: FuzzWorld) -> Any:
    """A moment with hooks."""
    moment = NOW - w.pick((60.0, 4000.0, 90000.0, 700000.0))
    kind = w.below(4)
    if kind < 2:
        return loud(w, LoudFloat, "moment", moment)
    return hook(w, AnyNumber if kind == 2 else HookedOrder, "moment", moment)


def depth(w: FuzzWorld) -> Any:
    """A tree depth with hooks."""
    kind = w.below(6)
    if kind < 4:
        return loud(w, LoudInt, "depth", w.below(3), turns=turns(w))
    if kind == 4:
        return loud(w, LoudFloat, "depth", w.pick((1.0, 2.0, 2.5)), turns=turns(w))
    return hook(w, HookedEquality, "depth", 1)


def loud_value(w: FuzzWorld, attribute: str) -> Any:
    """A value with hooks for one attribute."""
    if attribute in ("passed_thresholds", "submitted"):
        return flag(w)
    if attribute == "timestamp":
        return time_stamp(w)
    if attribute == "tree_depth":
        return turning_number(w) if w.numbers and w.chance(50) else depth(w)
    if attribute == "era_id":
        return text(w, ("era-1", "era-2"))
    if attribute == "eval_type":
        return loud(w, LoudText, "type", w.pick(("signal", "strategy")), turns=turns(w))
    if attribute in ("is_pnl_mi", "agent_is_pnl_mi"):
        return number(w) if w.chance(70) else loud(w, LoudText, "measure", w.pick(("0.5", "x")))
    if attribute in ("failure_reason", "failure_detail", "rejection_reason"):
        return text(w, steady.REASONS)
    return number(w)


def hooked_value(w: FuzzWorld, attribute: str) -> Any:
    """A value for one attribute that has hooks for certain, itself or in what it holds."""
    if attribute == "per_column_stats":
        return {"gross_returns_sharpe": number(w), "gross_returns_returns": 0.5}
    if attribute.endswith("_metadata"):
        side = attribute.split("_")[0]
        word = w.pick((f"{side}_name", f"{side}_family"))
        return [{f"{side}_name": "rank", word: text(w, CLEAN_NAMES)}, {f"{side}_name": "ema"}]
    return loud_value(w, attribute)


def value(w: FuzzWorld, attribute: str) -> Any:
    """A value for one attribute."""
    if attribute == "per_column_stats":
        return columns(w)
    if attribute.endswith("_metadata"):
        return next(iter(usage(w, attribute.split("_")[0]).values()), [])
    if w.chance(w.loudness):
        return loud_value(w, attribute)
    if w.chance(w.oddness):
        return evaluations.value_of(w, attribute)
    return steady.value(w, attribute)
