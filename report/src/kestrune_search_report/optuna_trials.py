"""Trials of an Optuna study as evaluations.

A trial becomes an evaluation like this; a user attribute named like a field of an evaluation
takes precedence over all of it:

- `eval_id` is the trial's number, `timestamp` when it was complete, `era_id` the study's name;
- `passed_thresholds` is what the caller says, see `Snapshot.from_optuna`;
- a parameter that chooses among words or truth values is a function, "kernel=rbf" of the family
  "kernel", each choice a subfamily; a parameter that is a number is a feature, named by the
  quarter of the study's trials in which it lies, "C=0.1..1" of the family and subfamily "C".
  Where a study only has numbers, they are the functions, each quarter a subfamily;
- `sharpe` and `returns` are the trial's value, negated where the study minimises: more is better.
  With `turnover` 1, `drawdown` 0 and `correlation` 0 the composite score of a group is the mean
  of its values. A value is no Sharpe ratio: what luck shows by Sharpe ratios does not apply.

Trials without a value (failed, pruned, running) are left out; a note says how many.
"""

from __future__ import annotations

from bisect import bisect_right
from collections import Counter
from collections.abc import Callable, Sequence
from typing import Any

from kestrune_search_report.errors import SourceError
from kestrune_search_report.fields import FIELDS

_FIELDS = frozenset(field.name for field in FIELDS)


def trial_rows(
    study: Any, passed: Callable[[Any], bool] | float | None, objective: int
) -> tuple[list[dict[str, Any]], list[str]]:
    """Return a row for each complete trial, oldest first, and notes on what was left out."""
    trials = list(study.trials)
    directions = [direction.name for direction in study.directions]
    if not 0 <= objective < len(directions):
        raise SourceError(f"objective: the study has {len(directions)}, counted from 0.")
    sign = -1.0 if directions[objective] == "MINIMIZE" else 1.0
    complete = [trial for trial in trials if trial.state.name == "COMPLETE" and trial.values]
    complete.sort(key=lambda trial: trial.datetime_complete)
    quarters = _quarters(complete)
    numbers_only = not any(_is_choice(v) for trial in complete for v in trial.params.values())
    rows: list[dict[str, Any]] = []
    for trial in complete:
        value = sign * trial.values[objective]
        functions, features = _items(trial.params, quarters, numbers_only)
        row = {
            "eval_id": str(trial.number),
            "era_id": study.study_name,
            "timestamp": trial.datetime_complete.timestamp(),
            "sharpe": value,
            "returns": value,
            "turnover": 1.0,
            "drawdown": 0.0,
            "correlation": 0.0,
            "functions": functions,
            "features": features,
        }
        if callable(passed):
            row["passed_thresholds"] = passed(trial)
        elif passed is not None:
            row["passed_thresholds"] = value >= sign * passed
        attributes = {key: item for key, item in trial.user_attrs.items() if key in _FIELDS}
        rows.append({**row, **attributes})
    return rows, _notes(trials, len(complete))


def _notes(trials: Sequence[Any], complete: int) -> list[str]:
    if complete == len(trials):
        return []
    states = Counter(trial.state.name.lower() for trial in trials if trial.state.name != "COMPLETE")
    kinds = ", ".join(f"{count} {state}" for state, count in sorted(states.items()))
    return [f"{len(trials) - complete} of {len(trials)} trials have no value: {kinds}."]


def _is_choice(value: Any) -> bool:
    return isinstance(value, bool) or not isinstance(value, int | float)


def _quarters(trials: Sequence[Any]) -> dict[str, list[float]]:
    """Return, by parameter, the ends of the four quarters of its values: least to greatest."""
    values: dict[str, list[float]] = {}
    for trial in trials:
        for name, value in trial.params.items():
            if not _is_choice(value):
                values.setdefault(name, []).append(value)
    quarters: dict[str, list[float]] = {}
    for name, found in values.items():
        found.sort()
        quarters[name] = [found[round(part * (len(found) - 1) / 4)] for part in range(5)]
    return quarters


def _items(
    params: dict[str, Any], quarters: dict[str, list[float]], numbers_only: bool
) -> tuple[list[dict[str, str]], list[dict[str, str]]]:
    functions: list[dict[str, str]] = []
    features: list[dict[str, str]] = []
    for name, value in params.items():
        if _is_choice(value):
            chosen = f"{name}={value}"
            functions.append(_item("function", chosen, chosen, name))
        else:
            ends = quarters[name]
            low = min(bisect_right(ends[1:-1], value), 3)
            chosen = f"{name}={ends[low]:.4g}..{ends[low + 1]:.4g}"
            if numbers_only:
                functions.append(_item("function", chosen, chosen, name))
            else:
                features.append(_item("feature", chosen, name, name))
    return functions, features


def _item(side: str, name: str, subfamily: str, family: str) -> dict[str, str]:
    return {f"{side}_name": name, f"{side}_subfamily": subfamily, f"{side}_family": family}
