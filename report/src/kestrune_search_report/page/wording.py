"""The sentences of the page: what to try next, what to leave, what is luck."""

from __future__ import annotations

from typing import Any

from kestrune_search_report.evidence.findings import named as naming
from kestrune_search_report.page.figures import Group, Overall, finding, groups, pair_rows, rows_of
from kestrune_search_report.page.markup import Html, count, el, joined, listed, number, percent
from kestrune_search_report.page.markup import strong as b
from kestrune_search_report.page.views import View

_LOOKED = (
    ("pairs", "pair", "pairs"),
    ("groups", "group", "groups"),
    ("families", "family", "families"),
    ("depths", "depth", "depths"),
)


def in_short(view: View) -> Html:
    """Return what a reader takes away, in three paragraphs."""
    return el(
        "dl",
        *(
            el("div", el("dt", title), el("dd", text))
            for title, text in (
                ("Try next", try_next(view)),
                ("Leave", leave(view)),
                ("Skill or luck?", verdict(view)),
            )
        ),
        class_="short",
    )


def _with_score(one: Group) -> Html:
    return joined(b(one.name), f" (score {number(one.score)}, {count(one.total, 'evaluation')})")


def _in_a_row(parts: list[Html]) -> Html:
    if len(parts) < 2:
        return joined(*parts)
    return joined(*(joined(part, ", ") for part in parts[:-2]), parts[-2], " and ", parts[-1])


def try_next(view: View) -> Html:
    """Return where to search further."""
    found = groups(view)
    good = [one for one in found if one.score > 0][:3]
    sure = _proven(view, more=True)
    if not found:
        return joined(sure, _too_small(view))
    if not good:
        return joined(
            sure, "No group has a score above 0: change the ingredients, not the proportions."
        )
    proven = {one.name for one in good if one.apart > 0}
    ending = (
        "What chance explains is judged over the whole search, below."
        if view.whole is not None
        else "All of them pass more often than chance explains."
        if len(proven) == len(good)
        else f"Beyond chance: {listed(sorted(proven))}."
        if proven
        else "None of them passes more often than chance explains: look there first, and at "
        "several at once."
    )
    best = _in_a_row([_with_score(one) for one in good])
    return joined(sure, "Most promising by score: ", best, f". {ending}")


def leave(view: View) -> Html:
    """Return what to spend less on."""
    found = groups(view)
    sure = _proven(view, more=False)
    if not found:
        return joined(sure, _too_small(view))
    bad = [one for one in reversed(found) if one.score <= 0][:3]
    if not bad:
        return joined(sure, "No group has a score below 0, so none has to go.")
    worst = _in_a_row([_with_score(one) for one in bad])
    return joined(sure, "Least promising by score: ", worst, ".")


def _proven(view: View, *, more: bool) -> Html | None:
    """Return the families and pairs that pass more, or less, often than chance explains."""
    if view.whole is not None:
        return None
    parts = [
        joined(b(naming(row)), f" ({percent(row['rate'])}, the rest {percent(row['rest_rate'])})")
        for about in ("families", "pairs")
        for row in sorted(rows_of(view, about), key=lambda row: row["p_value"])
        if row["told_apart"] and (row["rate"] > row["rest_rate"]) == more
    ]
    if not parts:
        return None
    start = "More" if more else "Less"
    rest = len(parts) - 3
    ending = (
        f", and {count(rest, 'more family or pair', 'more families and pairs')}" if rest > 0 else ""
    )
    shown = joined(*(joined(part, ", ") for part in parts[:2]), parts[2]) if rest > 0 else None
    return joined(
        f"{start} of what passes {start.lower()} often than chance explains: ",
        shown or _in_a_row(parts[:3]),
        f"{ending}. ",
    )


def _too_small(view: View) -> Html:
    least = view.report.arguments["min_sample_size"]
    return joined(
        f"No group has {count(least, 'evaluation')} yet: search on, or make the page with a "
        "smaller --min-sample-size."
    )


def verdict(view: View) -> Html:
    """Return what can be told from chance, over the whole search."""
    whole = view.whole or view
    looked = [
        (len(rows), sum(row["told_apart"] for row in rows), one, many)
        for name, one, many in _LOOKED
        if (rows := rows_of(whole, name))
    ]
    apart = [f"{told} of {count(total, *words)}" for total, told, *words in looked if told]
    plain = [count(total, *words) for total, told, *words in looked if not told]
    trend = [row["told_apart"] for row in rows_of(whole, "trend")]
    claims = any(one.claims for one in whole.report.evidence.findings)
    headline = (
        "Some of it is more than luck." if claims else "Nothing here is told apart from luck."
    )
    texts = [
        f"{_series(apart)} {'pass' if len(apart) > 1 else 'passes'} more or less often than chance "
        "explains."
        if apart
        else "",
        f"None of {_series(plain)} passes more or less often than chance explains."
        if plain
        else "",
        f"The change of the yield of late is {'more than' if trend[0] else 'within'} chance."
        if trend
        else "",
        luck_in_short(whole),
    ]
    start = "Over the whole search: " if view.whole else ""
    return joined(start, b(headline), " ", " ".join(text for text in texts if text))


