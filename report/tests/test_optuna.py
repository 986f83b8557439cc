"""Studies of Optuna: real ones, with choices, numbers, failures and pruned trials."""

from __future__ import annotations

from typing import Any

import optuna
import pytest

from kestrune_search_report import QUESTIONS, Questions, Snapshot, SourceError

optuna.logging.set_verbosity(optuna.logging.ERROR)


def objective(trial: Any) -> float:
    kernel = trial.suggest_categorical("kernel", ["rbf", "linear"])
    scaled = trial.suggest_categorical("scaled", [True, False])
    c = trial.suggest_float("C", 0.1, 10.0, log=True)
    if trial.number % 50 == 49:
        raise optuna.TrialPruned
    return float(c + (kernel == "rbf") + scaled)


@pytest.fixture(scope="module")
def study() -> Any:
    made = optuna.create_study(
        direction="minimize", sampler=optuna.samplers.RandomSampler(seed=1), study_name="tuning"
    )
    made.optimize(objective, n_trials=2000)
    return made


def test_thousands_of_trials_answer_all_questions(study: Any) -> None:
    snapshot = Snapshot.from_optuna(study, passed=2.0)
    assert len(snapshot.evaluations) == 1960
    assert snapshot.notes == ("40 of 2000 trials have no value: 40 pruned.",)
    questions = Questions(snapshot)
    for question in QUESTIONS:
        answer = questions.ask(question)
        # Nothing of a trial is a universe.
        some = any(table.rows for table in answer.tables.values())
        assert some or question == "get_available_named_universes"
    groups = {tuple(sorted(row.group_key[0])) for row in snapshot.engine.get_search_stats().rows}
    assert groups == {
        (f"kernel={kernel}", f"scaled={scaled}")
        for kernel in ("rbf", "linear")
        for scaled in (True, False)
    }


def test_a_study_that_minimises_is_turned_round(study: Any) -> None:
    snapshot = Snapshot.from_optuna(study, passed=2.0)
    by_number = {one.eval_id: one for one in snapshot.evaluations}
    best = by_number[str(study.best_trial.number)]
    assert best.sharpe == -study.best_value
    assert all(one.passed_thresholds == (one.sharpe >= -2.0) for one in snapshot.evaluations)


def test_numbers_alone_are_the_functions() -> None:
    made = optuna.create_study(sampler=optuna.samplers.RandomSampler(seed=2))
    made.optimize(lambda trial: trial.suggest_float("x", 0, 1) * trial.suggest_int("n", 1, 4), 100)
    snapshot = Snapshot.from_optuna(made, passed=lambda trial: trial.value < 1)
    patterns = snapshot.engine.get_search_patterns()
    assert sorted(one.function_family for one in patterns.family_yield_rates) == ["n", "x"]
    sizes = [pair.total_cooccurrences for pair in snapshot.engine.get_correlation_patterns().pairs]
    assert sum(sizes) == 100


def test_user_attributes_take_precedence() -> None:
    made = optuna.create_study()

    def tried(trial: Any) -> float:
        trial.set_user_attr("passed_thresholds", trial.number == 0)
        trial.set_user_attr("era_id", "2020")
        return float(trial.suggest_float("x", 0, 1))

    made.optimize(tried, 3)
    snapshot = Snapshot.from_optuna(made)
    assert snapshot.get_available_eras() == ["2020"]
    assert sum(one.passed_thresholds for one in snapshot.evaluations) == 1


def test_who_passes_has_to_be_said(study: Any) -> None:
    with pytest.raises(SourceError, match="passed_thresholds: whether it passed"):
        Snapshot.from_optuna(study)
    with pytest.raises(SourceError, match="has 1"):
        Snapshot.from_optuna(study, passed=1.0, objective=1)
