"""The page: one file that asks for nothing, with all its views inside."""

from __future__ import annotations

import base64
import hashlib
from collections.abc import Mapping
from datetime import datetime, timezone
from importlib.resources import files
from typing import Any

from kestrune_search_report.page.markup import Html, count, el, joined
from kestrune_search_report.page.sections import SECTIONS, body
from kestrune_search_report.page.views import Steps, View, Views, views_of
from kestrune_search_report.snapshot import Snapshot

MOST_BYTES = 2_000_000


def page(
    snapshot: Snapshot,
    *,
    filters: Mapping[str, Any] | None = None,
    progress: Steps | None = None,
    **arguments: Any,
) -> str:
    """Return the page of a search as HTML, of at most 2 MB.

    `filters` are those of the questions, `arguments` those of `collect`. Raises `ArgumentError`
    as the questions do.
    """
    return document(views_of(snapshot, arguments, filters or {}, progress))


def document(views: Views, made: datetime | None = None) -> str:
    """Return the page with these views, without those that it has no room for."""
    whole = views.all[0]
    shown = [whole]
    parts: list[Html] = []
    size = len(body(whole).encode()) + 40_000
    for view in views.all[1:]:
        part = el("template", body(view), id=f"view:{view.key}", data_label=view.label)
        size += len(part.encode())
        if size > MOST_BYTES:
            break
        shown.append(view)
        parts.append(part)
    left_out = views.left_out + len(views.all) - len(shown)
    kept = Views(shown, left_out)
    style = Html(_asset("page.css"))
    script = Html(_asset("page.js"))
    head = el(
        "head",
        el("meta", charset="utf-8"),
        el("meta", http_equiv="Content-Security-Policy", content=_policy(script)),
        el("meta", name="viewport", content="width=device-width, initial-scale=1"),
        el("meta", name="color-scheme", content="light dark"),
        el("meta", name="generator", content="kestrune-search-report"),
        el("link", rel="icon", href="data:,"),
        el("title", f"What the search has found: {whole.report.snapshot.name}"),
        el("style", style),
    )
    at = made or datetime.now(timezone.utc)
    content = el(
        "body",
        el("a", "Skip to the report", href="#main", class_="skip"),
        _header(whole, at),
        _bar(kept),
        el("main", body(whole), id="main", tabindex="-1", data_label=whole.label),
        _footer(left_out),
        parts,
        el("script", script),
    )
    return f"<!DOCTYPE html>\n{el('html', head, content, lang='en')}\n"


def _asset(name: str) -> str:
    return (files(__package__) / "assets" / name).read_text(encoding="utf-8")


def _policy(script: str) -> str:
    """Return what a browser may do with the page: no request, no script but its own."""
    digest = base64.b64encode(hashlib.sha256(script.encode()).digest()).decode()
    return (
        f"default-src 'none'; script-src 'sha256-{digest}'; style-src 'unsafe-inline'; "
        "img-src data:; base-uri 'none'; form-action 'none'"
    )


def _header(whole: View, at: datetime) -> Html:
    stamps = [one.timestamp for one in whole.evaluations]
    days = (max(stamps) - min(stamps)) / 86400 if stamps else 0.0
    over = f" over {count(round(days), 'day')}" if days >= 1 else ""
    name = whole.report.snapshot.name
    return el(
        "header",
        el("h1", "What the search has found"),
        el(
            "p",
            f"{count(len(whole.evaluations), 'evaluation')}{over} from {name}. ",
            f"Made on {at:%d} {at:%B %Y}. Everything is in this file.".replace(" 0", " "),
        ),
    )


def _bar(views: Views) -> Html:
    """Return the choices, which only a script can carry out, and the way to each section."""
    chosen = [
        _choice(title, name, "all", views.values(field))
        for title, name, field in (("Era", "era", "era"), ("Type", "type", "kind"))
        if views.values(field)
    ]
    if len(views.all) > 1:
        options = [el("option", "nothing", value="")]
        options += [el("option", one.label, value=one.key) for one in views.all]
        chosen.append(el("label", "Compare with ", el("select", options, name="with")))
        chosen.append(el("button", "Reset", type="button"))
    links = [el("a", title, href=f"#{name}") for name, title, _ in SECTIONS[1:]]
    return el(
        "div",
        el("form", chosen, hidden=True, aria_label="What is shown") if chosen else None,
        el("p", "", id="status", role="status", class_="note"),
        el("nav", links, aria_label="Sections"),
        class_="controls",
    )


def _choice(title: str, name: str, all_: str, values: list[str]) -> Html:
    options = [el("option", all_, value=""), *(el("option", one, value=one) for one in values)]
    return el("label", f"{title} ", el("select", options, name=name))


_WORDS = (
    ("Evaluation", "one candidate, tried once."),
    ("Passed", "it reached all thresholds; the yield is the share that did."),
    (
        "Interval",
        "where the true share lies in 95 of 100 such searches (Wilson); the fewer evaluations, "
        "the wider.",
    ),
    (
        "Beyond chance",
        "an exact test against all other evaluations, corrected for how many were looked at, and "
        "with the mix of eras and types held still. All claims of a page share one budget: of "
        "searches that are nothing but noise, at most 2.5 in 100 get a page that claims anything.",
    ),
    ("Lift", "how often a pair passes over how often the whole search does."),
    ("Score", "what a group earns for its Sharpe ratio, less what is like the pool, by turnover."),
    ("Useful", "the server's verdict on a submission."),
)


def _footer(left_out: int) -> Html:
    terms = [el("div", el("dt", word), el("dd", meaning)) for word, meaning in _WORDS]
    more = (
        f"{count(left_out, 'smaller part')} of era and type had no room here; "
        "--filter makes a page of one alone."
    )
    return el(
        "footer",
        el("h2", "How to read this"),
        el("dl", terms, class_="terms"),
        el("p", more, class_="note") if left_out else None,
        joined(),
    )
