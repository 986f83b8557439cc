"""The page as a browser has it: no request, no barrier, choices in the address, on any screen."""

from __future__ import annotations

import importlib.util
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

Open = Callable[..., Any]


def _axe() -> str:
    found = importlib.util.find_spec("axe_playwright_python")
    if found is None or found.origin is None:
        pytest.skip("the package axe-playwright-python, which carries axe, is not installed")
    (script,) = Path(found.origin).parent.rglob("axe.min.js")
    return script.read_text(encoding="utf-8")


def test_the_page_asks_for_nothing_and_has_no_errors(opened: Open, page_file: Path) -> None:
    page = opened(address="#type=signal&with=%7Cstrategy")
    page.get_by_label("Era").select_option("2012")
    page.wait_for_load_state("networkidle")
    assert page.asked == [page_file.as_uri()]
    assert page.wrong == []


def test_what_a_page_may_do_leaves_no_way_out(opened: Open) -> None:
    page = opened()
    assert page.evaluate("fetch('data:,x').then(() => 'went', () => 'kept')") == "kept"


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize(
    ("width", "address"), [(390, ""), (1280, ""), (1280, "#type=signal&with=%7Cstrategy")]
)
def test_axe_finds_no_violation(opened: Open, width: int, scheme: str, address: str) -> None:
    page = opened(width, scheme, address)
    page.evaluate("document.querySelectorAll('details').forEach((one) => (one.open = true))")
    found = page.evaluate(f"{_axe()}; axe.run()")
    assert len(found["passes"]) > 20
    told = [(one["id"], one["nodes"][0]["html"]) for one in found["violations"]]
    assert told == []


@pytest.mark.parametrize("address", ["", "#type=signal&with=%7Cstrategy"])
def test_no_screen_scrolls_sideways(opened: Open, address: str) -> None:
    page = opened(address=address)
    page.evaluate("document.querySelectorAll('details').forEach((one) => (one.open = true))")
    widths = (320, 390, 600, 768, 1000, 1280, 2560)
    found: list[int] = []
    for width in widths:
        page.set_viewport_size({"width": width, "height": 900})
        found.append(page.evaluate("document.documentElement.scrollWidth"))
    assert tuple(found) == widths


def test_a_choice_is_kept_in_the_address(opened: Open) -> None:
    page = opened()
    whole = page.locator(".tiles dd").first.inner_text()
    page.get_by_label("Era").select_option("2012")
    page.get_by_label("Type").select_option("signal")
    page.wait_for_function("location.hash === '#era=2012&type=signal'")
    part = page.locator(".tiles dd").first.inner_text()
    assert int(part) < int(whole.replace(",", ""))
    again = opened(address="#era=2012&type=signal")
    assert again.locator(".tiles dd").first.inner_text() == part
    assert again.get_by_label("Era").input_value() == "2012"
    assert "Chance is judged over the whole search only" in again.locator("#status").inner_text()
    page.go_back()
    page.wait_for_function("location.hash === '#era=2012'")
    page.get_by_role("button", name="Reset").click()
    page.wait_for_function("document.querySelector('.tiles').dataset.total === '1200'")


def test_an_address_that_leads_nowhere_shows_the_whole_search(opened: Open) -> None:
    page = opened(address="#era=1812")
    assert page.locator(".tiles dd").first.inner_text() == "1,200"
    assert "no view here" in page.locator("#status").inner_text()


def test_two_parts_stand_beside_each_other_with_their_difference(opened: Open) -> None:
    page = opened(address="#type=signal&with=%7Cstrategy")
    assert page.locator("section").count() * 2 == page.locator("section .side").count()
    said = page.locator("#status").inner_text()
    assert said.startswith("signal: ")
    assert "strategy: " in said
    assert "chance" in said
    shared = opened(address="#era=2012&with=%7C")
    assert "share evaluations" in shared.locator("#status").inner_text()


def test_everything_can_be_reached_and_chosen_by_keyboard(opened: Open) -> None:
    page = opened()
    seen: list[str] = []
    for _ in range(40):
        page.keyboard.press("Tab")
        seen.append(
            page.evaluate(
                "(({name, tagName, textContent}) => name || `${tagName} ${textContent}`)"
                "(document.activeElement)"
            )
        )
    assert seen[0] == "A Skip to the report"
    assert {"era", "type", "with", "SUMMARY The call behind this"} <= set(seen)
    page.get_by_label("Era").focus()
    page.keyboard.press("ArrowDown")
    page.wait_for_function("location.hash === '#era=2011'")
    assert page.evaluate("document.activeElement.name") == "era"
    page.get_by_role("link", name="Skill or luck?").focus()
    page.keyboard.press("Enter")
    assert page.evaluate("document.activeElement.id") == "luck"
    assert page.evaluate("location.hash") == "#era=2011"
    page.locator("#luck summary").focus()
    page.keyboard.press("Enter")
    assert page.locator("#luck details").get_attribute("open") is not None


def test_without_scripts_the_whole_search_is_there(opened: Open) -> None:
    page = opened(java_script_enabled=False)
    assert page.locator(".tiles dd").first.inner_text() == "1,200"
    assert not page.locator("form").is_visible()


def test_the_page_is_shown_before_anything_is_asked_of_it(
    opened: Open, record_property: Callable[[str, Any], None]
) -> None:
    page = opened()
    (ready,) = page.evaluate("performance.getEntriesByName('ready').map((one) => one.startTime)")
    # How long it takes depends on the machine; how much there is to build does not.
    record_property("ready_ms", ready)
    assert page.evaluate("document.querySelectorAll('*').length") < 4000
