"""One view of a search, section by section."""

from __future__ import annotations

from collections.abc import Callable

from kestrune_search_report.page import calls, charts, tables, wording
from kestrune_search_report.page.figures import Overall
from kestrune_search_report.page.markup import Html, count, el, joined, percent
from kestrune_search_report.page.views import View

Part = Callable[[View], Html]


def _short(view: View) -> Html:
    return joined(tiles(view), wording.in_short(view), mind(view))


def _works(view: View) -> Html:
    formula = view.report.answers["get_suggestions"].figures["scoring_formula"]
    return joined(
        say(wording.works(view)),
        tables.matrix(view),
        note(
            "Dots: the families of functions (dark) and features (amber) in a group. Score: "
            f"{formula}. Range: 95% interval of the share that passed."
        ),
        calls.call(view, "get_search_stats", "get_suggestions"),
    )


def _crowding(view: View) -> Html:
    return joined(
        say(wording.crowding(view)), charts.crowding(view), calls.call(view, "get_search_stats")
    )


def _origins(view: View) -> Html:
    return joined(
        say(wording.origins(view)),
        tables.origins(view),
        note("Bar: 95% interval of the share that passed. Dotted line: all evaluations shown."),
        calls.call(view, "get_search_patterns"),
    )


def _pairs(view: View) -> Html:
    return joined(
        say(wording.pairs(view)),
        el("div", charts.pairs(view), tables.nearest_pairs(view), class_="pair pairs"),
        calls.call(view, "get_correlation_patterns"),
    )


def _pace(view: View) -> Html:
    return joined(
        say(wording.pace(view)),
        charts.pace(view),
        calls.call(view, "get_search_velocity", "get_yield_analysis"),
    )


def _luck(view: View) -> Html:
    return joined(
        say(wording.luck(view)),
        tables.luck(view),
        note(
            "The bar runs from what the luckiest of as many tries without skill shows in half of "
            "all searches to what it stays below in 95 of 100. " + view.report.evidence.assumptions
        ),
        calls.weighing(view),
    )


def _eras(view: View) -> Html:
    return joined(say(wording.eras(view)), tables.eras(view), calls.weighing(view))


def _fates(view: View) -> Html:
    return joined(
        say(wording.fates(view)), tables.fates(view), calls.call(view, "get_yield_analysis")
    )


def _tampering(view: View) -> Html:
    return joined(
        say(wording.tampering(view)),
        charts.tampering(view),
        tables.suspects(view),
        calls.call(view, "get_yield_analysis"),
    )


SECTIONS: tuple[tuple[str, str, Part], ...] = (
    ("short", "In short", _short),
    ("works", "What works, and what to leave", _works),
    ("crowding", "Good, and new as well?", _crowding),
    ("origins", "Where passes come from", _origins),
    ("pairs", "Which functions go together", _pairs),
    ("pace", "How fast, how well", _pace),
    ("luck", "Skill or luck?", _luck),
    ("eras", "Era by era", _eras),
    ("fates", "What became of submissions", _fates),
    ("tampering", "What looks tampered with", _tampering),
)


def say(sentence: Html) -> Html:
    """Return the sentence above a picture."""
    return el("p", sentence, class_="say")


def note(text: str) -> Html:
    """Return the small print under a picture."""
    return el("p", text, class_="note")


def tiles(view: View) -> Html:
    """Return the key figures."""
    overall = Overall.of(view)
    figures = view.report.answers["get_yield_analysis"].figures
    recent = wording.window(figures["recent_window_minutes"])
    useful = percent(overall.useful / overall.judged) if overall.judged else "\N{EN DASH}"
    shown = (
        ("evaluations", count(overall.total), ""),
        ("passed", percent(overall.rate), f"{percent(overall.low)} to {percent(overall.high)}"),
        (f"passed, last {recent}", percent(figures["recent_yield_rate"]), ""),
        ("submitted", count(overall.submitted), ""),
        ("useful of judged", useful, f"{overall.useful} of {overall.judged}"),
        ("look tampered with", count(figures["tamper_candidate_count"]), ""),
    )
    made = [
        el("div", el("dt", title), el("dd", value, el("small", more) if more else None))
        for title, value, more in shown
    ]
    return el("dl", made, class_="tiles", data_passed=overall.passed, data_total=overall.total)


def mind(view: View) -> Html | None:
    """Return what to mind when reading."""
    caveats = view.report.caveats if view.whole is None else ()
    if not caveats:
        return None
    items = [el("li", one.text) for one in caveats]
    return el("div", el("h3", "What to mind"), el("ul", items), class_="mind")


def body(view: View) -> Html:
    """Return all sections of a view."""
    return joined(
        *(
            el("section", el("h2", title), el("div", part(view), class_="side"), id=name)
            for name, title, part in SECTIONS
        )
    )
