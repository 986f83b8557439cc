"""Markdown tables, and the cells that many of them have."""

from collections.abc import Iterable

from contestants import EXTENSION
from timing import Race, Spread


def table(head: Iterable[str], rows: Iterable[Iterable[str]]) -> str:
    """A table whose first column is text and whose others are figures."""
    head = tuple(head)
    lines = [head, ("---",) + ("--:",) * (len(head) - 1), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def mark(missed: bool) -> str:
    """What stands after a figure that is not as demanded."""
    return " **!**" if missed else ""


def ratio(spread: Spread | None, demand: float | None = None, missed: bool = False) -> str:
    """A median with its quartiles, and what is demanded of it."""
    if spread is None:
        return ""
    text = f"{spread.median:.2f} ({spread.low:.2f} to {spread.high:.2f})"
    return text + _demanded(demand) + mark(missed)


def median(spread: Spread | None, demand: float | None = None, missed: bool = False) -> str:
    """A median alone, and what is demanded of it."""
    if spread is None:
        return ""
    return f"{spread.median:.2f}" + _demanded(demand) + mark(missed)


def milliseconds(race: Race, name: str = EXTENSION) -> str:
    """The time of one contestant's call."""
    return f"{race.time(name).median * 1e3:.2f}"


def _demanded(demand: float | None) -> str:
    return f" / {demand:g}" if demand is not None else ""
