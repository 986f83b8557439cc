"""Evidence in words: one sentence for each claim that a report makes, or does not make."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.table import Table

ASSUMPTIONS = (
    "The tests take evaluations for independent tries, but the candidates of a search are not "
    "independent (it varies what it found before, on the same data), so the true uncertainty is "
    "larger than shown."
)
_NAMED = 5


@dataclass(frozen=True)
class Finding:
    """What the evidence says about one thing: `about` names its table.

    `claims` says whether something is told apart from chance.
    """

    about: str
    claims: bool
    text: str


def percent(share: float) -> str:
    """Return a share as a text: 10.9%."""
    return f"{share:.1%}"


def named(row: dict[str, Any]) -> str:
    """Return what a row of evidence is about: a pair, a family, a group or a depth."""
    if "function_a" in row:
        return f"{row['function_a']} with {row['function_b']}"
    if "functions" in row:
        functions = " + ".join(row["functions"]) or "no function"
        return f"{functions} of {' + '.join(row['features']) or 'no feature'}"
    return f"depth {row['depth']}" if "depth" in row else str(row["function_family"])


def about_parts(table: Table, what: str, hidden: int = 0) -> Finding:
    """Return the finding of a table of parts that were tested against the rest.

    `what` names them in the plural; `hidden` is how many there were that were not looked at.
    """
    rows = list(table.dicts())
    looked = f"{len(rows)} {what}" + (f" (of {len(rows) + hidden})" if hidden else "")
    apart = [row for row in rows if row["told_apart"]]
    if not rows:
        return Finding(table.name, False, f"There are no {what} to look at.")
    mixed = [named(row) for row in rows if row["held_still"] is not None and row not in apart]
    by_mix = f" What sets {', '.join(mixed[:_NAMED])} apart is the mix of eras and types."
    ending = by_mix if mixed else ""
    if not apart:
        text = f"None of {looked} passes more or less often than chance explains."
        return Finding(table.name, False, text + ending)
    apart.sort(key=lambda row: row["p_value"])
    told = "; ".join(
        f"{named(row)} passes in {percent(row['rate'])} of {row['total']} "
        f"({percent(row['low'])} to {percent(row['high'])}), the rest in "
        f"{percent(row['rest_rate'])}"
        for row in apart[:_NAMED]
    )
    more = f"; and {len(apart) - _NAMED} more" if len(apart) > _NAMED else ""
    return Finding(
        table.name,
        True,
        f"{len(apart)} of {looked} told apart from chance: {told}{more}.{ending}",
    )


def about_trend(rows: Sequence[dict[str, Any]]) -> Finding:
    """Return the finding on the trend of the yield."""
    if not rows:
        return Finding("trend", False, "The yield has no trend: no evaluation is recent, or all.")
    (row,) = rows
    up = row["recent_rate"] >= row["lifetime_rate"]
    text = (
        f"The recent yield is {percent(row['recent_rate'])} of {row['recent_total']}, "
        f"{'above' if up else 'below'} the lifetime's {percent(row['lifetime_rate'])}: "
        f"{100 * row['mix_effect']:+.1f} points come of another mix of eras and types, "
        f"{100 * row['own_effect']:+.1f} of the candidates themselves, "
    )
    if not row["told_apart"]:
        return Finding("trend", False, text + "which chance explains.")
    return Finding("trend", True, text + "more than chance explains.")


def about_luck(rows: Sequence[dict[str, Any]]) -> Finding:
    """Return the finding on the best Sharpe ratio where luck explains it least."""
    if not rows:
        return Finding("luck", False, "The Sharpe ratios are too few or too equal to judge luck.")
    row = min(rows, key=lambda one: one["p_value"])
    setting = ", ".join(name for name in (row["era_id"], row["eval_type"]) if name)
    others = f", the most telling of {len(rows)} settings" if len(rows) > 1 else ""
    text = (
        f"The best Sharpe ratio{f' of {setting}' if setting else ''}{others}, is "
        f"{row['best']:.2f}. The luckiest of {row['tries']} tries without skill "
        f"(normal, {row['centre']:.2f} +- {row['spread']:.2f}) shows {row['expected']:.2f}, and "
        f"stays below {row['ceiling']:.2f} in 95 of 100 searches: "
    ).replace(" ratio, is", " ratio is")
    if not row["told_apart"]:
        return Finding("luck", False, text + "luck explains it.")
    return Finding("luck", True, text + "more than luck, if the normal shape holds that far out.")
