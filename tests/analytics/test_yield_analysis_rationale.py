"""What a yield analysis says of every evaluation: the rationale records, and the suspects."""

from __future__ import annotations

import pytest
from support.parts import evaluation
from support.statuses import Connection, rationale, scan

KEYS = (
    *("eval_type", "eval_id", "strategy_pool_id", "signal_pool_id", "strategy_signal_pool"),
    *("status", "useful_flag", "rejection_reason", "is_correlation", "is_pnl_mi"),
    *("agent_is_pnl_mi", "failure_reason", "failure_detail", "agent_server_is_pnl_mi_delta"),
)
MISMATCH, MARKED = "agent_server_is_pnl_mi_mismatch", "failure_marked_tampering"

pytestmark = pytest.mark.usefixtures("now")


def reasons(record, row=None):
    candidates = scan(record, conn=Connection(row)).tamper_candidates
    return candidates[0]["tamper_reasons"] if candidates else []


def test_a_rationale_record_has_its_keys_in_order():
    found = rationale(evaluation())
    assert type(found) is dict
    assert tuple(found) == KEYS


def test_absent_attributes_are_none():
    assert rationale(evaluation()) == {
        **dict.fromkeys(KEYS),
        "eval_type": "signal",
        "eval_id": "e1",
    }


def test_present_attributes_are_taken_as_they_are():
    names = (
        *("strategy_pool_id", "is_correlation", "is_pnl_mi", "agent_is_pnl_mi"),
        *("failure_reason", "failure_detail", "rejection_reason", "eval_id", "signal_pool_id"),
    )
    values = {name: object() for name in names}
    found = rationale(evaluation(**values))
    assert {name: found[name] for name in names} == values


@pytest.mark.parametrize(
    ("kind", "column", "other"),
    [
        ("signal", "signal_pool_id", "strategy_signal_pool"),
        ("strategy", "strategy_signal_pool", "signal_pool_id"),
    ],
)
def test_the_pool_comes_from_the_row_then_from_the_record(kind, column, other):
    record = evaluation(eval_type=kind, **{column: "mine", other: "not mine"})
    assert rationale(record, (None, None, None, "row"))[column] == "row"
    assert rationale(record, (None, None, None, ""))[column] == ""
    assert rationale(record, (None, None, None, None))[column] == "mine"
    assert rationale(record)[column] == "mine"
    assert rationale(record)[other] is None


@pytest.mark.parametrize(
    ("kind", "column"), [("signal", "signal_pool_id"), ("strategy", "strategy_signal_pool")]
)
def test_a_pool_that_nobody_knows_is_none(kind, column):
    assert rationale(evaluation(eval_type=kind))[column] is None
    assert rationale(evaluation(eval_type=kind), (None, None, None, None))[column] is None


def test_other_types_have_no_pool():
    found = rationale(evaluation(eval_type="x", signal_pool_id=1, strategy_signal_pool=2))
    assert (found["signal_pool_id"], found["strategy_signal_pool"]) == (None, None)


def test_the_rejection_reason_comes_from_the_row_then_from_the_record():
    record = evaluation(rejection_reason="mine")
    assert rationale(record, (None, None, "row", None))["rejection_reason"] == "row"
    assert rationale(record, (None, None, "", None))["rejection_reason"] == ""
    assert rationale(record, (None, None, None, None))["rejection_reason"] == "mine"


@pytest.mark.parametrize("missing", ["eval_type", "eval_id"])
def test_a_record_must_have_type_and_id(missing):
    record = evaluation()
    delattr(record, missing)
    with pytest.raises(AttributeError, match=f"no attribute '{missing}'"):
        scan(record)


def test_every_evaluation_has_a_rationale_in_order():
    result = scan(*[evaluation(eval_id=i) for i in "cab"])
    assert [found["eval_id"] for found in result.usefulness_rationale] == list("cab")


@pytest.mark.parametrize(
    ("agent", "server", "delta"),
    [(0.5, 0.75, 0.25), (0.5, 0.5, None), (0, 5, None), ("nan", 1, float("inf")), (None, 1, None)],
    ids=repr,
)
def test_a_disagreement_with_the_server_is_a_reason(agent, server, delta):
    record = evaluation(agent_is_pnl_mi=agent, is_pnl_mi=server)
    assert rationale(record)["agent_server_is_pnl_mi_delta"] == delta
    assert reasons(record) == ([] if delta is None else [MISMATCH])


@pytest.mark.parametrize("name", ["failure_reason", "failure_detail", "rejection_reason"])
@pytest.mark.parametrize(
    "text", ["TAMPER", "marked as tampering", "xTamperedx", ["tamper"]], ids=repr
)
def test_a_text_that_speaks_of_tampering_is_a_reason(name, text):
    assert reasons(evaluation(**{name: text})) == [MARKED]


def test_the_rejection_reason_of_the_row_is_read_too():
    assert reasons(evaluation(), (None, None, "Tampering found", None)) == [MARKED]
    record = evaluation(rejection_reason="tamper")
    assert reasons(record, (None, None, "late", None)) == [MARKED]


@pytest.mark.parametrize("text", ["", None, 0, "tam per", "temper"], ids=repr)
def test_other_texts_are_no_reason(text):
    assert reasons(evaluation(failure_reason=text, failure_detail=text)) == []


def test_texts_are_joined_with_a_single_space_in_order():
    """Two texts do not run together into the word; the four stand in a fixed order."""
    assert reasons(evaluation(failure_reason="tam", failure_detail="per")) == []

    class Text:
        def __init__(self, name):
            self.name = name

        def __str__(self):
            printed.append(self.name)
            return self.name

    printed = []
    record = evaluation(
        failure_reason=Text("reason"), failure_detail=Text("detail"), rejection_reason=Text("own")
    )
    assert reasons(record, (None, None, Text("row"), None)) == []
    assert printed == ["reason", "detail", "row", "own"]


def test_a_suspect_is_a_copy_with_its_reasons_last():
    record = evaluation(agent_is_pnl_mi=1.0, is_pnl_mi=2.0, failure_reason="tamper")
    result = scan(record, evaluation())
    (suspect,) = result.tamper_candidates
    assert result.tamper_candidate_count == 1
    assert tuple(suspect) == (*KEYS, "tamper_reasons")
    assert suspect["tamper_reasons"] == [MISMATCH, MARKED]
    original = result.usefulness_rationale[0]
    assert original is not suspect
    assert "tamper_reasons" not in original
    assert {key: suspect[key] for key in KEYS} == original


WIDE = {"latin": "größe", "two bytes": "平均", "four bytes": "😀"}


@pytest.mark.parametrize("name", ["failure_reason", "failure_detail", "rejection_reason"])
@pytest.mark.parametrize("wide", WIDE.values(), ids=WIDE)
def test_a_text_of_any_letters_may_speak_of_tampering(wide, name):
    assert reasons(evaluation(**{name: f"{wide} TAMPERing {wide}"})) == [MARKED]
    assert reasons(evaluation(**{name: f"{wide} tamp {wide} er"})) == []


def test_texts_side_by_side_are_no_word():
    for wide in ("", "平"):
        record = evaluation(failure_reason=f"{wide}tam", failure_detail="per")
        assert reasons(record) == []


@pytest.mark.parametrize("word", ["tampeŕ", "\uff54amper", "t\u0430mper"], ids=ascii)
def test_letters_that_only_look_alike_are_no_word(word):
    assert reasons(evaluation(failure_reason=word)) == []
