"""What a search tracker's records say, and what that is worth.

    >>> from kestrune_search_report import Questions, Snapshot, collect
    >>> snapshot = Snapshot.from_csv("evaluations.csv", constants={"correlation": 0.0})
    >>> answer = Questions(snapshot).get_search_stats(time_windows="lifetime", min_sample_size=20)
    >>> answer.table.to_pandas(), answer.to_json()
    >>> for finding in collect(snapshot).evidence.findings:
    ...     print(finding.text)

`Snapshot` holds the evaluations of any source and is a tracker to `kestrune.search_analytics`;
`Questions` asks the module's nine questions strictly and answers as flat tables; `collect` asks
all of them and weighs the answers against chance. Nothing of the module is changed.
"""

from typing import Any

from kestrune_search_report.answers import Answer, answer_of
from kestrune_search_report.asking import Questions
from kestrune_search_report.caveats import Caveat
from kestrune_search_report.comparison import Comparison, compare
from kestrune_search_report.errors import ArgumentError, FilterError, ReportError, SourceError
from kestrune_search_report.evidence.findings import Finding
from kestrune_search_report.evidence.gather import Evidence, weigh
from kestrune_search_report.fields import FIELDS
from kestrune_search_report.pools import Pool
from kestrune_search_report.questions import QUESTIONS
from kestrune_search_report.report import Report, collect
from kestrune_search_report.snapshot import Snapshot
from kestrune_search_report.table import Column, Table

__all__ = [
    "FIELDS",
    "QUESTIONS",
    "Answer",
    "ArgumentError",
    "Caveat",
    "Column",
    "Comparison",
    "Evidence",
    "FilterError",
    "Finding",
    "Pool",
    "Questions",
    "Report",
    "ReportError",
    "Snapshot",
    "SourceError",
    "Table",
    "answer_of",
    "collect",
    "compare",
    "weigh",
]


def load_ipython_extension(shell: Any) -> None:
    """Show results as tables in IPython: `%load_ext kestrune_search_report`."""
    from kestrune_search_report import notebook

    notebook.load_ipython_extension(shell)


def unload_ipython_extension(shell: Any) -> None:
    """Show results as they were shown before."""
    from kestrune_search_report import notebook

    notebook.unload_ipython_extension(shell)
