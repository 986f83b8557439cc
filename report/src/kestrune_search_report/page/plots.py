"""Pictures that stretch with the page: their marks are placed in percent, their text is not scaled.

A picture is either rows of HTML with tracks in them, or one SVG element without a view box. What
is a path lies in a nested SVG element that is stretched, and its strokes keep their width.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

from kestrune_search_report.page.markup import Html, el, joined

Point = tuple[float, float]


@dataclass(frozen=True)
class Axis:
    """One axis: from where to where, which ticks, and whether it is logarithmic."""

    low: float
    high: float
    ticks: tuple[tuple[float, str], ...]
    log: bool = False

    def share(self, value: float) -> float:
        """Return how far along the axis a value is, in percent, never off its ends."""
        low, high = self.low, self.high
        if self.log:
            value, low, high = math.log(max(value, 1e-9)), math.log(low), math.log(high)
        place = 100 * (value - low) / (high - low) if high > low else 50.0
        return min(100.0, max(0.0, place))


def axis(
    values: Sequence[float], *, zero: bool = False, digits: str = "", around: Sequence[float] = ()
) -> Axis:
    """Return an axis over finite values with about five round ticks, written by a format."""
    known = [value for value in (*values, *around) if math.isfinite(value)] or [0.0, 1.0]
    low, high = min(known), max(known)
    if zero:
        low, high = min(low, 0.0), max(high, 0.0)
    if high == low:
        low, high = (low, low + 1) if zero else (low - 0.5, high + 0.5)
    rough = (high - low) / 4
    power = 10.0 ** math.floor(math.log10(rough))
    step = next(power * one for one in (1, 2, 2.5, 5, 10) if power * one >= rough)
    start, end = math.floor(low / step + 1e-9), math.ceil(high / step - 1e-9)
    places = max(0, -math.floor(math.log10(step) + 1e-9))
    places += step * 10**places % 1 > 1e-6
    form = digits or f",.{places}f"
    ticks = tuple(
        (step * place, f"{step * place + 0.0:{form}}".replace("-", "\N{MINUS SIGN}"))
        for place in range(start, end + 1)
    )
    return Axis(ticks[0][0], ticks[-1][0], ticks)


def log_axis(values: Sequence[float]) -> Axis:
    """Return a logarithmic axis over positive values, with a tick at each power of ten."""
    low, high = max(min(values), 1) / 1.15, max(*values, 2) * 1.15
    found: list[float] = []
    for power in range(8):
        for step in (1, 3) if high / low < 1000 else (1,):
            if low <= step * 10**power <= high:
                found.append(step * 10**power)
    return Axis(low, high, tuple((one, f"{one:,.0f}") for one in found), log=True)


def place(value: float) -> str:
    """Return a length in percent, as short as it may be."""
    return f"{value:.2f}".rstrip("0").rstrip(".") + "%"


def _pair(point: Point) -> str:
    return " ".join(f"{value:.2f}".rstrip("0").rstrip(".") for value in point)


@dataclass(frozen=True)
class Plot:
    """One picture with two axes."""

    x: Axis
    y: Axis
    height: int = 260

    def at(self, point: Point) -> Point:
        """Return where a point lies, in percent from the upper left corner."""
        return self.x.share(point[0]), 100 - self.y.share(point[1])

    def dots(self, points: Sequence[Point], class_: str) -> Html:
        """Return many dots of one size in one path."""
        path = "".join(f"M{_pair(self.at(point))}h0" for point in points)
        return _stretched(el("path", d=path, class_=f"dots {class_}")) if points else Html("")

    def line(self, points: Sequence[Point], class_: str) -> Html:
        """Return a line through points."""
        path = "M" + "L".join(_pair(self.at(point)) for point in points)
        return _stretched(el("path", d=path, class_=f"line {class_}"))

    def band(self, upper: Sequence[Point], lower: Sequence[Point]) -> Html:
        """Return the area between two lines."""
        path = "M" + "L".join(_pair(self.at(point)) for point in (*upper, *reversed(lower)))
        return _stretched(el("path", d=f"{path}Z", class_="band"))

    def circle(self, point: Point, radius: float, class_: str, title: str) -> Html:
        """Return a circle that says what it is when pointed at."""
        x, y = self.at(point)
        title_mark = el("title", title)
        return el("circle", title_mark, cx=place(x), cy=place(y), r=f"{radius:.1f}", class_=class_)

    def label(self, point: Point, text: str, *, up: float = 10) -> Html:
        """Return a text above a point, towards the middle of the picture."""
        x, y = self.at(point)
        side = "start" if x < 25 else "end" if x > 75 else "middle"
        return el(
            "text", text, x=place(x), y=place(y), dy=f"-{up:.0f}", text_anchor=side, class_="name"
        )

    def bar(self, low: float, high: float, value: float, class_: str, title: str) -> Html:
        """Return a bar that stands on the lower end of the picture."""
        left, right, top = self.x.share(low), self.x.share(high), 100 - self.y.share(value)
        return el(
            "rect",
            el("title", title),
            x=place(left + 0.12 * (right - left)),
            width=place(0.76 * (right - left)),
            y=place(top),
            height=place(100 - top),
            class_=class_,
        )

    def drawn(self, label: str, *marks: Any) -> Html:
        """Return the picture; `label` is what is read out in its place."""
        frame: list[Html] = []
        for value, text in self.y.ticks:
            y = place(100 - self.y.share(value))
            frame.append(el("line", x1="0", x2="100%", y1=y, y2=y, class_="grid"))
            frame.append(el("text", text, x="-7", y=y, dy="4", text_anchor="end"))
        for value, text in self.x.ticks:
            x = place(self.x.share(value))
            frame.append(el("text", text, x=x, y="100%", dy="18", text_anchor="middle"))
        picture = el(
            "svg",
            frame,
            marks,
            role="img",
            aria_label=label,
            width="100%",
            height=self.height,
            class_="plot",
        )
        return el("div", picture, class_="frame")


def _stretched(mark: Html) -> Html:
    return el("svg", mark, viewBox="0 0 100 100", preserveAspectRatio="none", class_="stretched")


def track(
    scale: Axis, low: float, high: float, dot: float, *, mark: float | None = None, kind: str = ""
) -> Html:
    """Return a line from low to high with a dot on it, and a mark to compare with."""
    left, right = scale.share(low), scale.share(high)
    styles = [
        f"left:{place(left)};width:{place(max(right - left, 0.5))}",
        f"left:{place(scale.share(dot))}",
    ]
    marks = [el("i", style=styles[0]), el("b", style=styles[1])]
    if mark is not None:
        marks.insert(0, el("u", style=f"left:{place(scale.share(mark))}"))
    return el("span", marks, class_=f"track {kind}".rstrip())


def bar(scale: Axis, value: float, kind: str = "") -> Html:
    """Return a bar from nothing to a value, to either side."""
    if not math.isfinite(value):
        return el("span", class_="track")
    zero, end = scale.share(0.0), scale.share(value)
    style = f"left:{place(min(zero, end))};width:{place(max(abs(end - zero), 0.5))}"
    return el("span", el("s", style=style), class_=f"track {kind}".rstrip())


def ruler(scale: Axis) -> Html:
    """Return the ticks of the tracks above, to be left to the eye."""
    marks = [
        el("em", text, style=f"left:{place(scale.share(value))}") for value, text in scale.ticks
    ]
    return joined(el("span", marks, class_="ruler", aria_hidden="true"))
