"""Answers, evidence and whole reports as JSON, and the JSON Schemas that describe it.

Every document names its `format` and `version`. A version only ever gains properties; what a
property means, its type and its unit stay. A number that JSON has none for is one of the texts
"NaN", "Infinity" and "-Infinity"; null stands where nothing is known.
"""

from __future__ import annotations

import json
import math
from collections.abc import Iterable, Mapping
from dataclasses import asdict
from typing import TYPE_CHECKING, Any

import msgspec

from kestrune_search_report.comparison import COLUMNS as COMPARISON_COLUMNS
from kestrune_search_report.evidence.shapes import SHAPES as EVIDENCE_SHAPES
from kestrune_search_report.frames import number_word
from kestrune_search_report.narrowing import is_mapping, is_sequence, is_set
from kestrune_search_report.questions import POOL_PREFIX, SHAPES, VERSION
from kestrune_search_report.table import Column, Table

if TYPE_CHECKING:
    from kestrune_search_report.answers import Answer
    from kestrune_search_report.comparison import Comparison
    from kestrune_search_report.evidence.gather import Evidence
    from kestrune_search_report.report import Report

ANSWER_FORMAT = "kestrune-search-report/answer"
EVIDENCE_FORMAT = "kestrune-search-report/evidence"
REPORT_FORMAT = "kestrune-search-report/report"
COMPARISON_FORMAT = "kestrune-search-report/comparison"
_DIALECT = "https://json-schema.org/draft/2020-12/schema"

# The kinds of cells: each may be null as well.
_KINDS: dict[str, dict[str, Any]] = {
    "text": {"type": ["string", "null"]},
    "integer": {"type": ["integer", "null"]},
    "number": {"anyOf": [{"type": ["number", "null"]}, {"enum": ["NaN", "Infinity", "-Infinity"]}]},
    "flag": {"type": ["boolean", "null"]},
    "texts": {"type": ["array", "null"], "items": {"type": "string"}},
}


def encoded(document: Any) -> str:
    """Return a document as one line of JSON with a line break at its end."""
    return msgspec.json.encode(plain(document)).decode() + "\n"


def plain(value: Any) -> Any:
    """Return a value as JSON can say it: numbers that it cannot become words, sets sorted lists."""
    if isinstance(value, float) and not math.isfinite(value):
        return number_word(value)
    if is_mapping(value):
        return {str(key): plain(item) for key, item in value.items()}
    if is_set(value):
        return sorted(plain(item) for item in value)
    if is_sequence(value):
        return [plain(item) for item in value]
    return value if value is None or isinstance(value, str | int | float | bool) else str(value)


def answer_document(answer: Answer) -> dict[str, Any]:
    """Return an answer as nested dictionaries and lists."""
    return {
        "format": ANSWER_FORMAT,
        "version": VERSION,
        "question": answer.question,
        "arguments": dict(answer.arguments),
        "summary": answer.figures,
        "tables": table_documents(answer.tables.values()),
    }


def table_documents(tables: Iterable[Table]) -> dict[str, list[dict[str, Any]]]:
    """Return tables by name, each as a list of dictionaries."""
    return {table.name: list(table.dicts()) for table in tables}


def answer_json(answer: Answer) -> str:
    """Return an answer as JSON that `answer_schema` describes."""
    return encoded(answer_document(answer))


def row_schema(columns: Iterable[Column], pools: bool = False) -> dict[str, Any]:
    """Return the schema of one row of a table."""
    known = list(columns)
    schema: dict[str, Any] = {
        "type": "object",
        "properties": {
            column.name: {"description": column.meaning, "$ref": f"#/$defs/{column.kind}"}
            for column in known
        },
        "required": [column.name for column in known],
        "additionalProperties": False,
    }
    if pools:
        schema["patternProperties"] = {
            f"^{POOL_PREFIX}": {
                "description": "share that is submittable to the pool named after the colon",
                "$ref": "#/$defs/number",
            }
        }
    return schema


def tables_schema(tables: Mapping[str, dict[str, Any]]) -> dict[str, Any]:
    """Return the schema of tables by name, from that of a row of each."""
    return {
        "type": "object",
        "properties": {name: {"type": "array", "items": row} for name, row in tables.items()},
        "required": list(tables),
        "additionalProperties": False,
    }


def answer_schema() -> dict[str, Any]:
    """Return the JSON Schema of an answer, whatever the question."""
    answers = [one_answer_schema(question) for question in SHAPES]
    return whole_schema("Answer to one question about a search", {"oneOf": answers})


def whole_schema(title: str, schema: Mapping[str, Any]) -> dict[str, Any]:
    """Return a schema with what all of them share."""
    return {
        "$schema": _DIALECT,
        "title": title,
        "description": (
            "Numbers that JSON has none for are the texts NaN, Infinity and -Infinity; null "
            "stands where nothing is known. Lists of names are sorted."
        ),
        "$defs": _KINDS,
        **schema,
    }


