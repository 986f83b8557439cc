"""Everything about one search at once: what a page, a terminal or a notebook shows."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any

from kestrune_search_report import arguments as given
from kestrune_search_report.answers import Answer
from kestrune_search_report.asking import PARAMETERS, Questions
from kestrune_search_report.caveats import Caveat, caveats
from kestrune_search_report.evidence.gather import Evidence, weigh
from kestrune_search_report.questions import QUESTIONS
from kestrune_search_report.snapshot import Snapshot

Steps = Callable[[str, int, int], None]


@dataclass(frozen=True)
class Report:
    """All nine answers about a snapshot, what they are worth, and what to mind.

    - `snapshot`: what was asked.
    - `arguments`: the arguments that all of it goes by.
    - `answers`: by question, in the order of `QUESTIONS`.
    - `evidence`: what can and cannot be told from chance.
    - `caveats`: warnings.
    """

    snapshot: Snapshot
    arguments: Mapping[str, Any]
    answers: Mapping[str, Answer]
    evidence: Evidence
    caveats: tuple[Caveat, ...]

    def to_json(self) -> str:
        """Return the report as one line of JSON that `report-1.json` describes."""
        from kestrune_search_report.documents import report_json

        return report_json(self)


def collect(
    snapshot: Snapshot,
    *,
    aggregate_by: Any = "function_family_feature_family",
    min_sample_size: int = 20,
    recent_window_minutes: Any = 1440,
    pnl_column: str | None = None,
    sharpe_years: float | None = None,
    top_n: int = 20,
    progress: Steps | None = None,
    **filters: Any,
) -> Report:
    """Ask all nine questions and weigh the answers.

    The arguments mean what they do in the questions, those that a question does not take are not
    given to it; `sharpe_years` is for the evidence, see `weigh`. `progress` is called with what
    is being done, how many steps are done and how many there are. Raises `ArgumentError` as the
    questions do.
    """
    questions = Questions(snapshot)
    arguments: dict[str, Any] = {
        "aggregate_by": given.aggregation(aggregate_by),
        "min_sample_size": min_sample_size,
        "recent_window_minutes": given.minutes("recent_window_minutes", recent_window_minutes),
        "pnl_column": pnl_column,
        "top_n": top_n,
    }
    kept = questions.checked_filters(filters)
    steps = len(QUESTIONS) + 2

    def step(done: int, what: str) -> None:
        if progress is not None:
            progress(what, done, steps)

    answers: dict[str, Answer] = {}
    for done, question in enumerate(QUESTIONS):
        step(done, question)
        known = PARAMETERS[question]
        own = {name: value for name, value in {**arguments, **kept}.items() if name in known}
        answers[question] = questions.ask(question, **own)
    step(len(QUESTIONS), "evidence")
    weighed = {name: value for name, value in arguments.items() if name != "top_n"}
    evidence = weigh(questions, sharpe_years=sharpe_years, **weighed, **kept)
    step(len(QUESTIONS) + 1, "warnings")
    del weighed["pnl_column"]
    warned = caveats(questions, kept, **weighed)
    step(steps, "done")
    shown = {**arguments, "aggregate_by": arguments["aggregate_by"].name.lower(), **kept}
    return Report(snapshot, {**shown, "sharpe_years": sharpe_years}, answers, evidence, warned)
