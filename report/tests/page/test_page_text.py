"""The page as a text: one file, sentences that say what is so, names that stay names."""

from __future__ import annotations

import math
import random
import re
from pathlib import Path
from typing import Any

import pytest

from kestrune_search_report import Snapshot
from kestrune_search_report.page import page
from kestrune_search_report.page.document import MOST_BYTES
from kestrune_search_report.page.markup import count, listed, number
from kestrune_search_report.page.plots import axis, log_axis
from kestrune_search_report.page.views import MOST_VIEWS, views_of
from support.searches import POOLS, records, simple


def test_a_page_is_one_file_within_its_size(page_file: Path) -> None:
    text = page_file.read_text(encoding="utf-8")
    assert page_file.stat().st_size < MOST_BYTES
    assert not re.search(r"""(src|href)\s*=\s*["']?(https?:|//|\w+\.\w)""", text)
    assert "url(" not in text
    assert "@import" not in text


def test_noise_is_called_luck() -> None:
    text = page(Snapshot.from_records(records(1200), pools=POOLS))
    assert "Nothing here is told apart from luck." in text
    assert "look there first, and at several at once" in text
    assert "none stands out" in text or "do not chase them" in text


def test_what_is_beyond_chance_is_said_to_be_so() -> None:
    def passes(chance: random.Random, functions: list[str]) -> bool:
        return chance.random() < (0.6 if "rank" in functions else 0.1)

    text = page(Snapshot.from_records(records(900, passes=passes), pools=POOLS))
    assert "Nothing here is told apart from luck." not in text
    start = "More of what passes more often than chance explains: <strong>cross_section</strong>"
    assert text.count(start) == 1
    # A part of the search is no second chance to claim something.
    assert text.index(start) < text.index("<template")
    assert text[text.index("<template") :].count("track good") == 0


def test_names_of_a_source_are_only_ever_text() -> None:
    rows = records(120)
    for row in rows:
        row["era_id"] = "</template><script>alert(1)</script>" + row["era_id"]
        for item in row["function_metadata"]:
            item["function_name"] += "<img src=x onerror=alert(1)>"
            item["function_family"] += "\"'><b>"
    text = page(Snapshot.from_records(rows, name="<i>&"), min_sample_size=1)
    assert "<script>alert" not in text
    assert "<img" not in text
    assert "<b>" not in re.sub(r"<b style=\"left:[\d.]+%\">", "", text)
    assert "&lt;i&gt;&amp;" in text
    assert text.count("</template>") == text.count("<template ")


@pytest.mark.parametrize(
    "rows",
    [
        records(1),
        records(3, days=0.001),
        simple(40),
        [{**row, "passed_thresholds": False, "submitted": False} for row in records(60)],
        [{**row, "passed_thresholds": True} for row in records(60)],
        [{**row, "sharpe": math.nan, "correlation": math.inf} for row in records(60)],
        [{**row, "sharpe": 0.0, "turnover": 0.0} for row in records(60)],
        records(60, days=9000.0),
        [{**row, "agent_is_pnl_mi": None, "is_pnl_mi": None} for row in records(60)],
    ],
    ids=["one", "young", "bare", "none-passed", "all-passed", "nan", "equal", "old", "unmeasured"],
)
@pytest.mark.parametrize("least", [1, 1000])
def test_any_search_has_a_page(rows: list[dict[str, Any]], least: int) -> None:
    text = page(Snapshot.from_records(rows), min_sample_size=least)
    assert text.endswith("</html>\n")
    assert "nan%" not in text
    assert "inf%" not in text


def test_filters_narrow_a_page_and_its_choices() -> None:
    snapshot = Snapshot.from_records(records(200))
    text = page(snapshot, filters={"era_id": "2012"})
    assert 'name="era"' not in text
    assert 'name="type"' in text


def test_many_eras_leave_out_the_smallest_parts() -> None:
    rows = records(400)
    for place, row in enumerate(rows):
        row["era_id"] = f"era {math.isqrt(place):02}"
    snapshot = Snapshot.from_records(rows)
    views = views_of(snapshot, {}, {})
    assert len(views.all) == MOST_VIEWS
    both = {(row["era_id"], row["eval_type"]) for row in rows}
    assert views.left_out == len(both) + 20 + 2 - (MOST_VIEWS - 1)
    assert f"{views.left_out} smaller parts of era and type had no room" in page(snapshot)


@pytest.mark.parametrize(
    ("values", "ticks"),
    [
        ([0.0, 1.0], [0.0, 0.25, 0.5, 0.75, 1.0]),
        ([-0.4, 0.8], [-0.5, 0.0, 0.5, 1.0]),
        ([3.0, 3.0], [2.5, 2.75, 3.0, 3.25, 3.5]),
        ([math.nan, math.inf], [0.0, 0.25, 0.5, 0.75, 1.0]),
        ([0.0, 6000.0], [0.0, 2000.0, 4000.0, 6000.0]),
    ],
    ids=["unit", "both-signs", "equal", "nothing", "thousands"],
)
def test_axes_have_round_ticks(values: list[float], ticks: list[float]) -> None:
    assert [value for value, _ in axis(values).ticks] == pytest.approx(ticks)


def test_axes_of_counts_go_by_powers() -> None:
    assert [text for _, text in log_axis([4.0, 900.0]).ticks] == ["10", "30", "100", "300", "1,000"]


def test_numbers_are_written_for_people() -> None:
    assert [count(1, "pair"), count(6000, "pair")] == ["1 pair", "6,000 pairs"]
    assert [number(-2.013), number(None), number(math.nan)] == [
        "\N{MINUS SIGN}2.01",
        "\N{EN DASH}",
        "none",
    ]
    assert listed(["a"]) == "a"
    assert listed(["a", "b", "c"]) == "a, b and c"
    assert listed(["a", "b", "c", "d", "e"]) == "a, b, c and 2 more"
