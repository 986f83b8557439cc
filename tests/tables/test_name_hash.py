"""Names may be chosen by whoever wants tables to be slow: counted in slots that are looked at."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from itertools import count, islice
from typing import Any

import pytest
from kestrune import search_analytics
from support.children import run_child
from support.parts import engine_over, evaluation, function_item

FUNCTION_TYPE: Any = type(search_analytics.get_search_stats)
COUNT = 4_000
# Half of the slots are free: few look-ups find another name in their way, and rarely several.
MOST_STEPS_PER_NAME = 6

needs_counts = pytest.mark.skipif(
    not hasattr(FUNCTION_TYPE, "table_steps"), reason="only builds with assertions count"
)


def steps(records: list[Any], question: str, **arguments: Any) -> int:
    """How many slots were looked at to answer a question."""
    engine = engine_over(records)
    before = FUNCTION_TYPE.table_steps()
    getattr(engine, question)(**arguments)
    return int(FUNCTION_TYPE.table_steps() - before)


def with_names(names: Iterator[str]) -> list[Any]:
    return [
        evaluation(function_metadata=[function_item(name, name, name)])
        for name in islice(names, COUNT)
    ]


def in_sequence() -> Iterator[str]:
    return map(str, count())


def same_end_of_hash() -> Iterator[str]:
    """Names whose hashes by the interpreter end in the same bits: all begin in one slot."""
    return (name for name in map(str, count()) if hash(name) & 0x3F == 0)


def one_hash_by_sum() -> Iterator[str]:
    """Names of one length and one sum of letters, as a hash that adds up would tell apart badly."""
    return (f"{number:06d}{999_999 - number:06d}" for number in count())


def that_differ_in_front() -> Iterator[str]:
    return (f"{number:08d}" + "x" * 64 for number in count())


def that_differ_at_the_end() -> Iterator[str]:
    return ("x" * 64 + f"{number:08d}" for number in count())


def that_are_too_long() -> Iterator[str]:
    return ("x" * 300 + str(number) for number in count())


def of_wide_letters() -> Iterator[str]:
    return (chr(0x4E00 + number % 5000) + chr(0x1F600 + number // 5000) for number in count())


CHOICES: dict[str, Callable[[], Iterator[str]]] = {
    choice.__name__.replace("_", " "): choice
    for choice in (
        in_sequence,
        same_end_of_hash,
        one_hash_by_sum,
        that_differ_in_front,
        that_differ_at_the_end,
        that_are_too_long,
        of_wide_letters,
    )
}


@needs_counts
@pytest.mark.parametrize("choice", CHOICES.values(), ids=CHOICES)
@pytest.mark.parametrize(
    ("question", "look_ups"),
    [("get_search_patterns", 2), ("get_search_stats", 2), ("get_correlation_patterns", 2)],
)
def test_no_choice_of_names_makes_a_table_slow(
    question: str, look_ups: int, choice: Callable[[], Iterator[str]]
) -> None:
    arguments = {"aggregate_by": search_analytics.AggregateBy.NONE, "min_sample_size": COUNT + 1}
    records = with_names(choice())
    taken = steps(records, question, **(arguments if question == "get_search_stats" else {}))
    assert taken <= MOST_STEPS_PER_NAME * look_ups * COUNT


@needs_counts
def test_no_choice_of_pairs_makes_their_table_slow() -> None:
    """Pairs of which all begin in one slot, if they were hashed by the numbers of their names."""
    names = [str(number) for number in range(1000)]
    wanted = [
        (first, second)
        for first in range(0, 1000, 2)
        for second in range(first + 2, 1000, 32)
        if (first ^ second) & 0x1F == 2
    ][:COUNT]
    records = [
        evaluation(function_metadata=[function_item(names[i], "F", "S") for i in pair])
        for pair in wanted
    ]
    # Each of the two names, and the pair.
    assert steps(records, "get_correlation_patterns") <= MOST_STEPS_PER_NAME * 3 * len(wanted)


def test_every_process_hashes_in_its_own_way() -> None:
    """The same records in two processes with one hash seed look at other slots."""
    if not hasattr(FUNCTION_TYPE, "table_steps"):
        pytest.skip("only builds with assertions count")
    code = """
        from tables.test_name_hash import in_sequence, steps, with_names
        print(steps(with_names(in_sequence()), "get_search_patterns"))
    """
    runs = {run_child(code, PYTHONHASHSEED="0").stdout for _ in range(4)}
    assert len(runs) > 1


@pytest.mark.parametrize("letters", ["x", "é", "平", "😀"])
def test_names_of_every_length_are_told_apart(letters: str) -> None:
    names = [letters * length for length in range(1, 200)]
    changed = [name[:-1] + "y" for name in names]
    records = [
        evaluation(function_metadata=[function_item(name, name, name)])
        for name in (*names, *changed, *names)
    ]
    yields = engine_over(records).get_search_patterns().family_yield_rates
    expected = dict.fromkeys(names, 2) | dict.fromkeys(changed, 1)
    assert {row.function_family: row.total for row in yields} == expected
