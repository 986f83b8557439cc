"""The parts of the page whose pictures have two axes."""

from __future__ import annotations

import math

from kestrune_search_report.page import figures as known
from kestrune_search_report.page.figures import Overall, pair_rows
from kestrune_search_report.page.markup import Html, count, el, joined, number, percent
from kestrune_search_report.page.plots import Axis, Plot, Point, axis, log_axis
from kestrune_search_report.page.views import View


def figure(picture: Html, x: str, y: str, *notes: Html) -> Html:
    """Return a picture with what its axes are, and what its marks mean."""
    return el(
        "figure",
        el("p", y, class_="axis-y"),
        picture,
        el("p", x, class_="axis-x"),
        el("figcaption", *notes) if notes else None,
    )


def key(class_: str, text: str) -> Html:
    """Return what a mark means."""
    return el("span", el("i", class_=f"key {class_}"), text, class_="legend")


def crowding(view: View) -> Html:
    """Return the groups: quality against likeness to the pool."""
    found = [
        one
        for one in known.groups(view)
        if math.isfinite(one.sharpe) and math.isfinite(one.correlation)
    ]
    if not found:
        return Html("")
    overall = Overall.of(view).rate
    plot = Plot(
        axis([one.sharpe for one in found], around=[0.0]),
        axis([one.correlation for one in found]),
        300,
    )
    most = max(one.total for one in found)
    marks: list[Html] = []
    for one in sorted(found, key=lambda one: -one.total):
        kind = (
            "more" if one.rate > 1.25 * overall else "less" if one.rate < 0.75 * overall else "even"
        )
        told = (
            f"{one.name}: Sharpe ratio {number(one.sharpe)}, correlation "
            f"{number(one.correlation)}, {percent(one.rate)} of {one.total} passed"
        )
        radius = 3 + 8 * math.sqrt(one.total / most)
        marks.append(plot.circle((one.sharpe, one.correlation), radius, f"spot {kind}", told))
    for one in (*found[:2], *found[-1:][: len(found) - 2]):
        marks.append(plot.label((one.sharpe, one.correlation), one.name, up=14))
    zero = plot.line([(0.0, plot.y.low), (0.0, plot.y.high)], "rest")
    return figure(
        plot.drawn(
            f"Sharpe ratio against correlation of {count(len(found), 'group')}", zero, *marks
        ),
        "mean Sharpe ratio, per year: further right is better",
        "mean correlation to the pool: lower is newer",
        key("more", "a quarter more pass than in all"),
        key("even", "about as many"),
        key("less", "a quarter fewer"),
        joined(
            "Larger: more evaluations. The score divides by turnover, and little of it lifts a "
            "weak group."
        ),
    )


def pairs(view: View) -> Html:
    """Return all pairs: how often they pass against how often they occur."""
    overall = Overall.of(view).rate
    rows = pair_rows(view)
    if not rows or not overall:
        return Html("")
    lifts = [row["rate"] / overall for row in rows]
    totals = [float(row["total"]) for row in rows]
    plot = Plot(log_axis(totals), axis(lifts, zero=True, around=[1.0, 2.0]), 360)
    plain: list[Point] = []
    hints: list[Point] = []
    apart: list[Point] = []
    for row, total, lift in zip(rows, totals, lifts, strict=True):
        if row["told_apart"] and view.whole is None:
            apart.append((total, lift))
        elif row["low"] > overall or row["high"] < overall:
            hints.append((total, lift))
        else:
            plain.append((total, lift))
    marks = [
        _funnel(plot, overall),
        plot.line([(plot.x.low, 1.0), (plot.x.high, 1.0)], "rest"),
        plot.dots(plain, "even"),
        plot.dots(hints, "hint"),
        plot.dots(apart, "sure"),
    ]
    notes = [key("hint", "outside its own interval: a hint"), key("even", "within it")]
    if view.whole is None:
        notes.insert(0, key("sure", "beyond chance"))
    return figure(
        plot.drawn(f"Lift of {count(len(rows), 'pair')} against how often they occur", *marks),
        "evaluations that use both functions",
        "lift: 1 passes as often as all that is shown",
        *notes,
        joined(" Shaded: where 95 of 100 pairs without any effect lie."),
    )


