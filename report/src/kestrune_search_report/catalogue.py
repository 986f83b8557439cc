"""What the arguments of a question can be over one snapshot."""

from __future__ import annotations

from functools import cached_property
from typing import Any

from kestrune_search_report.errors import FilterError
from kestrune_search_report.evaluation import items_of, name_at
from kestrune_search_report.filters import canonical
from kestrune_search_report.snapshot import Snapshot

EVAL_TYPES = ("signal", "strategy")
FAMILY_FILTERS = ("function_family", "function_subfamily", "feature_family", "feature_subfamily")
_FIGURES = ("sharpe", "returns", "drawdown")


class Catalogue:
    """The values that there are, by the name of the argument that takes one; worked out once."""

    def __init__(self, snapshot: Snapshot) -> None:
        self._snapshot = snapshot
        self._values: dict[str, list[Any]] = {}

    def values(self, argument: str) -> list[Any]:
        """Return the sorted values that a filter can have.

        `FilterError` where no record has the field that it is about.
        """
        if argument not in self._values:
            self._values[argument] = self._found(argument)
        return self._values[argument]

    def _found(self, argument: str) -> list[Any]:
        snapshot = self._snapshot
        if argument in FAMILY_FILTERS:
            side, _, level = argument.partition("_")
            return self._names(side, level)
        fields = [argument]
        if argument == "signal_pool_id":
            # Asked for alone it also stands for the pool that a strategy is built on.
            fields = ["signal_pool_id", "strategy_signal_pool"]
        if not snapshot.fields.intersection(fields):
            raise FilterError(f"no record has {argument}, so that filter cannot be honoured.")
        return sorted({one for field in fields for one in snapshot.distinct(field)}, key=str)

    def _names(self, side: str, level: str) -> list[Any]:
        found = {
            name_at(item, side, level)
            for evaluation in self._snapshot.evaluations
            for item in items_of(evaluation, side)
        }
        return sorted(found, key=str)

    @cached_property
    def metaparameters(self) -> list[str]:
        """The metaparameters as JSON texts, sorted; `FilterError` where no record has any."""
        if "metaparameters" not in self._snapshot.fields:
            raise FilterError("no record has metaparameters, so that filter cannot be honoured.")
        given = (one.metaparameters for one in self._snapshot.evaluations)
        return sorted({canonical(value) for value in given if value is not None})

    @cached_property
    def pnl_columns(self) -> list[str]:
        """The profit columns of which an evaluation has a Sharpe ratio, a return or a fall."""
        keys = {key for one in self._snapshot.evaluations for key in one.per_column_stats or ()}
        return sorted(
            {
                key.removesuffix(f"_{figure}")
                for key in keys
                for figure in _FIGURES
                if key.endswith(f"_{figure}")
            }
        )
