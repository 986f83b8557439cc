"""What an evaluation used: function and feature items, and the collections that hold them."""

from __future__ import annotations

from collections import OrderedDict, deque
from typing import Any

from differential import steady
from differential.hooks import HookedDict, HookedIterable, HookedSequence, hooked
from differential.values import CLEAN_FAMILIES, fresh_error, name
from differential.world import World

SIDES = {
    "function": ("function_metadata", "functions"),
    "feature": ("feature_metadata", "features"),
}

CLEAN_FEATURES = ("close", "volume", "range", "open", "vwap")


def usage(w: World, side: str) -> dict[str, Any]:
    """The two attributes of one side, "function" or "feature", of one record."""
    if w.steady and not steady.is_exception(w):
        return steady.usage(w, side)
    metadata_name, names_name = SIDES[side]
    fields: dict[str, Any] = {}
    shape = w.below(100)
    if w.chance(6):
        fields[w.pick((metadata_name, names_name))] = wide(w, side)
    elif shape < 60:
        fields[metadata_name] = collection(w, [item(w, side) for _ in range(w.below(4))])
        if w.chance(30):
            fields[names_name] = [bare(w, side)]
    elif shape < 90:
        if w.chance(50):
            fields[metadata_name] = w.pick((None, [], (), {}, "", 0))
        fields[names_name] = collection(w, [bare(w, side) for _ in range(w.below(4))])
    elif shape < 97:
        mixed = [item(w, side) if w.chance(50) else bare(w, side) for _ in range(w.below(4))]
        fields[names_name if w.chance(70) else metadata_name] = collection(w, mixed)
    return fields


def wide(w: World, side: str) -> list[Any]:
    """So many items that sets of their names outgrow their first table, once or several times."""
    count = 4 + w.below(40)
    start = w.below(1000)
    step = 1 + w.below(7)
    kinds = w.pick((1000, 7, 50))
    items: list[Any] = []
    for index in range(count):
        number = (start + index * step) % kinds
        entry = {f"{side}_name": f"wide{number}", f"{side}_family": f"family{number % 11}"}
        items.append(entry)
    if w.chance(30):
        return [entry[f"{side}_name"] for entry in items]
    if w.odd(20):
        items.append(item(w, side))
    return items


def bare(w: World, side: str) -> Any:
    """A function or feature given by name alone."""
    return name(w) if side == "function" else name(w, CLEAN_FEATURES)


def item(w: World, side: str) -> Any:
    """A function or feature given as a dictionary (whose keys may be missing, or None)."""
    entries: dict[str, Any] = {}
    if not w.chance(4):
        entries[f"{side}_name"] = bare(w, side)
    for level in ("family", "subfamily"):
        shape = w.below(20)
        if shape < 14:
            entries[f"{side}_{level}"] = name(w, CLEAN_FAMILIES)
        elif shape < 16:
            entries[f"{side}_{level}"] = None
        elif shape < 17:
            entries[f"{side}_{level}"] = ""
    if w.odd(6):
        return hooked(HookedDict, w.note, "item", entries)
    if w.odd(5):
        return OrderedDict(entries)
    if w.broken(1):
        return _FailingDict(entries, failure=fresh_error(w))
    return entries


class _FailingDict(dict):  # type: ignore[type-arg]
    """An item whose `get` fails."""

    def __init__(self, entries: dict[str, Any], failure: BaseException) -> None:
        super().__init__(entries)
        self.failure = failure

    def get(self, key: Any, default: Any = None) -> Any:
        raise self.failure


def collection(w: World, items: list[Any]) -> Any:
    """`items` in a list, or in some other collection that can be iterated."""
    if w.broken(2):
        return w.pick((5, object(), True, 1.5))
    if w.odd(15):
        kind = w.below(9)
        if kind == 0:
            return tuple(items)
        if kind == 1:
            return deque(items)
        if kind == 2:
            return iter(items)
        if kind == 3:
            return (entry for entry in items)
        if kind == 4:
            return HookedIterable(w.note, "iterable", items)
        if kind == 5:
            return HookedSequence(w.note, "sequence", items)
        if kind == 6:
            return dict.fromkeys(("sma", "ema", "sma2")[: len(items)], 1)
        if kind == 7:
            return "abc"[: len(items)]
        return dict.fromkeys(("b", "a"), 0).keys()
    return items
