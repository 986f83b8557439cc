"""Rows of any source made into evaluations; all that is missing or wrong is said at once."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Mapping, Sequence
from dataclasses import dataclass, field
from typing import Any

from kestrune_search_report.errors import SourceError, not_among
from kestrune_search_report.evaluation import Evaluation, Submission
from kestrune_search_report.fields import ALTERNATIVES, BY_NAME, FIELDS, STATUS_FIELDS, Field
from kestrune_search_report.values import converted, entry, is_blank

Columns = Mapping[str, str | Callable[[Any], Any]]
Constants = Mapping[str, Any]
Progress = Callable[[int, int], None]

_ABSENT: Any = object()
# Rows between two reports of progress.
_STEP = 500


@dataclass
class _Problem:
    """What is wrong with one field: in how many rows, and the first of them."""

    count: int = 0
    first: str = ""

    def add(self, row: int, text: str) -> None:
        self.count += 1
        self.first = self.first or f"row {row}: {text}"


@dataclass
class Reading:
    """How the fields of evaluations are found in the rows of a source.

    `columns` says, by field, which column (attribute, key) of a row holds it, or a function
    that works it out of a row; a field that it does not name is looked for under its own name.
    `constants` holds, by field, what all rows share. `convert` lets texts and dates stand for
    what they say; without it values are taken as they are.
    """

    columns: Columns = field(default_factory=dict[str, Any])
    constants: Constants = field(default_factory=dict[str, Any])
    convert: bool = True

    def __post_init__(self) -> None:
        names = [one.name for one in FIELDS]
        for given in (*self.columns, *self.constants):
            if given not in BY_NAME:
                raise SourceError(not_among("field of an evaluation", given, names))
        made: dict[str, Any] = {}
        for name, value in self.constants.items():
            try:
                made[name] = converted(BY_NAME[name].kind, value)
            except (TypeError, ValueError) as error:
                raise SourceError(f"constant for {name}: {error}.") from error
        self.constants = made

    def read(
        self, rows: Sequence[Any], present: Iterable[str] | None, progress: Progress | None = None
    ) -> tuple[list[Evaluation], frozenset[str]]:
        """Return the evaluations, in the order of the rows, and the fields that the source has.

        `present` names the source's columns; None lets the rows tell. Raises `SourceError` that
        lists every field that is missing or holds something wrong.
        """
        known = self._known(rows, None if present is None else set(present))
        problems: dict[str, _Problem] = {}
        evaluations: list[Evaluation] = []
        for number, row in enumerate(rows, 1):
            evaluations.append(self._evaluation(number, row, known, problems))
            if progress is not None and (number % _STEP == 0 or number == len(rows)):
                progress(number, len(rows))
        _add_mixed_depths(evaluations, problems)
        if problems:
            raise SourceError(_wrong(problems, len(rows)))
        return evaluations, frozenset(known)

    def _known(self, rows: Sequence[Any], present: set[str] | None) -> set[str]:
        """Return the fields that the source has; raise for those that it lacks and has to have."""
        if present is not None:
            for name, column in self.columns.items():
                if isinstance(column, str) and column not in present:
                    raise SourceError(not_among(f"column for {name}", column, sorted(present)))

        def has(one: Field) -> bool:
            if one.name in self.constants or callable(self.columns.get(one.name)):
                return True
            column = self._column(one.name)
            if present is not None:
                return column in present
            return any(entry(row, column, _ABSENT) is not _ABSENT for row in rows)

        known = {one.name for one in FIELDS if has(one)}
        missing = [
            one
            for one in FIELDS
            if one.needed and one.name not in known and ALTERNATIVES.get(one.name) not in known
        ]
        if missing and (rows or present is not None):
            raise SourceError(_missing(missing, present))
        return known

    def _column(self, name: str) -> str:
        column = self.columns.get(name, name)
        return column if isinstance(column, str) else name

    def _value(self, one: Field, row: Any) -> Any:
        column = self.columns.get(one.name, one.name)
        value = entry(row, column, _ABSENT) if isinstance(column, str) else column(row)
        if value is _ABSENT or (self.convert and is_blank(value)):
            value = self.constants.get(one.name)
        # What a function of the caller's says may be converted as well: a truth value, a date.
        return converted(one.kind, value) if self.convert else _checked(one, value)

    def _evaluation(
        self, number: int, row: Any, known: set[str], problems: dict[str, _Problem]
    ) -> Evaluation:
        values: dict[str, Any] = {}
        for one in FIELDS:
            value = None
            if one.name in known:
                try:
                    value = self._value(one, row)
                except (TypeError, ValueError) as error:
                    problems.setdefault(one.name, _Problem()).add(number, str(error))
                else:
                    if value is None and one.needed and one.name not in ALTERNATIVES:
                        problems.setdefault(one.name, _Problem()).add(number, "nothing there")
            values[one.name] = value
        values["submitted"] = bool(values["submitted"])
        if values["eval_id"] is None and "eval_id" not in known:
            values["eval_id"] = str(number)
        status = [values.pop(name) for name in STATUS_FIELDS]
        submission = None if all(part is None for part in status) else Submission(*status)
        return Evaluation(**values, submission=submission)


def _checked(one: Field, value: Any) -> Any:
    """Return a tracker's own value, if the questions can work with it."""
    if one.kind == "flag":
        return None if value is None else bool(value)
    if value is not None and one.kind in {"number", "time"}:
        # Whatever compares and adds like a number: numpy's, Decimal, Fraction.
        float(value)
    if value is not None and one.kind == "integer":
        converted(one.kind, value)
    if one.kind == "names" and value is not None:
        return list(value)
    return value


def _add_mixed_depths(evaluations: Sequence[Evaluation], problems: dict[str, _Problem]) -> None:
    """Note depths that are missing beside others: no question can put them in order."""
    unknown = [row for row, one in enumerate(evaluations, 1) if one.tree_depth is None]
    if "tree_depth" not in problems and len(unknown) not in {0, len(evaluations)}:
        problems["tree_depth"] = _Problem(len(unknown), f"row {unknown[0]}: nothing there")


def _missing(missing: Sequence[Field], present: set[str] | None) -> str:
    lines = [f"  {one.name}: {one.purpose}" for one in missing]
    there = "" if present is None else f"\nThe source has: {', '.join(sorted(present))}."
    return (
        "These fields are missing; name their columns with columns={field: column} or give "
        "what all records share with constants={field: value}:\n" + "\n".join(lines) + there
    )


def _wrong(problems: Mapping[str, _Problem], count: int) -> str:
    lines = [
        f"  {name}: {problem.count} of {count} records, first {problem.first}"
        for name, problem in problems.items()
    ]
    return "These fields hold nothing that can be used:\n" + "\n".join(lines)