def one_answer_schema(question: str) -> dict[str, Any]:
    """Return the schema of the answer to one question."""
    shape = SHAPES[question]
    tables = {
        name: row_schema(columns, shape.pool_columns) for name, columns in shape.tables.items()
    }
    return document_schema(
        ANSWER_FORMAT,
        {
            "question": {"const": question},
            "arguments": {"type": "object", "description": "what was asked, by parameter"},
            "summary": row_schema(shape.summary),
            "tables": tables_schema(tables),
        },
    )


def document_schema(kind: str, properties: Mapping[str, Any]) -> dict[str, Any]:
    """Return the schema of a document of a format, with these properties of its own."""
    return {
        "type": "object",
        "properties": {"format": {"const": kind}, "version": {"const": VERSION}, **properties},
        "required": ["format", "version", *properties],
        "additionalProperties": False,
    }


def evidence_document(evidence: Evidence) -> dict[str, Any]:
    """Return evidence as nested dictionaries and lists."""
    return {
        "format": EVIDENCE_FORMAT,
        "version": VERSION,
        "filters": dict(evidence.filters),
        "assumptions": evidence.assumptions,
        "findings": [asdict(finding) for finding in evidence.findings],
        "tables": table_documents(evidence.tables.values()),
    }


def evidence_json(evidence: Evidence) -> str:
    """Return evidence as JSON that `evidence_schema` describes."""
    return encoded(evidence_document(evidence))


def report_document(report: Report) -> dict[str, Any]:
    """Return a whole report as nested dictionaries and lists."""
    snapshot = report.snapshot
    return {
        "format": REPORT_FORMAT,
        "version": VERSION,
        "source": snapshot.name,
        "evaluations": len(snapshot.evaluations),
        "arguments": dict(report.arguments),
        "caveats": [asdict(caveat) for caveat in report.caveats],
        "answers": [answer_document(answer) for answer in report.answers.values()],
        "evidence": evidence_document(report.evidence),
    }


def report_json(report: Report) -> str:
    """Return a report as JSON that `report_schema` describes."""
    return encoded(report_document(report))


def comparison_json(comparison: Comparison) -> str:
    """Return a comparison as JSON that `comparison_schema` describes."""
    document = {
        "format": COMPARISON_FORMAT,
        "version": VERSION,
        "sources": [comparison.name_a, comparison.name_b],
        "filters": dict(comparison.filters),
        "assumptions": comparison.assumptions,
        "findings": [asdict(finding) for finding in comparison.findings],
        "parts": list(comparison.table.dicts()),
    }
    return encoded(document)


def _object_schema(**texts: str) -> dict[str, Any]:
    """Return the schema of an object of texts, from what each says; "claims" is a flag."""
    return {
        "type": "object",
        "properties": {
            name: {"type": "boolean" if name == "claims" else "string", "description": text}
            for name, text in texts.items()
        },
        "required": list(texts),
        "additionalProperties": False,
    }


def _findings_part() -> dict[str, Any]:
    finding = _object_schema(
        about="the table that it is about",
        claims="whether something is told apart from chance",
        text="the finding in words",
    )
    return {
        "filters": {"type": "object", "description": "which evaluations it is about"},
        "assumptions": {"type": "string", "description": "what the tests take for granted"},
        "findings": {"type": "array", "items": finding},
    }


def _evidence_part() -> dict[str, Any]:
    tables = {name: row_schema(columns) for name, columns in EVIDENCE_SHAPES.items()}
    return document_schema(EVIDENCE_FORMAT, {**_findings_part(), "tables": tables_schema(tables)})


def evidence_schema() -> dict[str, Any]:
    """Return the JSON Schema of evidence."""
    return whole_schema("Evidence on a search", _evidence_part())


def report_schema() -> dict[str, Any]:
    """Return the JSON Schema of a report."""
    caveat = _object_schema(about="a short name of the warning", text="the warning in words")
    part = document_schema(
        REPORT_FORMAT,
        {
            "source": {"type": "string", "description": "what was asked"},
            "evaluations": {"type": "integer", "description": "evaluations in it"},
            "arguments": {"type": "object", "description": "what all of it goes by"},
            "caveats": {"type": "array", "items": caveat},
            "answers": {
                "type": "array",
                "items": {"oneOf": [one_answer_schema(question) for question in SHAPES]},
            },
            "evidence": _evidence_part(),
        },
    )
    return whole_schema("Report on a search", part)


def comparison_schema() -> dict[str, Any]:
    """Return the JSON Schema of a comparison."""
    sources = {"type": "array", "items": {"type": "string"}, "minItems": 2, "maxItems": 2}
    properties = {
        "sources": sources,
        **_findings_part(),
        "parts": {"type": "array", "items": row_schema(COMPARISON_COLUMNS)},
    }
    part = document_schema(COMPARISON_FORMAT, properties)
    return whole_schema("Comparison of two searches", part)


def schemas() -> dict[str, str]:
    """Return the checked-in schemas by the names of their files, as texts."""
    made = {
        f"answer-{VERSION}.json": answer_schema(),
        f"comparison-{VERSION}.json": comparison_schema(),
        f"evidence-{VERSION}.json": evidence_schema(),
        f"report-{VERSION}.json": report_schema(),
    }
    return {name: json.dumps(schema, indent=2) + "\n" for name, schema in made.items()}
