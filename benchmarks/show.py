"""Lines on the terminal, as a run goes on."""

import sys
from collections.abc import Sequence

import by_kind
import demands
from by_kind import KindLine
from contestants import EXTENSION, MODEL
from fresh import Fresh
from timing import Race, Spread

_VERSION = sys.version_info[:2]

FRESH_HEADING = (
    f"  {'times faster than the model:':<43}{'fresh (quartiles)':>22}{'needed':>8}"
    f"{'coll. off':>11}{'repeated':>10}{'fresh, ms':>11}{'repeated':>10}{'ratio':>7}"
    f"{'collector: ext.':>17}{'model':>7}"
)
KIND_HEADING = (
    f"  {'times faster than the model:':<43}{'':<27}{'fresh (quartiles)':>22}{'share':>8}"
    f"{'fresh, ms':>11}"
)


def fresh_row(line: Fresh, repeated: Race) -> str:
    """What the first calls and the repeated ones of an operation took."""
    first, again = line.on.time(EXTENSION).median, repeated.time(EXTENSION).median
    mark = "!" if demands.is_slow(line, _VERSION) else " "
    return (
        f"  {line.label:<43}{_spread(line.ratio(MODEL)):>22}"
        f"{demands.faster(line.label, _VERSION):7g}{mark}"
        f"{line.ratio_uncollected(MODEL).median:11.2f}"
        f"{repeated.ratio(MODEL, EXTENSION).median:10.2f}"
        f"{first * 1e3:11.3f}{again * 1e3:10.3f}{first / again:7.2f}"
        f"{line.collecting(EXTENSION):17.0%}{line.collecting(MODEL):7.0%}"
    )


def kind_row(line: KindLine, lines: Sequence[KindLine]) -> str:
    """How a kind fares, beside the other kinds of the same question."""
    share, demand = by_kind.share(line, lines), demands.share_at_least(_VERSION)
    mark = "!" if demand is not None and share < demand else " "
    return (
        f"  {line.label:<43}{line.kind:<27}{_spread(line.over_model):>22}{share:7.0%}{mark}"
        f"{line.race.time(EXTENSION).median * 1e3:11.3f}"
    )


def _spread(spread: Spread) -> str:
    return f"{spread.median:.2f} ({spread.low:.2f} to {spread.high:.2f})"
