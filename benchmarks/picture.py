"""results.svg: every contestant's time on fresh records, in terms of the extension's."""

from collections.abc import Iterator, Sequence
from pathlib import Path

import matplotlib as mpl
from contestants import CYTHON, EXTENSION, MODEL
from frames.contest import LIBRARIES
from fresh import Fresh
from matplotlib.figure import Figure
from matplotlib.ticker import LogLocator, NullLocator
from results import Results

# Text stays text and nothing depends on the moment: a small file that changes with its figures.
_STYLE = {"svg.fonttype": "none", "svg.hashsalt": "search_analytics", "font.size": 9}

_REPEATED = f"{MODEL}, repeated call"

# Contestant: colour, marker and whether the marker is filled.
_LOOKS = {
    EXTENSION: ("#000000", "D", True),
    CYTHON: ("#56b4e9", "s", True),
    MODEL: ("#0072b2", "o", True),
    _REPEATED: ("#0072b2", "o", False),
    "polars": ("#e69f00", "^", True),
    "DuckDB": ("#009e73", "v", True),
    "pandas": ("#d55e00", "P", True),
}


def write(file: Path, runs: Sequence[Results]) -> None:
    """Draw the questions without filters on the newest interpreter, which comes first.

    The libraries are shown as they are on the newest that they can be installed for.
    """
    newest = runs[0]
    with_frames = next((results for results in runs if results.frames), newest)
    lines = [line for line in newest.fresh if not line.label.endswith("filtered")]
    with mpl.rc_context(_STYLE):
        figure = Figure(figsize=(8.0, 0.38 * len(lines) + 1.5), layout="constrained")
        axes = figure.subplots()
        for name, (colour, marker, is_filled) in _LOOKS.items():
            points = list(_points(name, lines, newest, with_frames))
            if not points:
                continue
            axes.scatter(
                *zip(*points, strict=True),
                facecolors=colour if is_filled else "none",
                edgecolors=colour,
                marker=marker,
                s=42,
                label=_label(name, newest, with_frames),
                zorder=3,
                linewidths=1.5,
            )
        axes.set_xscale("log")
        axes.set_xlabel(
            f"time on fresh records, CPython {newest.name}; extension = 1, to the right is slower"
        )
        axes.xaxis.set_major_locator(LogLocator(subs=(1.0, 2.0, 5.0)))
        axes.xaxis.set_major_formatter(lambda value, _: f"{value:g}")
        axes.xaxis.set_minor_locator(NullLocator())
        axes.set_yticks(range(len(lines)), [line.label for line in lines])
        axes.invert_yaxis()
        axes.grid(axis="both", color="#e5e5e5", linewidth=0.8)
        axes.spines[["top", "right", "left"]].set_visible(False)
        axes.tick_params(axis="y", length=0)
        figure.legend(loc="outside upper center", ncols=4, frameon=False)
        figure.savefig(file, metadata={"Date": None})


def _points(
    name: str, lines: Sequence[Fresh], newest: Results, with_frames: Results
) -> Iterator[tuple[float, int]]:
    """Yield how many times the extension's time a contestant takes, and in which row."""
    frames = {line.label: line for line in with_frames.frames}
    repeated = {line.label: line for line in newest.operations}
    for place, line in enumerate(lines):
        if name in LIBRARIES:
            spread = frames[line.label].ratio(name) if line.label in frames else None
        elif name == _REPEATED:
            spread = repeated[line.label].over_model
        else:
            spread = line.ratio(name)
        if spread is not None:
            yield spread.median, place


def _label(name: str, newest: Results, with_frames: Results) -> str:
    if name not in LIBRARIES:
        return name
    version = "" if with_frames is newest else f", CPython {with_frames.name}"
    return f"{name}, conversion included{version}"