def _series(parts: list[str]) -> str:
    return " and ".join([", ".join(parts[:-1]), parts[-1]]) if len(parts) > 1 else "".join(parts)


def luck_in_short(view: View) -> str:
    """Return how many best Sharpe ratios are beyond luck."""
    rows = rows_of(view, "luck")
    if not rows:
        return ""
    beyond = sum(row["told_apart"] for row in rows)
    if not beyond:
        return (
            "The best Sharpe ratios are within what the luckiest of as many tries without skill "
            "shows."
        )
    return f"The best Sharpe ratio is beyond luck in {beyond} of {_settings(len(rows))}."


def _settings(many: int) -> str:
    return count(many, "era and type", "eras and types")


def works(view: View) -> Html:
    """Return the sentence above the groups."""
    found = groups(view)
    if not found:
        return _too_small(view)
    best, worst = found[0], found[-1]
    if best is worst:
        return joined("One group is large enough to score: ", b(best.name), ".")
    return joined(
        b(best.name),
        f" scores highest ({number(best.score)}), ",
        b(worst.name),
        f" lowest ({number(worst.score)}), of {count(len(found), 'group')} with at least "
        f"{count(view.report.arguments['min_sample_size'], 'evaluation')}.",
    )


def crowding(view: View) -> Html:
    """Return the sentence above quality against crowding."""
    found = [one for one in groups(view) if one.sharpe > 0]
    if not found:
        return joined("No group has a mean Sharpe ratio above 0.")
    low = sorted(one.correlation for one in groups(view))[len(groups(view)) // 2]
    fresh = sorted((one for one in found if one.correlation < low), key=lambda one: -one.sharpe)
    sharpest = max(found, key=lambda one: one.sharpe)
    start = joined(b(sharpest.name), f" has the best mean Sharpe ratio ({number(sharpest.sharpe)})")
    if fresh and fresh[0] is not sharpest:
        return joined(
            start,
            "; of the half that is less like what the pool holds, it is ",
            b(fresh[0].name),
            f" ({number(fresh[0].sharpe)}).",
        )
    return joined(start, ", and is less like what the pool holds than most." if fresh else ".")


def origins(view: View) -> Html:
    """Return the sentence above families and depths."""
    overall = Overall.of(view)
    start = joined(f"{percent(overall.rate)} of {count(overall.total, 'evaluation')} passed. ")
    if view.whole is not None:
        rows = rows_of(view, "families")
        off = [
            row["function_family"] for row in rows if not row["low"] <= overall.rate <= row["high"]
        ]
        return joined(
            start,
            f"Families whose interval is clear of that line: {listed(off)}; a hint, not a finding."
            if off
            else "No family's interval is clear of that line.",
        )
    return joined(start, _apart(view, "families"), " ", _apart(view, "depths"))


def _apart(view: View, about: str) -> Html:
    """Return which parts of a table pass more, and which less often than chance explains."""
    rows = rows_of(view, about)
    apart = [row for row in rows if row["told_apart"]]
    if not apart:
        return joined(finding(view, about))
    above = [naming(row) for row in apart if row["rate"] > row["rest_rate"]]
    below = [naming(row) for row in apart if row["rate"] <= row["rest_rate"]]
    told = [
        joined(f"{way} often than chance explains: ", b(listed(names)))
        for way, names in (("more", above), ("less", below))
        if names
    ]
    start, *more = told
    return joined(start[:1].upper(), Html(start[1:]), *(joined("; ", one) for one in more), ".")


def pairs(view: View) -> Html:
    """Return the sentence above the pairs."""
    overall = Overall.of(view)
    rows = pair_rows(view)
    if not rows:
        return joined("No two functions occur together often enough to compare.")
    whole = "this part" if view.whole is not None else "the search as a whole"
    above = sum(row["low"] > overall.rate for row in rows)
    below = sum(row["high"] < overall.rate for row in rows)
    start = f"Of {count(len(rows), 'pair')}, {above} look better than {whole} and {below} worse; "
    if not above and not below:
        return joined(f"Of {count(len(rows), 'pair')}, none stands out from {whole}.")
    if view.whole is not None:
        return joined(start, "some would by chance, as so many are looked at.")
    sure = [row for row in rows if row["told_apart"]]
    apart = [naming(row) for row in sorted(sure, key=lambda row: row["p_value"])]
    if not apart:
        return joined(
            start,
            b("none"),
            " is left once it is counted how many were looked at: do not chase them.",
        )
    return joined(
        start, "beyond chance ", "is " if len(apart) == 1 else "are ", b(listed(apart)), "."
    )


def pace(view: View) -> Html:
    """Return the sentence above pace and yield."""
    figures = view.report.answers["get_yield_analysis"].figures
    speed = view.report.answers["get_search_velocity"].figures["trend"]
    told = {
        "rising": "Passes come faster than before",
        "declining": "Passes come more slowly than before",
        "stable": "Passes come as fast as before",
        "insufficient_data": "There is too little to tell whether passes come faster",
    }[speed]
    return joined(
        f"{told}. The share that passes is {percent(figures['lifetime_yield_rate'])} in all and ",
        b(percent(figures["recent_yield_rate"])),
        f" in the last {window(figures['recent_window_minutes'])}",
        _change(view),
    )


def _change(view: View) -> str:
    """Return what the change of the yield comes of."""
    rows = rows_of(view, "trend")
    if not rows or view.whole is not None:
        return "."
    (row,) = rows
    mix, own = (
        f"{100 * row[key]:+.1f}".replace("-", "\N{MINUS SIGN}")
        for key in ("mix_effect", "own_effect")
    )
    told = "more than chance explains" if row["told_apart"] else "which chance explains"
    return (
        f": {mix} points come of another mix of eras and types, {own} of better or worse "
        f"candidates, {told}."
    )


def window(minutes: float) -> str:
    """Return the length of a window: 24 hours."""
    for length, name in ((1440, "day"), (60, "hour")):
        if minutes >= 2 * length or (length == 60 and minutes >= 60):
            return count(round(minutes / length), name)
    return count(round(minutes), "minute")


def eras(view: View) -> Html:
    """Return the sentence above eras and types."""
    rows = [row for row in rows_of(view, "settings") if row["total"] >= 20]
    if len(rows) < 2:
        return joined("There is one era and type here, so nothing to compare.")
    best = max(rows, key=lambda row: row["rate"])
    worst = min(rows, key=lambda row: row["rate"])
    clear = best["low"] > worst["high"]
    return joined(
        "Most pass in ",
        b(named(best)),
        f" ({percent(best['rate'])}), fewest in ",
        b(named(worst)),
        f" ({percent(worst['rate'])}); their intervals {'do not touch' if clear else 'overlap'}. "
        "Compare candidates within an era and type, not across.",
    )


def named(row: dict[str, Any]) -> str:
    """Return an era and type as they are called."""
    return ", ".join(name for name in (row["era_id"], row["eval_type"]) if name) or "all"


def fates(view: View) -> Html:
    """Return the sentence above what became of submissions."""
    overall = Overall.of(view)
    if not overall.submitted and not overall.judged:
        return joined("Nothing was submitted, as far as the records say.")
    start = f"{count(overall.submitted)} of {count(overall.passed)} that passed were submitted; "
    if not overall.judged:
        return joined(start, "none is judged yet.")
    return joined(
        start,
        f"of {count(overall.judged)} judged so far, ",
        b(f"{overall.useful} were useful"),
        f" ({percent(overall.useful / overall.judged)}).",
    )


def tampering(view: View) -> Html:
    """Return the sentence above what looks tampered with."""
    many = view.report.answers["get_yield_analysis"].figures["tamper_candidate_count"]
    if not many:
        return joined("No evaluation looks tampered with.")
    return joined(
        b(count(many, "evaluation")),
        f" {'looks' if many == 1 else 'look'} tampered with: mostly what was reported is not what "
        "the server measured. Leave them out before you trust a score.",
    )


def luck(view: View) -> Html:
    """Return the sentence above the best Sharpe ratios."""
    rows = rows_of(view, "luck")
    if not rows:
        return joined("The Sharpe ratios are too few, or too equal, to judge luck.")
    above = sum(row["best"] > row["expected"] for row in rows)
    start = (
        f"In {above} of {_settings(len(rows))} the best Sharpe ratio beats what the luckiest of as "
        "many tries without skill shows in half of all searches"
    )
    if view.whole is not None:
        return joined(start, ".")
    beyond = [named(row) for row in rows if row["told_apart"]]
    if beyond:
        return joined(start, "; beyond luck it is in ", b(listed(beyond)), ".")
    return joined(
        start, "; in ", b("none"), " is it beyond luck. Do not pick a winner by its Sharpe ratio."
    )
