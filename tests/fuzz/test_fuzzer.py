"""The fuzzer works: programs agree; what does not is found, named by its seed and made small."""

from __future__ import annotations

import os
import re
import sys
from pathlib import Path

import pytest
from fuzz.compare import choices_of, difference, shown
from fuzz.shrink import shrunk
from model import search_analytics_model as model
from support.children import run_child

RUN = """
import sys
from fuzz import run
run.HANG_SECONDS = {hang_seconds}
run.MOST_FAILURES, run.BATCH = 1, 250
sys.argv = ["fuzz", {arguments}]
raise SystemExit(run.main())
"""


def fuzz(*arguments: str, check: bool = True, hang_seconds: int = 60, **environment: str) -> str:
    """What a run of the fuzzer prints."""
    source = RUN.format(arguments=", ".join(map(repr, arguments)), hang_seconds=hang_seconds)
    finished = run_child(source, timeout=300, check=check, **environment)
    assert check or finished.returncode == 1, finished.stderr
    return finished.stdout


def subject_of(folder: Path, source: str) -> dict[str, str]:
    """The environment in which a module of that source is the one under test."""
    (folder / "broken_subject.py").write_text(source, encoding="utf-8")
    path = os.pathsep.join([str(folder), *(path for path in sys.path if path)])
    return {"DIFFERENTIAL_SUBJECT": "broken_subject", "PYTHONPATH": path}


def test_programs_of_several_batches_agree() -> None:
    printed = fuzz("--first-seed", "800", "--programs", "400")
    assert re.match(r"400 programs from seed 800 on .*: 0 failures\n$", printed), printed


SOURCE = Path(model.__file__).read_text(encoding="utf-8")

# What is broken: a text of the model, and what replaces it.
BREAKS = {
    "reads that change places": (
        "turnover = ev.turnover\n            correlation = ev.correlation",
        "correlation = ev.correlation\n            turnover = ev.turnover",
    ),
    "a comparison the other way round": ("ev.timestamp >= cutoff]", "cutoff <= ev.timestamp]"),
    "an attribute read twice": ("depth = ev.tree_depth", "depth = ev.tree_depth and ev.tree_depth"),
    "a list of records that is copied": (
        "for ev in evals:\n            passed = 1",
        "for ev in [*evals]:\n            passed = 1",
    ),
    "a truth that is compared": ("                if name:\n", "                if name != '':\n"),
    "a sum that is not in place": ("sums[0] += sharpe", "sums[0] = sharpe + sums[0]"),
    "a pair that is stored where it was found": (
        "pairs.get(key, (0, 0))\n",
        "pairs.setdefault(key, (0, 0))\n",
    ),
}


def source_with(old: str, new: str) -> str:
    """The model's source with one text replaced."""
    assert old in SOURCE
    return SOURCE.replace(old, new)


@pytest.mark.parametrize("flaw", BREAKS)
def test_a_planted_difference_is_found(flaw: str, tmp_path: Path) -> None:
    environment = subject_of(tmp_path, source_with(*BREAKS[flaw]))
    printed = fuzz("--first-seed", "0", "--programs", "4000", check=False, **environment)
    assert re.match(r"Seed \d+: the two differ\n", printed), printed


def test_a_difference_is_shown_with_a_small_program(tmp_path: Path) -> None:
    environment = subject_of(tmp_path, source_with(*BREAKS["reads that change places"]))
    found = fuzz("--first-seed", "0", "--programs", "2000", check=False, **environment)
    seed = re.findall(r"^Seed (\d+):", found)[0]
    printed = fuzz("--seed", seed, check=False, **environment)
    assert f"Seed {seed}, under PYTHONHASHSEED=" in printed
    assert "call get_s" in printed
    assert printed.count("  record ") <= 2
    assert re.search(r"^First difference: \w+", printed, re.MULTILINE)


ENDINGS = {
    "crash": ("import os; os.abort()", "exit code -6 of the child"),
    "hang": ("while True: pass", "it hangs"),
}


@pytest.mark.parametrize("ending", ENDINGS)
def test_what_ends_a_child_is_reported_with_its_seed(ending: str, tmp_path: Path) -> None:
    deed, words = ENDINGS[ending]
    source = source_with("        pairs = {}\n", f"        {deed}\n")
    environment = subject_of(tmp_path, source)
    arguments = ("--first-seed", "0", "--programs", "40", "--jobs", "1")
    printed = fuzz(*arguments, check=False, hang_seconds=2, **environment)
    assert re.match(rf"Seed \d+: {words}\n(?s:.)*in get_correlation_patterns\n", printed), printed


def test_a_seed_is_the_same_program_each_time() -> None:
    programs = [shown(choices_of(seed, model), model) for seed in range(30)]
    assert programs == [shown(choices_of(seed, model), model) for seed in range(30)]
    assert len(set(programs)) == 30


def test_choices_are_shrunk_to_those_that_matter() -> None:
    wanted = shrunk(list(range(50)), lambda choices: 30 in choices and len(choices) > 2)
    assert wanted == [0, 0, 30]


def test_the_model_agrees_with_itself_on_any_choices() -> None:
    for seed in range(50):
        choices = choices_of(seed, model)
        assert difference(choices[::2], model, model) == ""
