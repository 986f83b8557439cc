"""Generated calls of the module's private helpers that need no engine and no sibling module."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace
from typing import Any

from differential import evaluations
from differential.hooks import (
    HookedDict,
    HookedIterable,
    HookedText,
    HookedTruth,
    HookedWords,
    hooked,
)
from differential.usage import item, usage
from differential.values import PlainInt, PlainText, fresh_error, name, number
from differential.world import World
from support.records import STATUS_TABLES, TableConnection

Call = Callable[[], Any]


class Bag:
    """An object with the attributes given, which logs every read of one."""

    def __init__(self, w: World, label: str, fields: dict[str, Any]) -> None:
        object.__setattr__(self, "_state", (w, label, fields))

    def __repr__(self) -> str:
        return f"<Bag {object.__getattribute__(self, '_state')[1]}>"

    def __getattribute__(self, attribute: str) -> Any:
        if attribute.startswith("__"):
            return object.__getattribute__(self, attribute)
        w, label, fields = object.__getattribute__(self, "_state")
        w.note(label, attribute)
        value = fields.get(attribute, _ABSENT)
        if value is _ABSENT:
            raise AttributeError(attribute)
        if isinstance(value, BaseException):
            raise value
        return value


_ABSENT = object()


def tamper_delta(w: World) -> Call:
    """The disagreement between an agent's number and the server's."""
    agent: Any = evaluations.pnl_mi(w)
    server: Any = evaluations.pnl_mi(w)
    if w.chance(20):
        agent = w.pick((10**400, _Floating(w, 0.5), _Floating(w, fresh_error(w)), "1_0", " 7 "))
    return lambda: w.module._pnl_mi_tamper_delta(agent, server)


class _Floating:
    def __init__(self, w: World, value: Any) -> None:
        self.w, self.value = w, value

    def __float__(self) -> float:
        self.w.note("float()")
        if isinstance(self.value, BaseException):
            raise self.value
        return self.value  # type: ignore[no-any-return]


def table_exists(w: World) -> Call:
    """The probe for a table."""
    table: Any = w.pick((*STATUS_TABLES, "other", "'; DROP TABLE x; --"))
    if w.odd(10):
        table = w.pick((None, 5, PlainText("other"), ("a",)))
    dialects = ("postgres", "sqlite", "Postgres", None, PlainText("postgres"))
    attributes = {"dialect": w.pick(dialects)} if w.chance(70) else {}
    connection: Any = TableConnection(
        [name for name in STATUS_TABLES if w.chance(50)], {}, w.trace, **attributes
    )
    if w.chance(15):
        answer = w.pick((None, (), (None,), (0,), [], "x", 5))
        cursor = Bag(w, "cursor", {"fetchone": lambda: answer})
        fields = {"execute": lambda statement, parameters: cursor, **attributes}
        if w.chance(30):
            fields["dialect"] = fresh_error(w)
        connection = Bag(w, "connection", fields)
    elif w.chance(10):
        connection = None
    return lambda: w.module._tracker_table_exists(connection, table)


def status_table(w: World) -> Call:
    """The status table of an evaluation type."""
    choices = (
        "strategy",
        "signal",
        "Signal",
        None,
        "",
        5,
        PlainText("strategy"),
        hooked(HookedText, w.note, "type", "signal"),
    )
    kind: Any = w.pick(choices)
    return lambda: w.module._submission_status_table_and_signal_column(kind)


def usage_value(w: World) -> Call:
    """The value of one item under a key."""
    side = w.pick(("function", "feature"))
    thing: Any = item(w, side)
    if w.chance(30):
        words = HookedWords(w.note, "words", w.pick(("sma", fresh_error(w), 5)))
        thing = w.pick((name(w), "sma", None, 3, words, b"x", ["a"]))
    key = f"{side}_{w.pick(('name', 'family', 'subfamily'))}"
    if w.odd(10):
        key = w.pick(([], None, PlainText(f"{side}_name"), 3))  # type: ignore[assignment]
    return lambda: w.module._usage_value(thing, key, f"{side}_name")


def usage_items(w: World) -> Call:
    """The items of one side of a record."""
    side = w.pick(("function", "feature"))
    fields = usage(w, side)
    for key in fields:
        w.tag(fields[key], key)
    record = evaluations.shaped(w, fields, "record")
    if w.chance(20):
        metadata, names = HookedTruth(w.note, "metadata", w.pick((True, False, fresh_error(w)))), 5
        record = SimpleNamespace(anything=metadata, other=names)
        return lambda: w.module._usage_items(record, "anything", "other", "key")
    helper = getattr(w.module, f"_{side}_items")
    return lambda: helper(record)


def pool_entry(w: World) -> Any:
    """A raw pool entry: a mapping or an object, complete or not."""
    threshold: Any = w.pick((0.5, 1, 0.7, -2, 1.5))
    if w.chance(25):
        threshold = w.pick((None, True, "0.5", number(w), PlainInt(1), [], 10**400))
    pool_name: Any = w.pick(("main", "pool-a", "x", " "))
    if w.chance(20):
        pool_name = w.pick((None, "", 5, PlainText("own"), PlainText(""), b"x", []))
    fields: dict[str, Any] = {}
    if not w.chance(8):
        fields["name"] = pool_name
    if not w.chance(8):
        fields["is_correlation_threshold"] = threshold
    if w.chance(50):
        fields["os_correlation_threshold"] = w.tag(w.pick((0.4, None, [1], "x")), "os")
    kind = w.below(8)
    if kind < 3:
        return fields
    if kind < 5:
        return SimpleNamespace(**fields)
    if kind == 5:
        return hooked(HookedDict, w.note, "pool", fields)
    if kind == 6:
        if w.chance(15):
            key = w.pick(("name", "is_correlation_threshold", "os_correlation_threshold"))
            fields[key] = fresh_error(w)
        return Bag(w, "pool", fields)
    return w.pick((None, "pool", 5, object(), [0.5]))


def normalize_pool(w: World) -> Call:
    """One pool entry, checked and normalised."""
    pool = pool_entry(w)
    index: Any = w.below(12)
    if w.odd(15):
        index = w.pick((True, "two", None, HookedWords(w.note, "index", "written"), 2.0))
    return lambda: w.module._normalize_pool_config(pool, index)


def raw_pools(w: World) -> Any:
    """The value of `signal_pools`."""
    entries = [pool_entry(w) for _ in range(1 + w.below(3))]
    kind = w.below(16)
    if kind < 8:
        return entries
    if kind < 11:
        return {f"key {index}": entry for index, entry in enumerate(entries)}
    choices = (
        tuple(entries),
        iter(entries),
        HookedIterable(w.note, "pools", entries),
        hooked(HookedDict, w.note, "pools", {1: entries[0]}),
        [],
        {},
        "",
        "ab",
        5,
        None,
        (),
    )
    return w.pick(choices)


def era_config(w: World, nesting: int = 2) -> Any:
    """An era configuration in one of its wrappings."""
    kind = w.below(12)
    if kind < 5:
        config: dict[str, Any] = {}
        if not w.chance(15):
            config["signal_pools"] = raw_pools(w)
        if nesting and w.chance(25):
            config["era_config"] = era_config(w, nesting - 1)
        if w.chance(15):
            return hooked(HookedDict, w.note, "era config", config)
        return config
    if kind == 5:
        return SimpleNamespace(signal_pools=raw_pools(w))
    if kind == 6:
        return Bag(w, "era config", {"signal_pools": raw_pools(w)})
    if kind == 7 and nesting:
        inner = era_config(w, nesting - 1)
        return Bag(w, "era config", {"to_dict": lambda: inner, "signal_pools": raw_pools(w)})
    if kind == 8:
        key = w.pick(("to_dict", "signal_pools"))
        return Bag(w, "era config", {key: fresh_error(w)})
    if kind == 9:
        return SimpleNamespace(to_dict=5, signal_pools=raw_pools(w))
    return w.pick((None, 5, "era", []))


def unwrapping(w: World) -> Call:
    """The steps from an era configuration to raw pools."""
    helper = w.pick(("_unwrap_era_config", "_extract_raw_pools", "_iter_pool_configs"))
    value = raw_pools(w) if helper == "_iter_pool_configs" else era_config(w)
    if value is not None and not isinstance(value, (int, str)):
        w.tag(value, "value")
    return lambda: getattr(w.module, helper)(value)


def attr_or_item(w: World) -> Call:
    """One entry of a mapping, or one attribute of anything else."""
    value: Any = pool_entry(w)
    key: Any = w.pick(("name", "is_correlation_threshold", "nowhere"))
    if w.odd(15):
        key = w.pick((5, None, PlainText("name"), []))
    default = [w.tag([], "default")] if w.chance(60) else []
    return lambda: w.module._get_attr_or_item(value, key, *default)


ONBOARDING_KEYS = ("era_config", "current_era_config", "synced_era_config", "era")


def onboarding_config(w: World) -> Any:
    """The onboarding configuration: era configurations under one or several keys."""
    if w.chance(8):
        return w.pick((None, 5, SimpleNamespace(era_config={}), [], ()))
    config: dict[str, Any] = {}
    for key in ONBOARDING_KEYS:
        if w.chance(35):
            config[key] = era_config(w)
    if w.chance(15):
        config["signal_pools"] = raw_pools(w)
    if w.chance(12):
        return hooked(HookedDict, w.note, "config", config)
    return config


def pool_resolution(w: World) -> Call:
    """The pools, from wherever they stand."""
    config = onboarding_config(w)
    handle = Bag(w, "handle", {"_era_config": era_config(w)}) if w.chance(40) else None
    runtime = Bag(w, "runtime", {"era_config": era_config(w)}) if w.chance(40) else None
    if w.chance(30):
        return lambda: _consume(w, w.module._candidate_era_configs(config, handle, runtime))
    return lambda: w.module._resolve_pool_configs(config, handle, runtime)


def _consume(w: World, candidates: Any) -> list[Any]:
    """What a consumer sees who writes down each candidate before asking for the next."""
    taken = []
    for candidate in candidates:
        w.note("candidate", type(candidate).__name__)
        taken.append(candidate)
    return taken
