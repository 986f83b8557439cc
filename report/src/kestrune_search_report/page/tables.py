"""The parts of the page whose pictures are tables with tracks in them."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

from kestrune_search_report.page import figures as known
from kestrune_search_report.page.figures import Group, Overall, rows_of
from kestrune_search_report.page.markup import Html, count, el, joined, number, percent
from kestrune_search_report.page.plots import Axis, axis, bar, ruler, track
from kestrune_search_report.page.views import View

BEST, WORST = 12, 6
_MOST_FAMILIES = 24


def heads(*cells: tuple[str, str]) -> Html:
    """Return the head of a table from titles and classes."""
    return el("thead", el("tr", [el("th", t, scope="col", class_=c or None) for t, c in cells]))


def cell(content: Any, class_: str | None = None, **more: Any) -> Html:
    """Return one cell."""
    return el("td", content, class_=class_, **more)


def row(name: Any, *cells: Html, class_: str | None = None) -> Html:
    """Return one row under the name of what it is about."""
    return el("tr", el("th", breakable(name), scope="row"), *cells, class_=class_)


def breakable(name: Any) -> Html:
    """Return a name that may be broken after its underscores."""
    if isinstance(name, Html):
        return name
    return Html(joined(name).replace("_", "_<wbr>"))


def matrix(view: View) -> Html:
    """Return the groups: which families each is made of, beside its figures."""
    found = known.groups(view)
    if not found:
        return Html("")
    cut = len(found) > BEST + WORST
    shown = [*found[:BEST], *found[-WORST:]] if cut else found
    sides = [
        sorted({name for one in shown for name in getattr(one, side)})
        for side in ("functions", "features")
    ]
    families = [(name, side) for side, names in zip("ft", sides, strict=True) for name in names]
    if len(families) > _MOST_FAMILIES:
        families = []
    scale = axis([one.score for one in shown], zero=True)
    shares = axis([end for one in shown for end in (one.low, one.high)], zero=True, digits=".0%")
    overall = Overall.of(view).rate
    rows = [_group_row(one, families, scale, shares, overall) for one in shown]
    if cut:
        middle = f"{len(found) - BEST - WORST} more between the best and the worst"
        width = len(families) + 7
        gap = el("tr", el("td", middle, colspan=width), class_="gap")
        rows.insert(BEST, gap)
    names = [
        el("th", el("span", name), scope="col", class_=f"turned {'feature' if side == 't' else ''}")
        for name, side in families
    ]
    titles = (
        ("evals", "num"),
        ("Sharpe", "num"),
        ("corr", "num wide"),
        ("turn", "num wide"),
        ("passed", "num"),
        ("score", "num"),
    )
    head = el(
        "tr",
        el("th", "group", scope="col"),
        names,
        [el("th", title, scope="col", class_=class_) for title, class_ in titles],
        el("th", el("span", "score as a bar", class_="unseen"), scope="col", class_="bars"),
    )
    return el(
        "table",
        el("caption", "Groups by score, best first", class_="unseen"),
        el("thead", head),
        el("tbody", rows),
        class_="matrix",
    )


def _group_row(
    one: Group, families: list[tuple[str, str]], scale: Axis, shares: Axis, overall: float
) -> Html:
    marks = [
        el(
            "td",
            el("span", "yes", class_="unseen")
            if name in (one.features if side == "t" else one.functions)
            else None,
            class_="dot"
            + (" on" if name in (one.features if side == "t" else one.functions) else "")
            + (" feature" if side == "t" else ""),
        )
        for name, side in families
    ]
    name = joined(breakable(one.name), _apart(one.apart))
    share = el("small", f"{percent(one.low, 0)}\N{EN DASH}{percent(one.high, 0)}", class_="range")
    return row(
        name,
        *marks,
        cell(count(one.total), "num"),
        cell(number(one.sharpe), "num"),
        cell(number(one.correlation), "num wide"),
        cell(number(one.turnover), "num wide"),
        cell(joined(percent(one.rate), " ", share), "num"),
        cell(number(one.score), "num strong"),
        cell(bar(scale, one.score, "good" if one.score > 0 else "bad"), "bars"),
    )


def _apart(sign: int) -> Html | None:
    if not sign:
        return None
    text = "passes more often, beyond chance" if sign > 0 else "passes less often, beyond chance"
    return joined(" ", el("span", text, class_="good-text" if sign > 0 else "bad-text"))


def shares_table(
    view: View,
    title: str,
    parts: Sequence[tuple[str, dict[str, Any]]],
    scale: Axis,
    *,
    over: float = 1.0,
) -> Html:
    """Return parts with the share that passed as tracks, beside the share of all.

    With `over`, shares are shown as so many times that share: as lift.
    """
    overall = Overall.of(view).rate
    rows: list[Html] = []
    for name, one in parts:
        apart = one["told_apart"] and view.whole is None
        kind = "" if not apart else "good" if one["rate"] > overall else "bad"
        low, rate, high = (one[key] / over for key in ("low", "rate", "high"))
        text = percent(rate) if over == 1.0 else number(rate)
        rows.append(
            row(
                name,
                cell(track(scale, low, high, rate, mark=overall / over, kind=kind), "tracks"),
                cell(text, "num strong"),
                cell(count(one["total"]), "num faint"),
            )
        )
    foot = el("tr", el("td"), el("td", ruler(scale), class_="tracks"), el("td"), el("td"))
    what = "passed" if over == 1.0 else "lift"
    return el(
        "table",
        heads((title, ""), ("95% interval", "tracks"), (what, "num"), ("of", "num faint")),
        el("tbody", rows),
        el("tfoot", foot),
        class_="tracked",
    )


def origins(view: View) -> Html:
    """Return the families and the depths, on one scale."""
    families = sorted(rows_of(view, "families"), key=lambda one: -one["rate"])
    depths = rows_of(view, "depths")
    most = families[:_MOST_FAMILIES]
    ends = [one[end] for one in (*most, *depths) for end in ("low", "high")]
    scale = axis(ends, zero=True, digits=".0%")
    made = [
        shares_table(view, title, parts, scale)
        for title, parts in (
            ("function family", [(one["function_family"] or "(no name)", one) for one in most]),
            ("depth of the tree", [(str(one["depth"]), one) for one in depths]),
        )
        if parts
    ]
    more = len(families) - len(most)
    note = f"{count(more, 'more family', 'more families')} with lower shares." if more else None
    return joined(el("div", made, class_="pair"), el("p", note, class_="note") if note else None)


def nearest_pairs(view: View, most: int = 10) -> Html:
    """Return the pairs that chance explains least, by lift."""
    overall = Overall.of(view).rate
    rows = sorted(known.pair_rows(view), key=lambda one: one["p_value"])[:most]
    if not rows or not overall:
        return Html("")
    rows.sort(key=lambda one: -one["rate"])
    scale = axis(
        [one[end] / overall for one in rows for end in ("low", "high")], zero=True, around=[1]
    )
    parts = [(f"{one['function_a']} with {one['function_b']}", one) for one in rows]
    return shares_table(view, "farthest from chance", parts, scale, over=overall)


def eras(view: View) -> Html:
    """Return eras by types: the share that passed, and that was useful."""
    rows = rows_of(view, "settings")
    if not rows:
        return Html("")
    useful = known.useful_by_setting(view)
    kinds = sorted({one["eval_type"] for one in rows})
    names = sorted({one["era_id"] for one in rows})
    by_key = {(one["era_id"], one["eval_type"]): one for one in rows}
    most = max(one["rate"] for one in rows) or 1.0
    body = [
        row(era or "no era", *(_era_cell(by_key.get((era, kind)), useful, most) for kind in kinds))
        for era in names
    ]
    return el(
        "table",
        heads(("era", ""), *((kind or "no type", "num") for kind in kinds)),
        el("tbody", body),
        class_="eras",
    )


def _era_cell(
    one: dict[str, Any] | None, useful: dict[tuple[str, str], tuple[int, int]], most: float
) -> Html:
    if one is None:
        return cell("\N{EN DASH}", "num faint")
    good, judged = useful.get((one["era_id"], one["eval_type"]), (0, 0))
    told = f"useful: {good} of {judged} judged" if judged else "none judged"
    return cell(
        joined(
            el("strong", percent(one["rate"])),
            el(
                "small",
                f" {percent(one['low'])}\N{EN DASH}{percent(one['high'])} of {count(one['total'])}",
            ),
            el("small", told, class_="under"),
        ),
        "num tint",
        style=f"--t:{36 * one['rate'] / most:.0f}%",
    )


def fates(view: View) -> Html:
    """Return how many evaluations got how far."""
    overall = Overall.of(view)
    steps = [("evaluated", overall.total), ("passed", overall.passed)]
    if overall.submitted:
        steps.append(("submitted", overall.submitted))
    if overall.judged:
        steps += [("judged", overall.judged), ("useful", overall.useful)]
    scale = Axis(0.0, float(max(overall.total, 1)), ())
    rows = [
        row(
            name,
            cell(bar(scale, float(many)), "tracks"),
            cell(count(many), "num strong"),
            cell(percent(many / overall.total if overall.total else None), "num faint"),
        )
        for name, many in steps
    ]
    return el(
        "table",
        heads(("how far", ""), ("as a bar", "tracks"), ("evals", "num"), ("of all", "num faint")),
        el("tbody", rows),
        class_="tracked",
    )


def luck(view: View) -> Html:
    """Return the best Sharpe ratios beside what luck shows."""
    rows = rows_of(view, "luck")
    if not rows:
        return Html("")
    values = [one[key] for one in rows for key in ("best", "expected", "ceiling")]
    scale = axis([value for value in values if math.isfinite(value)], zero=True)
    body = [
        row(
            ", ".join(name for name in (one["era_id"], one["eval_type"]) if name) or "all",
            cell(
                track(
                    scale,
                    one["expected"],
                    one["ceiling"],
                    one["best"],
                    kind="luck good" if one["told_apart"] and view.whole is None else "luck",
                ),
                "tracks",
            ),
            cell(number(one["best"]), "num strong"),
            cell(f"{number(one['expected'])}\N{EN DASH}{number(one['ceiling'])}", "num"),
            cell(count(one["tries"]), "num faint"),
        )
        for one in rows
    ]
    foot = el("tr", el("td"), el("td", ruler(scale), class_="tracks"), el("td"), el("td"), el("td"))
    return el(
        "table",
        heads(
            ("era and type", ""),
            ("dot: best; bar: luck", "tracks"),
            ("best", "num"),
            ("luck", "num"),
            ("tries", "num faint"),
        ),
        el("tbody", body),
        el("tfoot", foot),
        class_="tracked luckiest",
    )


def suspects(view: View, most: int = 50) -> Html:
    """Return what looks tampered with, as a table to open."""
    table = view.report.answers["get_yield_analysis"].tables["tamper_candidates"]
    rows = list(table.dicts())
    if not rows:
        return Html("")
    body = [
        row(
            str(one["eval_id"]),
            cell(number(one["agent_is_pnl_mi"], 4), "num"),
            cell(number(one["is_pnl_mi"], 4), "num"),
            cell(", ".join(one["tamper_reasons"]).replace("_", " "), "words"),
        )
        for one in rows[:most]
    ]
    more = len(rows) - len(body)
    return el(
        "details",
        el("summary", f"{count(len(rows), 'suspect')} as a table"),
        el(
            "table",
            heads(("evaluation", ""), ("reported", "num"), ("measured", "num"), ("why", "words")),
            el("tbody", body),
        ),
        el("p", f"And {count(more)} more.", class_="note") if more > 0 else None,
    )
