"""What goes wrong: every error of this package, and the nearest of the names that there are."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from difflib import get_close_matches

SHOWN_NAMES = 12


class ReportError(Exception):
    """The base of every error that this package raises by itself."""


class SourceError(ReportError, ValueError):
    """Records cannot be read: the text says all that is missing or wrong, not just the first."""


class ArgumentError(ReportError, ValueError):
    """An argument means nothing here: the text names it, what there is, and the nearest."""


class FilterError(ArgumentError):
    """A filter that the records cannot honour, because none of them has the field."""


def nearest(wrong: object, known: Iterable[object]) -> str | None:
    """Return the name among `known` that `wrong` was most likely meant to be, or None."""
    texts = {str(name).casefold(): str(name) for name in known}
    found = get_close_matches(str(wrong).casefold(), list(texts), n=1, cutoff=0.6)
    return texts[found[0]] if found else None


def listing(names: Sequence[object]) -> str:
    """Return names as a text that stays short: the first dozen, and how many more there are."""
    shown = ", ".join(str(name) for name in names[:SHOWN_NAMES])
    more = len(names) - SHOWN_NAMES
    return f"{shown} and {more} more" if more > 0 else shown


def not_among(what: str, wrong: object, known: Sequence[object]) -> str:
    """Return the text of an error: `wrong` is none of `known`."""
    there = f"there are: {listing(known)}" if known else "there is none"
    guess = nearest(wrong, known)
    meant = f" Did you mean {guess!r}?" if guess is not None else ""
    return f"{what}: nothing is called {wrong!r}; {there}.{meant}"
