"""The call behind each table, to be pasted into Python."""

from __future__ import annotations

from typing import Any

from kestrune_search_report.page.markup import Html, el
from kestrune_search_report.page.views import View

_ENUMERATIONS = {"aggregate_by": "AggregateBy", "eval_pool": "EvalPool"}


def call(view: View, *questions: str) -> Html:
    """Return the calls that gave a table, folded."""
    lines = ["from kestrune.search_analytics import *", ""]
    for question in questions:
        given = view.report.answers[question].arguments
        written = [_argument(name, value) for name, value in given.items() if value is not None]
        lines.append(f"{question}({', '.join(written)})")
    return _folded(lines)


def weighing(view: View) -> Html:
    """Return the call that gave the evidence, folded."""
    arguments = view.report.arguments
    taken = {
        name: value for name, value in arguments.items() if value is not None and name != "top_n"
    }
    written = ", ".join(f"{name}={value!r}" for name, value in taken.items())
    return _folded(
        [
            "from kestrune_search_report import Questions, weigh",
            "",
            f"weigh(Questions(snapshot), {written})",
        ]
    )


def _argument(name: str, value: Any) -> str:
    if name in _ENUMERATIONS:
        return f"{name}={_ENUMERATIONS[name]}.{str(value).upper()}"
    if name == "time_windows":
        return f"{name}=[{', '.join(f'TimeWindow.{one.upper()}' for one in value)}]"
    return f"{name}={value!r}"


def _folded(lines: list[str]) -> Html:
    return el(
        "details",
        el("summary", "The call behind this"),
        el("pre", el("code", "\n".join(lines))),
        class_="call",
    )
