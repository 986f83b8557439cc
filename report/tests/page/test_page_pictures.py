"""What the page looks like, on screens and on paper, beside pictures that a person has looked at.

`PAGE_PICTURES=keep` writes them anew: look at them before they are committed. Other fonts and
another way of drawing them give other pictures, so these tests are skipped where a text is not as
wide as it was.
"""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

Open = Callable[..., Any]
KEPT = Path(__file__).parent / "pictures"
_SCALE = 4
# How far a colour may be off, of 255, and the share of dots that may be farther off than that.
_NOTICED = 32
_TOLERATED = 0.0002


_PROBE = """() => {
    const found = document.createElement("span");
    found.textContent = "What the search has found, 0123456789";
    found.style = "font-size: 100px; position: absolute; white-space: nowrap";
    document.body.append(found);
    const width = found.getBoundingClientRect().width;
    found.remove();
    return `${width.toFixed(1)} ${navigator.userAgent.match(/Chrome\\/\\d+/)}\\n`;
}"""


@pytest.fixture
def same(opened: Open) -> Open:
    """A function that opens the page, where letters are drawn as in the kept pictures."""
    path = KEPT / "letters.txt"
    found = opened().evaluate(_PROBE)
    if os.environ.get("PAGE_PICTURES") == "keep":
        path.write_text(found, encoding="utf-8")
    elif found != path.read_text(encoding="utf-8"):
        pytest.skip("this browser draws letters otherwise than in the kept pictures")
    return opened


def _compare(name: str, picture: Any) -> None:
    """Compare a picture with the kept one at a quarter of its size, where text is only grey."""
    image = pytest.importorskip("PIL.Image")
    chops = pytest.importorskip("PIL.ImageChops")
    small = picture.convert("RGB").reduce(_SCALE)
    path = KEPT / f"{name}.png"
    if os.environ.get("PAGE_PICTURES") == "keep":
        small.save(path, optimize=True)
        return
    with image.open(path) as file:
        kept = file.convert("RGB")
    assert abs(small.height - kept.height) <= 0.01 * kept.height + 1, "of another height"
    size = (min(small.width, kept.width), min(small.height, kept.height))
    found = chops.difference(small.crop((0, 0, *size)), kept.crop((0, 0, *size)))
    red, green, blue = found.split()
    histogram = chops.lighter(chops.lighter(red, green), blue).histogram()
    off = sum(histogram[_NOTICED:]) / sum(histogram)
    assert off < _TOLERATED, f"{off:.3%} of the picture differ"


def _shot(data: bytes) -> Any:
    import io

    return pytest.importorskip("PIL.Image").open(io.BytesIO(data))


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("width", [390, 1280])
def test_screens_look_as_they_did(same: Open, width: int, scheme: str) -> None:
    page = same(width, scheme)
    _compare(f"{width}-{scheme}", _shot(page.screenshot(full_page=True)))


def test_a_comparison_looks_as_it_did(same: Open) -> None:
    page = same(1280, "light", "#type=signal&with=%7Cstrategy")
    _compare("comparison", _shot(page.screenshot(full_page=True)))


def test_paper_looks_as_it_did_and_no_page_of_it_is_half_empty(same: Open) -> None:
    pdfium = pytest.importorskip("pypdfium2")
    document = pdfium.PdfDocument(same().pdf(prefer_css_page_size=True, print_background=True))
    pages = [page.render(scale=1.5).to_pil().convert("RGB") for page in document]
    assert pages[0].width / pages[0].height == pytest.approx(210 / 297, abs=0.01)
    chops = pytest.importorskip("PIL.ImageChops")
    for page in pages[:-1]:
        blank = page.copy()
        blank.paste((255, 255, 255), (0, 0, *page.size))
        bottom = chops.difference(page, blank).getbbox()[3]
        assert bottom > 0.6 * page.height
    image = pytest.importorskip("PIL.Image")
    sheet = image.new("RGB", (sum(page.width for page in pages), pages[0].height))
    at = 0
    for page in pages:
        sheet.paste(page, (at, 0))
        at += page.width
    _compare("paper", sheet)
    document.close()
