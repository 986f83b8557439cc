"""The kept list of mutants: small changes to the sources, each of which some test has to notice.

`list/` has a file for each room of the sources, of blocks with an empty line in between. A heading
names a source and the tests that are tried first; a mutant says what stands there (`-`) and what
stands there instead (`+`):

    [tables/slots.h] tables/test_name_table.py

    - (count_ + 1) * 2 > slots_.size()
    + count_ == slots_.size()

What stands there is found exactly once in the source, whatever its line breaks. If it ends with `;`
or `}` it is a statement, or several; else it is an expression. A text of several lines has the sign
on each of them, and an empty `+` takes a statement away. Further lines:

    @ text                             found once, and the original comes next after it
    * analytics/test_suggestions.py    tests that are tried before those of the heading
    ! why                              it takes a build of its own: it is in no function's body
    = why                              nothing can tell: no test is expected to notice
    # comment
"""

from __future__ import annotations

import re
from dataclasses import dataclass
from pathlib import Path

LISTS = Path(__file__).parent / "list"


@dataclass
class Mutant:
    """One change to one source."""

    place: str
    source: str
    tests: list[str]
    after: str
    original: str
    changed: str
    own_build: str
    survives: str
    number: int = 0

    def __str__(self) -> str:
        original, changed = (" ".join(text.split()) for text in (self.original, self.changed))
        return f"{self.source}: {original}  ->  {changed or 'nothing'}"

    def span(self, text: str) -> tuple[int, int]:
        """Return where the original stands in the text of the source."""
        start = self._find(self.after, text, 0, True)[1] if self.after else 0
        return self._find(self.original, text, start, not self.after)

    def _find(self, wanted: str, text: str, start: int, is_only: bool) -> tuple[int, int]:
        pattern = re.compile(r"\s+".join(map(re.escape, wanted.split())))
        found = [match.span() for match in pattern.finditer(text, start)]
        if not found or (is_only and len(found) > 1):
            raise ValueError(f"{self.place}: found {len(found)} times in {self.source}: {wanted}")
        return found[0]


def parse(text: str, name: str) -> list[Mutant]:
    """Return the mutants of one file of the list, in their order."""
    mutants: list[Mutant] = []
    source, hints = "", ""
    for block in re.finditer(r"\S.*\n(?:.+\n)*", text):
        place = f"{name}:{text.count(chr(10), 0, block.start()) + 1}"
        if block[0].startswith("["):
            source, _, hints = block[0].removeprefix("[").partition("]")
            continue
        lines: dict[str, list[str]] = {sign: [] for sign in "@-+*!=#"}
        for line in block[0].splitlines():
            if line[0] not in lines or line[1:2].strip():
                raise ValueError(f"{place}: not understood: {line}")
            lines[line[0]].append(line[2:])
        if lines["-"]:
            tests = dict.fromkeys(" ".join([*lines["*"], hints]).split())
            texts = ["\n".join(lines[sign]) for sign in "@-+!="]
            mutants.append(Mutant(place, source, [f"tests/{test}" for test in tests], *texts))
    return mutants


def all_mutants() -> list[Mutant]:
    """Return the whole list, numbered from 1."""
    mutants = [
        mutant
        for path in sorted(LISTS.glob("*.txt"))
        for mutant in parse(path.read_text("utf-8"), path.name)
    ]
    for number, mutant in enumerate(mutants, start=1):
        mutant.number = number
    return mutants
