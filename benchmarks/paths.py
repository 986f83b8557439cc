"""Where things are, and what has to be importable: the example client and the demo."""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
BENCHMARKS = ROOT / "benchmarks"
MODEL = ROOT / "tests" / "model" / "search_analytics_model.py"
# Everything that a run makes for itself, kept for the next one.
BUILD = ROOT / "build" / "bench"


def results(quick: bool) -> Path:
    """The folder of what the runs on each interpreter found out."""
    return BUILD / ("quick" if quick else "results")


def prepare() -> None:
    """Make the build folder; put the example client and the demo on the path.

    The client extends its package, so an installed extension is found beside it.
    """
    BUILD.mkdir(parents=True, exist_ok=True)
    for folder in (ROOT / "examples", ROOT / "examples" / "client"):
        if str(folder) not in sys.path:
            sys.path.insert(1, str(folder))
