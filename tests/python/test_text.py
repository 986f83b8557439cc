"""Exact strings are told apart, and put in order, letter by letter: of every width and length."""

from __future__ import annotations

import itertools
from typing import Any

import pytest
from kestrune.search_analytics import TimeWindow
from support.parts import engine_over, evaluation, using

# Letters of one, two and four bytes, and such as look alike in part of them.
WIDTHS = {"one byte": "ab", "latin": "éè", "two bytes": "\u0430\u0450", "four bytes": "😀😁"}
LENGTHS = (1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 31, 40)


def matching(wanted: str, eras: list[str]) -> list[str]:
    """The eras, of those that records have, that equal the one wanted."""
    evals: list[Any] = [evaluation(era_id=era) for era in eras]
    kept = engine_over([])._filter_by_time_window(evals, TimeWindow.ERA, wanted, 0.0)
    return [record.era_id for record in kept]


@pytest.mark.parametrize("letters", WIDTHS.values(), ids=WIDTHS)
@pytest.mark.parametrize("length", LENGTHS)
def test_texts_that_differ_in_any_one_letter_are_not_the_same(length: int, letters: str) -> None:
    letter, other = letters
    wanted = letter * length
    eras = [wanted[:place] + other + wanted[place + 1 :] for place in range(length)]
    equal = "".join([letter] * length)
    assert matching(wanted, [*eras, equal, wanted + letter, wanted[1:]]) == [equal]


def test_texts_of_several_widths_are_not_the_same() -> None:
    # The same bytes, read as letters of one byte, of two and of four.
    wide = ["aaaa", "\u6161\u6161", "\U00010061", "a\0a\0", "aa\u0500\u0500", "\u0061\u0161"]
    for wanted in wide:
        assert matching(wanted, ["b", *wide]) == [wanted]


ORDERED = ["a", "aa", "ab", "b", "é", "ü", "ā", "\u0430", "平", "\ue000", "😀", "😀a", "😁"]


@pytest.mark.parametrize(
    "pair", list(itertools.combinations(ORDERED, 2)), ids=lambda pair: f"{pair[0]!a} {pair[1]!a}"
)
def test_the_smaller_name_of_a_pair_comes_first(pair: tuple[str, str]) -> None:
    for names in (pair, pair[::-1]):
        (found,) = engine_over([using(*names)]).get_correlation_patterns().pairs
        assert (found.function_a, found.function_b) == pair


def test_pairs_that_pass_equally_often_are_ranked_by_their_names() -> None:
    names = sorted(ORDERED)
    pairs = engine_over([using(*names[::-1])]).get_correlation_patterns(top_n=200).pairs
    found = [(pair.function_a, pair.function_b) for pair in pairs]
    assert found == list(itertools.combinations(names, 2))
