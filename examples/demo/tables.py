"""How the demo prints: plain aligned tables that also read well in a file or a pipe."""

from collections.abc import Iterable, Sequence
from typing import Any

from rich import box
from rich.console import Console
from rich.table import Table

WIDTH = 100
MAX_TEXT = 40

# The analytics never see more than this many evaluations.
HISTORY_LIMIT = 10000


class Report:
    """Prints titles, sentences and tables to standard output; colours on a terminal only."""

    def __init__(self) -> None:
        self._console = Console(width=WIDTH, highlight=False, markup=False, emoji=False)

    def section(self, title: str) -> None:
        """Begin a new section."""
        self._console.print(f"\n{title}", style="bold")

    def line(self, text: str) -> None:
        """Print a sentence, broken at the page's width."""
        self._console.print(text)

    def considered(self, total: int, rest: str = "") -> None:
        """Say how many evaluations an answer rests on, and when that may not be all."""
        self.line(f"{total} evaluations considered{rest}.")
        if total >= HISTORY_LIMIT:
            self.line(
                f"Warning: {total} evaluations came back, the most that one question gets: "
                "probably cut."
            )

    def table(self, columns: Sequence[str], rows: Iterable[Sequence[Any]]) -> None:
        """Print rows under their headings: texts to the left, numbers to the right.

        A heading that begins with "<" marks a column of texts, which are cut at MAX_TEXT
        characters.
        """
        table = Table(
            box=box.SIMPLE_HEAD,
            show_edge=False,
            pad_edge=False,
            collapse_padding=True,
            header_style="bold",
        )
        for column in columns:
            table.add_column(
                column.removeprefix("<"),
                justify="left" if column.startswith("<") else "right",
                no_wrap=True,
            )
        for row in rows:
            table.add_row(*[shorten(text(cell)) for cell in row])
        with self._console.capture() as printed:
            self._console.print(table)
        # The last column is padded too; nobody needs spaces at the end of a line.
        for line in printed.get().splitlines():
            print(line.rstrip())


def text(value: Any) -> str:
    """Return a cell's text: two decimals for a float, a dash for None."""
    if value is None:
        return "-"
    return f"{value:.2f}" if isinstance(value, float) else str(value)


def shorten(words: str) -> str:
    """Return a text of at most MAX_TEXT characters, with dots where it was cut."""
    return words if len(words) <= MAX_TEXT else f"{words[: MAX_TEXT - 3]}..."


def percent(share: float) -> str:
    """Return a share as a percentage with one decimal."""
    return f"{share:.1%}"


def names(side: Iterable[str]) -> str:
    """Return one side of a group key as text, in an order that does not depend on the set's."""
    return " + ".join(sorted(map(str, side))) or "-"
