"""HTML and SVG as text in which names of any source are only ever text."""

from __future__ import annotations

import math
from html import escape
from typing import Any


class Html(str):
    """Text that is markup already; any other text is escaped where it joins one."""

    __slots__ = ()


_VOID = {"meta", "link", "br", "input"}


def joined(*children: Any) -> Html:
    """Return children one after the other: markup as it is, lists in turn, all else escaped."""
    found: list[str] = []
    for child in children:
        if child is None:
            continue
        if isinstance(child, Html):
            found.append(child)
        elif isinstance(child, list | tuple):
            found.append(joined(*child))  # pyright: ignore[reportUnknownArgumentType]
        else:
            found.append(escape(str(child)))
    return Html("".join(found))


def el(tag: str, *children: Any, **attributes: Any) -> Html:
    """Return an element.

    An attribute's name loses a trailing underscore, the others become hyphens; None and False
    leave it out, True gives it no value.
    """
    parts = [tag]
    for name, value in attributes.items():
        if value is None or value is False:
            continue
        shown = name.rstrip("_").replace("_", "-")
        parts.append(shown if value is True else f'{shown}="{escape(str(value))}"')
    if tag in _VOID:
        return Html(f"<{' '.join(parts)}>")
    return Html(f"<{' '.join(parts)}>{joined(*children)}</{tag}>")


def strong(text: Any) -> Html:
    """Return what a sentence is about."""
    return el("strong", text)


def percent(share: float | None, digits: int = 1) -> str:
    """Return a share as a text: 10.9%."""
    return "\N{EN DASH}" if share is None or not math.isfinite(share) else f"{share:.{digits}%}"


def number(value: float | None, digits: int = 2) -> str:
    """Return a number as a text, with a true minus sign."""
    if value is None:
        return "\N{EN DASH}"
    if not math.isfinite(value):
        return {"inf": "∞", "-inf": "\N{MINUS SIGN}∞"}.get(str(value), "none")
    return f"{value:,.{digits}f}".replace("-", "\N{MINUS SIGN}")


def count(value: int, what: str = "", many: str = "") -> str:
    """Return a number of things: 6,000 evaluations."""
    named = what if value == 1 else many or f"{what}s"
    return f"{value:,} {named}" if what else f"{value:,}"


def listed(names: list[str], most: int = 3) -> str:
    """Return names as a sentence lists them: a, b and 3 more."""
    shown, hidden = names[:most], len(names) - most
    if hidden > 0:
        return f"{', '.join(shown)} and {hidden} more"
    return " and ".join([", ".join(shown[:-1]), shown[-1]] if len(shown) > 1 else shown)
