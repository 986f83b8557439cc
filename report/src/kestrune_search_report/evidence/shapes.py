"""The tables of evidence, column by column."""

from __future__ import annotations

from kestrune_search_report.questions import columns
from kestrune_search_report.table import Column

_SHARE = (
    "total integer evaluations",
    "passed integer of those, passed",
    "rate number passed / total, 0 to 1",
    "low number lower end of the 95% Wilson interval of the rate",
    "high number upper end of it",
)
_TEST = (
    "rest_rate number share of passes among all other evaluations; nothing if there are none",
    "p_value number how likely chance alone makes a difference to the rest as large",
    "q_value number the same, corrected for all that was looked at",
    "held_still number the p-value with the mix of eras and types held still, if q_value tells",
    "told_apart flag whether q_value and held_still are at most 0.025",
)

SHAPES: dict[str, tuple[Column, ...]] = {
    "overall": columns(*_SHARE),
    "settings": columns(
        "era_id text era",
        "eval_type text signal or strategy",
        *_SHARE,
        "recent_total integer evaluations in the recent window",
        "recent_passed integer of those, passed",
    ),
    "pairs": columns(
        "function_a text the function whose name sorts first",
        "function_b text the other one",
        *_SHARE,
        *_TEST,
    ),
    "families": columns("function_family text function family", *_SHARE, *_TEST),
    "groups": columns(
        "functions texts names that the group's functions share, sorted",
        "features texts names that the group's features share, sorted",
        *_SHARE,
        *_TEST,
    ),
    "depths": columns("depth integer depth of the expression tree", *_SHARE, *_TEST),
    "trend": columns(
        "recent_window_minutes number length of the recent window in minutes",
        "recent_total integer evaluations in it",
        "recent_passed integer of those, passed",
        "lifetime_rate number share of all evaluations that passed, 0 to 1",
        "recent_rate number share of the recent ones that passed, 0 to 1",
        "expected_rate number recent share if each era and type passed as it does over all time",
        "mix_effect number expected_rate - lifetime_rate: what another mix of them explains",
        "own_effect number recent_rate - expected_rate: what it does not explain",
        "p_value number how likely chance alone makes an own_effect as large",
        "q_value number the same, corrected for the other claims of a report",
        "told_apart flag whether the q_value is at most 0.025",
    ),
    "luck": columns(
        "era_id text era",
        "eval_type text signal or strategy",
        "tries integer Sharpe ratios that are finite numbers",
        "best number the highest Sharpe ratio",
        "centre number Sharpe ratio of a try without skill, on average",
        "spread number standard deviation of a try without skill",
        "expected number what the luckiest of as many shows in half of all such searches",
        "ceiling number what the luckiest stays below in 95 of 100 such searches",
        "p_value number how likely the luckiest is as good as the best",
        "q_value number the same, corrected for all that was looked at",
        "told_apart flag whether the q_value is at most 0.025",
    ),
}
