"""What hooks do to the module while it runs: every part of it that a caller may replace."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

from differential import patches
from differential.traps import forget
from fuzz.world import FuzzWorld

HELPERS = (
    *("_usage_items", "_usage_value", "_function_items", "_feature_items"),
    *("_tracker_table_exists", "_submission_status_table_and_signal_column"),
    "_pnl_mi_tamper_delta",
)
GLOBALS = (
    *HELPERS,
    *("_FUNC_KEY_MAP", "_FEAT_KEY_MAP", "_DEFAULT_ANALYTICS_HISTORY_LIMIT", "time", "math"),
    *("AggregateBy", "EvalPool", "TimeWindow", *patches.RECORD_CLASSES),
)
METHODS = ("_build_group_key", "_fetch_evaluations", "_validate_eval_type", "get_search_stats")


def replace_part(w: FuzzWorld) -> None:
    """Replace one of the parts as the differential tests do."""
    part = w.pick(patches.MODULE_PATCHES)
    w.does("module", part.__name__)
    part(w)


def log_helper(w: FuzzWorld) -> None:
    """Have a helper say that it is called."""
    name = w.pick(HELPERS)
    original = getattr(w.module, name)

    def called(*arguments: Any, **keywords: Any) -> Any:
        w.note("called", name)
        return original(*arguments, **keywords)

    w.does("module", name)
    w.patch(w.module, name, called)


def delete_global(w: FuzzWorld) -> None:
    """Take a name of the module away."""
    name = w.pick(GLOBALS)
    w.does("module loses", name)
    forget(w, name)


def replace_method(w: FuzzWorld) -> None:
    """Replace a method of the engine's class."""
    name = w.pick(METHODS)
    cls = w.module.SearchAnalytics
    original = getattr(cls, name)

    def method(self: Any, *arguments: Any, **keywords: Any) -> Any:
        w.note("method", name)
        return original(self, *arguments, **keywords)

    w.does("method", name)
    w.patch(cls, name, method)


def _granularity(w: FuzzWorld) -> Any:
    """The granularity that the program asks for, if it is a member; else any."""
    members = w.module.AggregateBy
    keywords = w.things.get("keywords", [{}])[0]
    usual = members.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY
    asked = keywords.get("aggregate_by", usual)
    return asked if type(asked) is type(usual) else w.pick(list(members))


def change_member(w: FuzzWorld) -> None:
    """Change what a member of the enumeration of granularities holds."""
    member = _granularity(w)
    pair = ("function", "feature")
    held = w.pick((pair, ("function_family", "feature"), list(pair)))
    w.does("member", member.name, held)
    w.patch(member, "_value_", held)


def change_key_map(w: FuzzWorld) -> None:
    """Write into a key map."""
    maps = {"_FUNC_KEY_MAP": "function", "_FEAT_KEY_MAP": "feature"}
    name = w.pick(tuple(maps))
    levels: Any = _granularity(w).value
    level = w.pick((maps[name], f"{maps[name]}_family", f"{maps[name]}_subfamily"))
    if type(levels) is tuple and w.chance(80):
        level = levels[0 if name == "_FUNC_KEY_MAP" else 1]
    held: Any = getattr(w.module, name)
    w.does("key map", name, level)
    before = dict(held)
    w.cleanup.callback(_restore, held, before)
    if w.chance(30):
        del held[level]
    else:
        held[level] = f"{maps[name]}_{w.pick(('name', 'family', 'subfamily'))}"


def _restore(held: Any, before: dict[Any, Any]) -> None:
    held.clear()
    held.update(before)


def change_record_class(w: FuzzWorld) -> None:
    """Change one of the classes of results."""
    cls: Any = getattr(w.module, w.pick(patches.RECORD_CLASSES))
    w.does("record class", cls.__name__)
    kind = w.below(3)
    if kind == 0:
        w.patch(cls, "__init__", _logging_init(w, cls.__init__))
    elif kind == 1:
        w.patch(cls, "__setattr__", _logging_setattr(w))
    else:
        name = w.pick(tuple(cls.__dataclass_fields__))
        w.patch(cls, name, property(lambda made: vars(made)[name], _writer(w, name)))


def _logging_init(w: FuzzWorld, original: Any) -> Any:
    def made(self: Any, *arguments: Any, **keywords: Any) -> None:
        w.note("made", type(self).__name__, len(arguments), tuple(keywords))
        original(self, *arguments, **keywords)

    return made


def _logging_setattr(w: FuzzWorld) -> Any:
    def put(self: Any, name: str, value: Any) -> None:
        w.note("put", type(self).__name__, name)
        object.__setattr__(self, name, value)

    return put


def _writer(w: FuzzWorld, name: str) -> Any:
    def write(made: Any, value: Any) -> None:
        w.note("written", name)
        vars(made)[name] = value

    return write


def change_defaults(w: FuzzWorld) -> None:
    """Change the live defaults of a method of the engine."""
    method: Any = getattr(w.module.SearchAnalytics, w.any("operation"))
    defaults = method.__defaults__
    w.does("defaults", method.__name__)
    w.cleanup.callback(setattr, method, "__defaults__", defaults)
    method.__defaults__ = (*defaults[:-1], w.pick((1, 2, None, True)))


def replace_class(w: FuzzWorld) -> None:
    """Replace a record class by a name that makes something else."""
    name = w.pick(patches.RECORD_CLASSES)
    w.does("class", name)
    w.patch(w.module, name, lambda **fields: SimpleNamespace(**fields))


MODULE_ACTIONS = (
    *(replace_part, replace_part, log_helper, delete_global, replace_method, change_member),
    *(change_key_map, change_record_class, change_defaults, replace_class),
    *(change_member, change_key_map),
)
