"""What the page looks like, on screens and on paper, beside pictures that a person has looked at.

`PAGE_PICTURES=keep` writes them anew: look at them before they are committed.
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


def _compare(name: str, picture: Any) -> None:
    """Compare a picture with the kept one at a quarter of its size, where text is only grey."""
    image = pytest.importorskip("PIL.Image")
    chops = pytest.importorskip("PIL.ImageChops")
    small = picture.convert("RGB").reduce(_SCALE)
    path = KEPT / f"{name}.png"
    if os.environ.get("PAGE_PICTURES") == "keep":
        small.quantize(64).save(path, optimize=True)
        return
    with image.open(path) as file:
        kept = file.convert("RGB")
    assert abs(small.height - kept.height) <= 0.01 * kept.height + 1, "of another height"
    size = (min(small.width, kept.width), min(small.height, kept.height))
    difference = chops.difference(small.crop((0, 0, *size)), kept.crop((0, 0, *size))).convert("L")
    histogram = difference.histogram()
    off = sum(histogram[64:]) / sum(histogram)
    assert off < 0.01, f"{off:.1%} of the picture differ"


def _shot(data: bytes) -> Any:
    import io

    return pytest.importorskip("PIL.Image").open(io.BytesIO(data))


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("width", [390, 1280])
def test_screens_look_as_they_did(opened: Open, width: int, scheme: str) -> None:
    page = opened(width, scheme)
    _compare(f"{width}-{scheme}", _shot(page.screenshot(full_page=True)))


def test_a_comparison_looks_as_it_did(opened: Open) -> None:
    page = opened(1280, "light", "#type=signal&with=%7Cstrategy")
    _compare("comparison", _shot(page.screenshot(full_page=True)))


def test_paper_looks_as_it_did_and_no_page_of_it_is_half_empty(opened: Open) -> None:
    pdfium = pytest.importorskip("pypdfium2")
    document = pdfium.PdfDocument(opened().pdf(prefer_css_page_size=True, print_background=True))
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
