"""Records into columns: plain lists, the quickest way into all of the libraries.

Sets of names become one string each here, since it is faster than what the libraries do.
"""

from typing import Any

SEPARATOR = "|"
MEASURES = ("sharpe", "returns", "turnover", "drawdown", "correlation")

Columns = dict[str, list[Any]]


def stats(records: list[Any]) -> Columns:
    """What group statistics are made of, one row per record."""
    per_column = [record.per_column_stats for record in records]
    return {
        "functions": [
            SEPARATOR.join(sorted({item["function_subfamily"] for item in r.function_metadata}))
            for r in records
        ],
        "features": [
            SEPARATOR.join(sorted({item["feature_subfamily"] for item in r.feature_metadata}))
            for r in records
        ],
        "sharpe": [table["gross_returns_sharpe"] for table in per_column],
        "returns": [table["gross_returns_returns"] for table in per_column],
        "turnover": [record.turnover for record in records],
        "drawdown": [table["gross_returns_drawdown"] for table in per_column],
        "correlation": [record.correlation for record in records],
        **outcomes(records),
    }


def outcomes(records: list[Any]) -> Columns:
    """When each record was made, and whether it passed."""
    return {
        "timestamp": [record.timestamp for record in records],
        "passed": [record.passed_thresholds for record in records],
    }


def depths(records: list[Any]) -> Columns:
    """Depth and outcome of each record."""
    return {
        "depth": [record.tree_depth for record in records],
        "passed": [record.passed_thresholds for record in records],
    }


def usage(records: list[Any], key: str) -> Columns:
    """One row per record and distinct function: the record's number, what it used, the outcome."""
    rows = [
        (number, used, record.passed_thresholds)
        for number, record in enumerate(records)
        for used in {item[key] for item in record.function_metadata}
    ]
    numbers, names, passed = zip(*rows, strict=True)
    return {"record": list(numbers), "used": list(names), "passed": list(passed)}
