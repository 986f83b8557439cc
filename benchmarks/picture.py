"""results.svg: every contestant's time in terms of the extension's, question by question."""

from pathlib import Path

import matplotlib as mpl
from contestants import CYTHON, EXTENSION, FLOOR, MODEL
from frames.contest import LIBRARIES
from matplotlib.figure import Figure
from matplotlib.ticker import LogLocator, NullLocator
from results import Results
from side_by_side import Line

# Text stays text and nothing depends on the moment: a small file that changes with its figures.
_STYLE = {"svg.fonttype": "none", "svg.hashsalt": "search_analytics", "font.size": 9}

# Contestant: colour and marker.
_LOOKS = {
    FLOOR: ("#999999", "|"),
    EXTENSION: ("#000000", "D"),
    CYTHON: ("#56b4e9", "s"),
    MODEL: ("#0072b2", "o"),
    "polars": ("#e69f00", "^"),
    "DuckDB": ("#009e73", "v"),
    "pandas": ("#d55e00", "P"),
}


def write(file: Path, results: Results) -> None:
    """Draw the questions without filters."""
    lines = [line for line in results.operations if not line.label.endswith("filtered")]
    frames = {line.label: line for line in results.frames}
    with mpl.rc_context(_STYLE):
        figure = Figure(figsize=(8.0, 0.38 * len(lines) + 1.5), layout="constrained")
        axes = figure.subplots()
        for name, (colour, marker) in _LOOKS.items():
            points = [
                (ratio, place)
                for place, line in enumerate(lines)
                if (ratio := _ratio(name, line, frames)) is not None
            ]
            ratios, places = zip(*points, strict=True)
            label = f"{name}, conversion included" if name in LIBRARIES else name
            axes.scatter(
                ratios, places, c=colour, marker=marker, s=42, label=label, zorder=3, linewidths=1.5
            )
        axes.set_xscale("log")
        axes.set_xlabel("time, extension = 1 (logarithmic; to the right is slower)")
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


def _ratio(name: str, line: Line, frames: dict[str, Line]) -> float | None:
    """How many times the extension's time a contestant takes."""
    if name in LIBRARIES:
        line = frames.get(line.label, line)
    spread = line.ratio(name, EXTENSION)
    return None if spread is None else spread.median
