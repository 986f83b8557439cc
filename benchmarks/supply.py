"""Records that nobody has read yet: the same evaluations, made anew as often as wanted.

A caller fetches for each call. What it gets has been decoded just before: every string, number,
list and dictionary is new, and the hash of no value is known. Here they are restored from pickles,
as workloads.py makes them.
"""

import itertools
import pickle
from collections.abc import Iterable
from typing import Any

from kestrune.search_tracking import Evaluation
from kinds import NAMES, Kind
from timing import collector


class Supply:
    """So many evaluations, handed out as new records of any kind."""

    def __init__(self, records: Iterable[Evaluation]) -> None:
        self._rows = [
            pickle.dumps(tuple(getattr(record, name) for name in NAMES)) for record in records
        ]

    def __len__(self) -> int:
        return len(self._rows)

    def records(self, kind: Kind) -> list[Any]:
        """Return all of them as new records."""
        restore = pickle.loads
        # Nothing of it is garbage.
        with collector(False):
            return [
                make(*restore(row))
                for make, row in zip(itertools.cycle(kind.makers), self._rows, strict=False)
            ]