def _funnel(plot: Plot, overall: float) -> Html:
    """Return how far chance alone scatters the lift, by number of evaluations."""
    steps = 40
    grow = (plot.x.high / plot.x.low) ** (1 / steps)
    totals = [plot.x.low * grow**step for step in range(steps + 1)]
    reach = [1.96 * math.sqrt((1 - overall) / (overall * total)) for total in totals]
    lines = [
        [(total, 1 + side * one) for total, one in zip(totals, reach, strict=True)]
        for side in (1, -1)
    ]
    return plot.band(*lines)


def pace(view: View) -> Html:
    """Return evaluations and the share that passed, day by day."""
    found, length = known.bins(view)
    if not found:
        return Html("")
    edges = [float(-one.ago - 1) for one in found]
    ticks = tuple(
        (
            edges[place] + 0.5,
            "now" if found[place].ago == 0 else f"\N{MINUS SIGN}{found[place].ago}",
        )
        for place in _ticked(len(found))
    )
    x = Axis(edges[0], 0.0, ticks)
    many = Plot(x, axis([float(one.total) for one in found], zero=True), 130)
    bars = [
        many.bar(
            -one.ago - 1,
            -one.ago,
            one.total,
            "column",
            f"{count(one.total, 'evaluation')}, {count(one.passed)} passed",
        )
        for one in found
    ]
    known_bins = [one for one in found if one.total]
    rates = [one.passed / one.total for one in known_bins]
    tops = [min(one.high, 2.5 * max(rates) + 0.01) for one in known_bins]
    # What holds little has a wide interval, which may leave the picture.
    usual = sorted(one.total for one in known_bins)[len(known_bins) // 2] / 4
    solid = [top for top, one in zip(tops, known_bins, strict=True) if one.total >= usual]
    share = Plot(x, axis([*solid, *rates], zero=True, digits=".0%"), 190)
    middle = [-one.ago - 0.5 for one in known_bins]
    overall = Overall.of(view).rate
    marks = [
        share.band(
            list(zip(middle, tops, strict=True)),
            list(zip(middle, [one.low for one in known_bins], strict=True)),
        ),
        share.line([(x.low, overall), (x.high, overall)], "rest"),
        share.line(list(zip(middle, rates, strict=True)), "main"),
        *(
            share.circle((at, rate), 3.5, "spot main", f"{percent(rate)} of {one.total}")
            for at, rate, one in zip(middle, rates, known_bins, strict=True)
        ),
    ]
    per = f"{length}s before now" if length != "30 days" else "stretches of 30 days before now"
    return joined(
        figure(
            many.drawn(f"Evaluations for each of {count(len(found), length, length)}", *bars),
            per,
            f"evaluations in each {length if length != '30 days' else 'stretch of 30 days'}",
        ),
        figure(
            share.drawn("Share that passed over time, with its interval", *marks),
            per,
            "share that passed",
            key("band", "95% interval"),
            key(
                "rest",
                f"the whole search, {percent(overall)}"
                if view.whole is None
                else f"all of this part, {percent(overall)}",
            ),
        ),
    )


def _ticked(total: int) -> list[int]:
    """Return the places of about eight ticks, the last place among them."""
    step = max(1, math.ceil(total / 8))
    return [place for place in range(total) if (total - 1 - place) % step == 0]


def tampering(view: View) -> Html:
    """Return what suspects reported against what the server measured."""
    rows = view.report.answers["get_yield_analysis"].tables["tamper_candidates"].dicts()
    points = [
        (one["is_pnl_mi"], one["agent_is_pnl_mi"], one["eval_id"])
        for one in rows
        if one["is_pnl_mi"] is not None and one["agent_is_pnl_mi"] is not None
    ]
    points = [one for one in points if math.isfinite(one[0]) and math.isfinite(one[1])]
    if not points:
        return Html("")
    ends = [value for one in points for value in one[:2]]
    both = axis(ends, zero=True)
    plot = Plot(both, both, 240)
    marks = [
        plot.circle((x, y), 5, "spot less", f"{name}: reported {y:.4f}, measured {x:.4f}")
        for x, y, name in points[:300]
    ]
    same = plot.line([(both.low, both.low), (both.high, both.high)], "rest")
    return figure(
        plot.drawn(f"Reported against measured, of {count(len(points), 'suspect')}", same, *marks),
        "measured by the server",
        "reported by the agent",
        key("rest", "both the same: honest ones lie on it"),
    )
