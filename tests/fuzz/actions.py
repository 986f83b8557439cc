"""What hooks do to the objects of a program while it runs: records, containers, engine."""

from __future__ import annotations

import gc
import threading
from types import SimpleNamespace
from typing import Any

from differential import steady
from differential.world import NOW
from fuzz.class_actions import CLASS_ACTIONS, attribute_of
from fuzz.loud import LoudData, LoudFloat, LoudText, LoudValue, loud
from fuzz.values import number, usage, value
from fuzz.world import FuzzWorld, Log
from support.outcome import capture
from support.records import ATTRIBUTES


def _record(w: FuzzWorld, what: str) -> tuple[Any, str]:
    made = w.any("record")
    name = attribute_of(w, made)
    w.does(what, w.labels.get(id(made)), name)
    return made, name


# Records.


def set_field(w: FuzzWorld) -> None:
    """Give a record, or all of them, another value."""
    record, name = _record(w, "set")
    held = value(w, name)
    for one in w.things["record"] if w.chance(40) else [record]:
        setattr(one, name, held)


def give_absent(w: FuzzWorld) -> None:
    """Give records, or their class, an attribute that none of them had."""
    name = w.any("absent")
    record = w.any("record")
    w.does("give", name)
    held = value(w, name)
    kind = w.below(4)
    for one in w.things["record"] if kind < 2 else [type(record) if kind == 2 else record]:
        setattr(one, name, held)


def delete_field(w: FuzzWorld) -> None:
    """Take an attribute away."""
    record, name = _record(w, "delete")
    delattr(record, name)


def ask_for_dictionary(w: FuzzWorld) -> None:
    """Make records' attributes a dictionary; perhaps keep it."""
    for record in w.things["record"] if w.chance(50) else [w.any("record")]:
        w.kept.append(vars(record))


def write_dictionary(w: FuzzWorld) -> None:
    """Write into a record's dictionary, under a text of its own or one with hooks."""
    record, name = _record(w, "write")
    word = loud(w, LoudText, "key", name) if w.chance(30) else "".join(list(name))
    vars(record)[word] = value(w, name)


def replace_dictionary(w: FuzzWorld) -> None:
    """Give a record another dictionary."""
    record, name = _record(w, "replace dictionary")
    record.__dict__ = {**vars(record), name: value(w, name)}
    if w.chance(30):
        vars(record).clear()


def crowd(w: FuzzWorld) -> None:
    """Give a record more attributes than its class numbers."""
    record = w.any("record")
    for place in range(40):
        setattr(record, f"more_{place}", place)


def change_class_of_record(w: FuzzWorld) -> None:
    """Make records instances of another class."""
    record, name = _record(w, "new class")
    old = type(record)
    members: dict[str, Any] = {"__slots__": ()} if w.chance(60) else {}
    if w.chance(50):
        members[name] = loud(w, w.pick((LoudValue, LoudData)), "descriptor", value(w, name))
    new = w.thing("class", type("Other", (old,), members))
    for one in w.things["record"] if w.chance(50) else [record]:
        one.__class__ = new


# Containers: histories, metadata, windows, pools.


def change_list(w: FuzzWorld, kind: str = "list") -> None:
    """Add to a list, take from it, or turn it round."""
    changed = w.any(kind)
    what = w.below(7)
    w.does("list", kind, what)
    if what == 0:
        changed.append(w.pick(changed))
    elif what == 1:
        del changed[w.below(len(changed)) :]
    elif what == 2:
        changed.clear()
    elif what == 3:
        changed.reverse()
    elif what == 4:
        changed.insert(0, w.pick(changed))
    elif what == 5:
        changed[w.below(len(changed))] = w.pick(changed)
    else:
        changed[:] = [w.pick(changed) for _ in range(w.below(12))]


def change_history(w: FuzzWorld) -> None:
    """Change the list of records, if it is one."""
    change_list(w, "history")


def change_windows(w: FuzzWorld) -> None:
    """Change the list of windows."""
    change_list(w, "windows")


def change_dict(w: FuzzWorld) -> None:
    """Change an item or a table of columns."""
    changed = w.any("dict")
    keys = list(dict.keys(changed))
    what = w.below(6)
    w.does("dict", what)
    if what == 0:
        changed.clear()
    elif what == 1:
        changed[w.pick(keys)] = w.pick(("rank", "", None, 0.5, "trend"))
    elif what == 2:
        del changed[w.pick(keys)]
    elif what == 3:
        changed.update({f"more {place}": None for place in range(40)})
    elif what == 4:
        word = w.pick(keys)
        held = changed.pop(word)
        changed[loud(w, LoudText, "key", str.__str__(word))] = held
    else:
        for word in keys:
            changed[word] = number(w) if w.chance(30) else w.pick(("ema", 0.25))


def change_item(w: FuzzWorld) -> None:
    """Put other items into a list of them, or none that are dictionaries."""
    changed = w.any("list")
    made = next(iter(usage(w, w.pick(("function", "feature"))).values()), [])
    changed[w.below(len(changed)) :] = made if isinstance(made, list) else ["bare"]


