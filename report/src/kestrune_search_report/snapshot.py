"""A snapshot: every evaluation of a search, read once, that answers as its tracker would."""

from __future__ import annotations

import math
import time
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass, replace
from functools import cached_property
from typing import Any

from kestrune.search_analytics import SearchAnalytics

from kestrune_search_report.errors import SourceError
from kestrune_search_report.evaluation import Evaluation
from kestrune_search_report.fields import BY_NAME
from kestrune_search_report.filters import kept
from kestrune_search_report.pools import Pool, PoolsLike, pools_from
from kestrune_search_report.reading import Columns, Constants, Progress, Reading
from kestrune_search_report.statuses import StatusConnection, read_statuses

# More than any tracker holds; a number, because that is what every tracker takes for a limit.
READ_LIMIT = 10_000_000


@dataclass(frozen=True, eq=False, repr=False)
class Snapshot:
    """The evaluations of a search as they were when it was made.

    It is a tracker: `SearchAnalytics(snapshot, snapshot.pools)` answers all nine questions from
    it, with every filter, and `engine` is just that. Nothing that happens to the source later
    shows in it.

    - `evaluations`: newest first; of equal time stamps the one recorded last comes first.
    - `fields`: the fields that the source has. A filter on any other is a `FilterError`.
    - `pools`: the signal pools; one called "any" without a limit where none were given.
    - `name`: what the source is called.
    - `notes`: what was left out or changed on the way, a sentence each.
    """

    evaluations: tuple[Evaluation, ...]
    fields: frozenset[str]
    pools: tuple[Pool, ...]
    name: str = "records"
    notes: tuple[str, ...] = ()

    def __repr__(self) -> str:
        return f"<Snapshot {self.name}: {len(self.evaluations)} evaluations>"

    @classmethod
    def of(
        cls,
        tracker: Any,
        *,
        pools: PoolsLike = None,
        constants: Constants | None = None,
        name: str = "tracker",
        limit: int = READ_LIMIT,
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read everything that a tracker has: its history, and the submission statuses.

        `tracker.get_evaluation_history(...)` is called once, with the nine keywords that the
        module itself uses and no filter; statuses come from its `_conn`, if it has one. Values
        are kept as the tracker gives them. `constants` holds, by field, what its records lack.
        Raises `SourceError` that names every field that is missing or holds None where a number
        has to be; errors of the tracker and its database reach the caller unchanged.
        """
        if isinstance(tracker, Snapshot):
            return replace(tracker, pools=pools_from(pools)) if pools is not None else tracker
        records = list(
            tracker.get_evaluation_history(
                era_id=None,
                eval_type=None,
                passed_only=False,
                limit=limit,
                named_universe=None,
                metaparameters=None,
                strategy_pool_id=None,
                signal_pool_id=None,
                strategy_signal_pool=None,
            )
        )
        reading = Reading(constants=constants or {}, convert=False)
        evaluations, known = reading.read(records, None, progress)
        if not records:
            # Whatever is asked for, there is none of it.
            known = frozenset(BY_NAME)
        statuses = read_statuses(getattr(tracker, "_conn", None))
        for evaluation in evaluations:
            key = (evaluation.eval_type, evaluation.eval_id)
            evaluation.submission = statuses.get(key, evaluation.submission)
        notes: list[str] = []
        if len(records) in {limit, 10_000}:
            notes.append(
                f"The tracker returned exactly {len(records)} evaluations: older ones were "
                "probably cut off."
            )
        # The tracker's own order is kept: newest first already.
        return cls(tuple(evaluations), known, pools_from(pools), name, tuple(notes))

    @classmethod
    def from_records(
        cls,
        records: Iterable[Any],
        *,
        columns: Columns | None = None,
        constants: Constants | None = None,
        pools: PoolsLike = None,
        name: str = "records",
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read objects or dictionaries, one for each evaluation, in the order of their recording.

        Fields are looked for under their own names (`FIELDS` lists them). `columns` names
        others, {"sharpe": "sr"}, or gives a function of a record, {"passed_thresholds": lambda
        record: record["sr"] > 1}. `constants` holds by field what all records share or what
        stands for an empty cell. Raises `SourceError` that says all that is missing or wrong.
        """
        return cls._read(list(records), None, columns, constants, pools, name, progress)

    @classmethod
    def from_frame(
        cls,
        frame: Any,
        *,
        columns: Columns | None = None,
        constants: Constants | None = None,
        pools: PoolsLike = None,
        name: str = "frame",
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read a pandas, polars or Arrow table: one row for each evaluation.

        The columns P_sharpe, P_returns and P_drawdown become the figures of the profit column
        P. All else as `from_records` says; a column function is given the row as a dictionary.
        """
        from kestrune_search_report.tabular import frame_rows

        rows, present = frame_rows(frame)
        return cls._read(rows, present, columns, constants, pools, name, progress)

    @classmethod
    def from_csv(
        cls,
        path: Any,
        *,
        columns: Columns | None = None,
        constants: Constants | None = None,
        pools: PoolsLike = None,
        name: str | None = None,
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read a CSV file in UTF-8 whose first line names the columns.

        Names of functions and features stand between semicolons or as JSON lists, dates in ISO
        form, mappings as JSON objects. All else as `from_frame` says; `OSError` for a file that
        cannot be read.
        """
        from kestrune_search_report.tabular import csv_rows

        rows, present = csv_rows(path)
        return cls._read(rows, present, columns, constants, pools, name or str(path), progress)

    @classmethod
    def from_parquet(
        cls,
        path: Any,
        *,
        columns: Columns | None = None,
        constants: Constants | None = None,
        pools: PoolsLike = None,
        name: str | None = None,
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read a Parquet file through pyarrow or polars, whichever is installed.

        All else as `from_frame` says; `OSError` for a file that cannot be read, `SourceError`
        where neither library is there.
        """
        from kestrune_search_report.tabular import parquet_rows

        rows, present = parquet_rows(path)
        return cls._read(rows, present, columns, constants, pools, name or str(path), progress)

    @classmethod
    def from_optuna(
        cls,
        study: Any,
        *,
        passed: Callable[[Any], bool] | float | None = None,
        objective: int = 0,
        columns: Columns | None = None,
        constants: Constants | None = None,
        pools: PoolsLike = None,
        name: str | None = None,
        progress: Progress | None = None,
    ) -> Snapshot:
        """Read the complete trials of an Optuna study; how they map stands in `optuna_trials`.

        `passed` says which trials pass: a function of a trial, or the value from which on a
        trial is good enough, in the direction of the study. `objective` chooses one of several.
        Without `passed`, trials need a user attribute `passed_thresholds`.
        """
        from kestrune_search_report.optuna_trials import trial_rows

        rows, notes = trial_rows(study, passed, objective)
        found = name or str(getattr(study, "study_name", "study"))
        made = cls._read(rows, None, columns, constants, pools, found, progress)
        return replace(made, notes=(*made.notes, *notes))

    @classmethod
    def _read(
        cls,
        rows: list[Any],
        present: set[str] | None,
        columns: Columns | None,
        constants: Constants | None,
        pools: PoolsLike,
        name: str,
        progress: Progress | None,
    ) -> Snapshot:
        reading = Reading(columns or {}, constants or {})
        evaluations, known = reading.read(rows, present, progress)
        if not evaluations:
            raise SourceError(f"{name}: there is no evaluation in it.")
        # Turned round after a stable sort: of equal time stamps the one recorded last comes first.
        oldest_first = sorted(evaluations, key=lambda one: one.timestamp)
        return cls(tuple(oldest_first[::-1]), known, pools_from(pools), name)

    @cached_property
    def engine(self) -> SearchAnalytics:
        """The module's own engine over this snapshot and its pools."""
        return SearchAnalytics(self, self.pools)

    @cached_property
    def _conn(self) -> StatusConnection:
        # Where the module looks for the tracker's database.
        return StatusConnection(self.evaluations)

    def ending_now(self) -> Snapshot:
        """Return the same search moved in time so that its newest evaluation is of just now.

        All time windows end at the moment of the question, so that an old search has empty ones.
        """
        newest = max((one.timestamp for one in self.evaluations), default=math.nan)
        shift = time.time() - newest
        moved = tuple(replace(one, timestamp=one.timestamp + shift) for one in self.evaluations)
        note = f"All time stamps were moved by {shift:.0f} seconds: the newest is of just now."
        return replace(self, evaluations=moved, notes=(*self.notes, note))

    def get_evaluation_history(
        self,
        era_id: Any = None,
        eval_type: Any = None,
        passed_only: bool = False,
        limit: int | None = None,
        named_universe: Any = None,
        metaparameters: Any = None,
        strategy_pool_id: Any = None,
        signal_pool_id: Any = None,
        strategy_signal_pool: Any = None,
    ) -> list[Evaluation]:
        """Return the evaluations that pass every filter given, newest first, at most `limit`.

        None is no filter. Raises `FilterError` for a filter on a field that the source lacks.
        """
        filters = {
            "era_id": era_id,
            "eval_type": eval_type,
            "named_universe": named_universe,
            "metaparameters": metaparameters,
            "strategy_pool_id": strategy_pool_id,
            "signal_pool_id": signal_pool_id,
            "strategy_signal_pool": strategy_signal_pool,
        }
        return kept(self.evaluations, self.fields, passed_only, filters)[:limit]

    def get_available_eras(self) -> list[Any]:
        """Return the distinct eras of the evaluations, sorted; None is none."""
        return self.distinct("era_id")

    def get_available_named_universes(self) -> list[Any]:
        """Return the distinct named universes of the evaluations, sorted; None is none."""
        return self.distinct("named_universe")

    def distinct(self, field: str) -> list[Any]:
        """Return the distinct values of a field that holds texts, sorted; None is none."""
        values: Mapping[Any, None] = dict.fromkeys(getattr(one, field) for one in self.evaluations)
        return sorted((value for value in values if value is not None), key=str)
