"""Answers as data: every result record of the module as a summary and flat tables."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from typing import Any

from kestrune_search_report.questions import POOL_PREFIX, SHAPES
from kestrune_search_report.table import Column, Table, table

Tables = dict[str, Table]


@dataclass(frozen=True)
class Answer:
    """The answer to one question.

    - `question`: the name of the module's function.
    - `arguments`: what was asked, by parameter; enumerations by their names in lower case.
    - `summary`: what the answer says as a whole, a table of one row.
    - `tables`: its lists by name, the most telling one first (`questions.SHAPES` lists them).
    - `result`: the module's own result.
    """

    question: str
    arguments: Mapping[str, Any]
    summary: Table
    tables: Mapping[str, Table]
    result: Any = field(repr=False, compare=False)

    @property
    def table(self) -> Table:
        """The most telling table."""
        return next(iter(self.tables.values()))

    @property
    def figures(self) -> dict[str, Any]:
        """The summary as a dictionary."""
        return next(self.summary.dicts()) if self.summary.rows else {}

    def to_json(self) -> str:
        """Return the answer as one line of JSON that `answer-1.json` describes."""
        from kestrune_search_report.documents import answer_json

        return answer_json(self)


def answer_of(question: str, result: Any, arguments: Mapping[str, Any] | None = None) -> Answer:
    """Return a result of the module as an answer; `result` is what `question` returned.

    Order is the module's where that is the same in every run; families of equal yield, whose
    order depends on how texts are hashed, stand in alphabetical order.
    """
    shape = SHAPES[question]
    pools = _pool_columns(question, result)
    made: Tables = {}
    rows = _ROWS[question](result)
    for name, columns in shape.tables.items():
        made[name] = table(name, (*columns, *pools), rows[name])
    figures = [[name_of(getattr(result, column.name)) for column in shape.summary]]
    summary = table("summary", shape.summary, figures if shape.summary else [])
    return Answer(question, dict(arguments or {}), summary, made, result)


def name_of(value: Any) -> Any:
    """Return the name of a member of an enumeration, in lower case; anything else as it is."""
    return value.name.lower() if hasattr(value, "name") and hasattr(value, "value") else value


def _stats_rows(result: Any) -> list[Any]:
    return [row for name in ("rows", "focus", "avoid") for row in getattr(result, name, ())]


def _pool_columns(question: str, result: Any) -> tuple[Column, ...]:
    if not SHAPES[question].pool_columns:
        return ()
    rows = _stats_rows(result)
    pools: list[str] = list(rows[0].windows[0].submittable_yield) if rows else []
    return tuple(
        Column(f"{POOL_PREFIX}{pool}", "number", f"share submittable to {pool}, 0 to 1")
        for pool in pools
    )


def _group_cells(rows: list[Any]) -> Iterator[tuple[Any, ...]]:
    for rank, row in enumerate(rows, 1):
        functions, features = row.group_key
        for window in row.windows:
            yield (
                rank,
                functions,
                features,
                row.evaluation_count,
                name_of(window.window),
                window.evaluation_count,
                window.sharpe,
                window.returns,
                window.turnover,
                window.drawdown,
                window.correlation,
                window.yield_rate,
                window.composite_score,
                *window.submittable_yield.values(),
            )


def _search_stats(result: Any) -> dict[str, Any]:
    return {"groups": _group_cells(result.rows)}


def _suggestions(result: Any) -> dict[str, Any]:
    return {
        "groups": [
            (advice, *cells)
            for advice in ("focus", "avoid")
            for cells in _group_cells(getattr(result, advice))
        ]
    }


def _aggregations(result: Any) -> dict[str, Any]:
    rows = [(name_of(one), *(one.value or (None, None))) for one in result]
    return {"aggregations": rows}


def _fields(records: Any, columns: tuple[Column, ...]) -> list[list[Any]]:
    return [[getattr(record, column.name) for column in columns] for record in records]


def _search_patterns(result: Any) -> dict[str, Any]:
    tables = SHAPES["get_search_patterns"].tables
    families = sorted(
        result.family_yield_rates, key=lambda one: (-one.yield_rate, str(one.function_family))
    )
    return {
        "depths": _fields(result.depth_distribution, tables["depths"]),
        "families": _fields(families, tables["families"]),
    }


def _velocity(result: Any) -> dict[str, Any]:
    return {"windows": _fields(result.windows, SHAPES["get_search_velocity"].tables["windows"])}


def _yield_analysis(result: Any) -> dict[str, Any]:
    tables = SHAPES["get_yield_analysis"].tables
    found: dict[str, Any] = {}
    for name, records in (
        ("tamper_candidates", result.tamper_candidates),
        ("rationale", result.usefulness_rationale),
    ):
        found[name] = [[record[column.name] for column in tables[name]] for record in records]
    return found


def _correlation_patterns(result: Any) -> dict[str, Any]:
    return {"pairs": _fields(result.pairs, SHAPES["get_correlation_patterns"].tables["pairs"])}


_ROWS: dict[str, Callable[[Any], dict[str, Any]]] = {
    "get_search_stats": _search_stats,
    "get_suggestions": _suggestions,
    "get_available_eras": lambda result: {"eras": [[era] for era in result]},
    "get_available_named_universes": lambda result: {"named_universes": [[one] for one in result]},
    "get_available_aggregations": _aggregations,
    "get_search_patterns": _search_patterns,
    "get_search_velocity": _velocity,
    "get_yield_analysis": _yield_analysis,
    "get_correlation_patterns": _correlation_patterns,
}
