"""A made-up search as a page, and a real browser to open it in."""

from __future__ import annotations

import shutil
from collections.abc import Callable, Iterator
from datetime import datetime, timezone
from pathlib import Path
from typing import Any

import pytest

from kestrune_search_report import Snapshot
from kestrune_search_report.page.document import document
from kestrune_search_report.page.views import views_of
from support.searches import POOLS, records
from support.trackers import ListTracker

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")
Open = Callable[..., Any]


@pytest.fixture(scope="session")
def page_file(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The page of 1200 evaluations, as a file."""
    rows = records(1200, seed=5)
    tracker = ListTracker(rows)
    for place, row in enumerate(row for row in rows if row["submitted"]):
        tracker.add_status(row, ("useful", "not_useful", "rejected")[place % 3], place % 3 == 0)
    snapshot = Snapshot.of(tracker, pools=POOLS, name="made up")
    tracker.close()
    made = document(views_of(snapshot, {}, {}), datetime(2026, 3, 1, tzinfo=timezone.utc))
    path = tmp_path_factory.mktemp("page") / "report.html"
    path.write_text(made, encoding="utf-8")
    return path


@pytest.fixture(scope="module")
def browser() -> Iterator[Any]:
    """A browser without a window; tests that need it are skipped where there is none."""
    if CHROMIUM is None:
        pytest.skip("there is no chromium; Debian's package of that name has it")
    driver = pytest.importorskip("playwright.sync_api")
    with driver.sync_playwright() as started:
        # A container's root has no sandbox to give.
        found = started.chromium.launch(
            executable_path=CHROMIUM, args=["--no-sandbox", "--hide-scrollbars"]
        )
        yield found
        found.close()


@pytest.fixture
def opened(browser: Any, page_file: Path) -> Iterator[Open]:
    """A function that opens the page: how wide, in which scheme, at which part of the address.

    What it returns has, as `asked`, all addresses that it asked for, and as `wrong` its errors.
    """
    contexts: list[Any] = []

    def start(width: int = 1280, scheme: str = "light", address: str = "", **more: Any) -> Any:
        context = browser.new_context(
            viewport={"width": width, "height": 900}, color_scheme=scheme, **more
        )
        contexts.append(context)
        shown = context.new_page()
        shown.asked, shown.wrong = [], []
        shown.on("request", lambda request: shown.asked.append(request.url))
        shown.on("pageerror", lambda error: shown.wrong.append(str(error)))
        shown.on("console", lambda message: shown.wrong.append(message.text))
        shown.goto(page_file.as_uri() + address)
        return shown

    yield start
    for context in contexts:
        context.close()
