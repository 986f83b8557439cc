"""The operations that walk the evaluation history, as the robustness tests call them."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

WALKS: dict[str, dict[str, Any]] = {
    "get_search_stats": {"min_sample_size": 0},
    "get_suggestions": {"min_sample_size": 0},
    "get_search_patterns": {},
    "get_search_velocity": {},
    "get_yield_analysis": {},
    "get_correlation_patterns": {},
}
"""Operations that read every record, with arguments that keep every group."""


def walk(engine: Any, name: str, **more: Any) -> Any:
    """Run one of `WALKS` on `engine`."""
    return getattr(engine, name)(**WALKS[name], **more)


def ending(call: Callable[[], Any]) -> Any:
    """The value of `call`, or the type of what it raises: no crash, and nothing half-raised."""
    try:
        return call()
    except SystemError:
        raise  # the interpreter caught the module at something forbidden
    except Exception as error:
        return type(error)
