"""What a page can show: the whole search, and parts of it by era and type."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from typing import Any

from kestrune_search_report.evaluation import Evaluation
from kestrune_search_report.report import Report, collect
from kestrune_search_report.selection import selected
from kestrune_search_report.snapshot import Snapshot

Steps = Callable[[str, int, int], None]

# With the demo's search a view takes a fifth of a second to ask for and 40 kB to show.
MOST_VIEWS = 24


@dataclass(frozen=True)
class View:
    """One part of a search: its era and type (None for all), its report, its evaluations.

    `whole` is the view of all evaluations, the only one that claims anything: each filter looks
    again, and what is claimed has to count all looks.
    """

    era: str | None
    kind: str | None
    report: Report
    evaluations: list[Evaluation] = field(repr=False)
    whole: View | None = field(default=None, repr=False)

    @property
    def key(self) -> str:
        """The name of the view in the page."""
        return f"{self.era or ''}|{self.kind or ''}"

    @property
    def label(self) -> str:
        """What the view is called."""
        return ", ".join(name for name in (self.era, self.kind) if name) or "the whole search"


@dataclass(frozen=True)
class Views:
    """The views of a page, the whole search first, and how many more there would have been."""

    all: list[View]
    left_out: int

    def values(self, name: str) -> list[str]:
        """Return the eras, or the kinds, that can be chosen."""
        found = {getattr(view, name) for view in self.all} - {None}
        return sorted(found)


def views_of(
    snapshot: Snapshot,
    arguments: Mapping[str, Any],
    filters: Mapping[str, Any],
    progress: Steps | None = None,
) -> Views:
    """Return the views of a snapshot, the largest parts if there are too many.

    Raises `ArgumentError` as the questions do.
    """
    whole_report = collect(snapshot, progress=progress, **arguments, **filters)
    evaluations = selected(snapshot, filters)
    whole = View(None, None, whole_report, evaluations)
    if not evaluations:
        return Views([whole], 0)
    parts = _parts(evaluations, filters)
    kept = parts[: MOST_VIEWS - 1]
    found = [whole]
    for done, (era, kind) in enumerate(kept):
        if progress is not None:
            progress("parts", done, len(kept))
        own = {**filters, **_given(era_id=era, eval_type=kind)}
        report = collect(snapshot, **arguments, **own)
        found.append(View(era, kind, report, selected(snapshot, own), whole))
    return Views(found, len(parts) - len(kept))


def _parts(
    evaluations: list[Evaluation], filters: Mapping[str, Any]
) -> list[tuple[str | None, str | None]]:
    """Return the parts by era, by type and by both, of which there are two or more."""
    sizes: dict[tuple[str | None, str | None], int] = {}
    for one in evaluations:
        era = one.era_id if isinstance(one.era_id, str) else None
        kind = one.eval_type if isinstance(one.eval_type, str) else None
        for part in {(era, None), (None, kind), (era, kind)}:
            sizes[part] = sizes.get(part, 0) + 1
    eras, kinds = ({part[side] for part in sizes} - {None} for side in (0, 1))
    eras_differ = "era_id" not in filters and len(eras) > 1
    kinds_differ = "eval_type" not in filters and len(kinds) > 1
    found = [
        part
        for part in sizes
        if part != (None, None)
        and (eras_differ or part[0] is None)
        and (kinds_differ or part[1] is None)
        and sizes[part] < len(evaluations)
    ]
    return sorted(found, key=lambda part: (part[0] is not None, -sizes[part], str(part)))


def _given(**filters: str | None) -> dict[str, str]:
    return {name: value for name, value in filters.items() if value is not None}