def change_pools(w: FuzzWorld) -> None:
    """Change a pool, or the list of them."""
    pool = w.any("pool")
    kind = w.below(5)
    w.does("pools", kind)
    if kind == 0:
        pool.is_correlation_threshold = loud(w, LoudFloat, "threshold", w.pick((0.1, 0.6)))
    elif kind == 1:
        pool.name = loud(w, LoudText, "pool", w.pick(("pool-0", "other")))
    elif kind == 2:
        del pool.name
    elif kind == 3:
        w.any("engine")._pool_configs = w.pick(([], (pool,), [pool, pool], iter([pool]), None))
    else:
        change_list(w, "pools")


def change_engine(w: FuzzWorld) -> None:
    """Change the engine: what it holds, its class, a method on it."""
    engine = w.any("engine")
    kind = w.below(5)
    w.does("engine", kind)
    if kind == 0:
        engine._tracker = SimpleNamespace(get_evaluation_history=lambda **_: [], _conn=None)
    elif kind == 1:
        engine.__class__ = type("OtherEngine", (type(engine),), {})
    elif kind == 2:
        engine._build_group_key = lambda ev, aggregate_by: w.trace.append(("group key",)) or "key"
    elif kind == 3:
        vars(engine)
        engine.more = 1
    else:
        engine.__class__ = type(
            "Grouping", (type(engine),), {"_build_group_key": lambda *_: ("own", "key")}
        )


# What the interpreter does.


def raise_error(w: FuzzWorld) -> BaseException:
    """Raise something."""
    kinds = (ValueError, KeyError, AttributeError, StopIteration, RecursionError, MemoryError)
    others = (KeyboardInterrupt, GeneratorExit, SystemExit, TypeError, IndexError)
    return w.pick((*kinds, *others))("hostile")


def collect(w: FuzzWorld) -> None:
    """Collect garbage now, or from now on at every allocation."""
    if w.chance(30):
        gc.set_threshold(1, 1, 1)
    else:
        gc.collect()


def look(w: FuzzWorld) -> None:
    """Look at what the collector knows, and keep it."""
    if w.chance(30):
        w.kept.append([held for held in gc.get_objects() if type(held) is dict])
        return
    seen = gc.get_referrers(*w.things["record"][:2], *w.things.get("list", ())[:2])
    w.kept.append([list(held) for held in seen if type(held) in (list, dict)])


def enter_again(w: FuzzWorld) -> None:
    """Ask the engine again from within."""
    operation = w.any("operation")
    if w.chance(30):
        operation = w.pick(tuple(w.things["operations"][0]))
    target, keywords = w.any("engine"), dict(w.things["keywords"][0]) if w.chance(70) else {}
    w.does("asks", operation)

    def ask() -> None:
        w.does(capture(lambda: getattr(target, operation)(**keywords), w.labels).tree)

    w.nested(ask)


def in_another_thread(w: FuzzWorld) -> None:
    """Hand over to another thread, which does something, and wait for it."""
    action = w.pick(PLAIN_ACTIONS)
    w.does("thread", action.__name__)
    failures: list[str] = []

    def run() -> None:
        try:
            action(w)
        except BaseException as failure:
            failures.append(type(failure).__name__)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    w.does("thread", *failures)


def change_clock(w: FuzzWorld) -> None:
    """Let the clock tell something else."""
    reading = w.pick((number(w), NOW - 1e6, int(NOW), "now"))
    w.clock = lambda: reading


class Dying:
    """Does things when it goes, at a moment that is not the same on both sides: nothing of them is
    logged, and nothing that a program holds is changed."""

    def __init__(self, w: FuzzWorld) -> None:
        history = [SimpleNamespace(**dict.fromkeys(ATTRIBUTES)) for _ in range(2)]
        tracker = SimpleNamespace(get_evaluation_history=lambda **_: history)
        pools = [SimpleNamespace(name="p", is_correlation_threshold=0.5)]
        self.engine = w.module.SearchAnalytics(tracker, pools)
        self.itself = self

    def __del__(self) -> None:
        Log.is_muted = True
        try:
            capture(lambda: self.engine.get_correlation_patterns())
        finally:
            Log.is_muted = False


def leave_garbage(w: FuzzWorld) -> None:
    """Leave something in a cycle that calls the module when it is collected."""
    Dying(w)


def put_loud(w: FuzzWorld) -> None:
    """Put a value with hooks where an ordinary one stands."""
    record, name = _record(w, "loud")
    if name in steady.STATISTICS or name in ("turnover", "correlation", "timestamp"):
        setattr(record, name, number(w))


PLAIN_ACTIONS: tuple[Any, ...] = (
    *CLASS_ACTIONS,
    *(give_absent, give_absent, set_field, set_field, delete_field, ask_for_dictionary),
    *(write_dictionary, replace_dictionary, crowd, change_class_of_record, change_list),
    *(change_history, change_history, change_dict, change_item, change_windows, change_pools),
    *(change_engine, collect, change_clock, put_loud),
)

ACTIONS: tuple[Any, ...] = (
    *PLAIN_ACTIONS,
    *(raise_error, look, enter_again, enter_again, in_another_thread, leave_garbage),
)
