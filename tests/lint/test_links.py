"""Where the documents lead exists: the targets of links, and those of make.

Each look at the documents has a counter-example beside it, which shows that it can fail.
"""

from __future__ import annotations

import re
import shlex

import pytest
from support.texts import ROOT, blocks, broken, paths, prose, spans, text_of

DOCUMENTS = paths("*.md")


# Links.


def anchors(text: str) -> set[str]:
    """Return the anchors of the headings of a text, as they are made of their words."""
    titles = re.findall(r"^#+ (.+)$", prose(text), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def dead_links(text: str, name: str) -> list[str]:
    """Return the targets of links inside the repository that are not there."""
    text = prose(text)
    targets = re.findall(r"\]\(([^)\s]+)[^)]*\)", text)
    targets += re.findall(r"^\[[^\]]+\]:\s*(\S+)", text, re.MULTILINE)
    dead = []
    for target in targets:
        if re.match(r"\w+:", target):
            continue
        path, _, anchor = target.partition("#")
        file = ROOT / name if not path else (ROOT / name).parent / path
        if not file.exists() or (anchor and anchor not in anchors(file.read_text("utf-8"))):
            dead.append(target)
    return dead


def test_links_lead_somewhere() -> None:
    assert broken(dead_links, DOCUMENTS) == {}


@pytest.mark.parametrize(
    ("text", "dead"),
    [
        ("[a](architecture.md) ![b](../benchmarks/results.svg)", []),
        ("[a](architecture.md#rooms) [b](https://example.org/none.md)", []),
        ("[a](README.md)", ["README.md"]),
        ("![a](../results.svg)", ["../results.svg"]),
        ("[a](architecture.md#no-such-heading)", ["architecture.md#no-such-heading"]),
        ("[a][1]\n\n[1]: nowhere.md", ["nowhere.md"]),
    ],
    ids=["there", "heading and web", "other folder", "picture", "no heading", "by reference"],
)
def test_a_link_is_followed_from_its_own_folder(text: str, dead: list[str]) -> None:
    assert dead_links(text, "docs/text.md") == dead


def unreachable(start: str, names: tuple[str, ...]) -> set[str]:
    """Return the texts that no chain of links from `start` leads to."""
    reached, open_ends = {start}, [start]
    while open_ends:
        name = open_ends.pop()
        for path in re.findall(r"\]\(([^)\s#]+)", prose(text_of(name))):
            target = (ROOT / name).parent / path
            found = [other for other in names if (ROOT / other) == target.resolve()]
            open_ends += [other for other in found if other not in reached]
            reached.update(found)
    return set(names) - reached


def test_every_document_can_be_reached_from_the_first_page() -> None:
    assert unreachable("README.md", DOCUMENTS) == set()


def test_a_document_that_nothing_links_to_is_noticed() -> None:
    assert unreachable("examples/data/README.md", ("README.md",)) == {"README.md"}


# Targets and options of make.

MAKEFILE = text_of("Makefile")
TARGETS = set(re.findall(r"^([a-z]+):", MAKEFILE, re.MULTILINE))
OPTIONS = set(re.findall(r"^([A-Z]+) \?=", MAKEFILE, re.MULTILINE))


def make_commands(text: str) -> list[str]:
    """Return the commands that begin with `make` in a text: between backticks, or to paste."""
    shell = text if text.startswith("#!") else "\n".join(blocks(text, "sh"))
    pasted = re.findall(r"^(?:step \w+ )?(make\b.*)$", shell, re.MULTILINE)
    return [span for span in spans(text) if re.match(r"make\s+\S", span)] + pasted


def unknown_targets(text: str, _: str = "") -> list[str]:
    """Return the targets and options of make that a text names and that the Makefile lacks."""
    words = [
        word
        for command in make_commands(text)
        for word in shlex.split(command, comments=True)[1:]
        if not word.startswith("-")
    ]
    return [word for word in words if word not in TARGETS and word.partition("=")[0] not in OPTIONS]


def test_named_targets_of_make_exist() -> None:
    scripts = (name for name in paths("*.py") if not name.startswith("tests/"))
    assert broken(unknown_targets, (*DOCUMENTS, ".ci/run", "Makefile", *scripts)) == {}


def test_commands_to_paste_are_looked_at() -> None:
    assert "make demo" in {
        command.partition("  ")[0] for command in make_commands(text_of("README.md"))
    }
    assert "make -j2 lint" in make_commands(text_of(".ci/run"))


@pytest.mark.parametrize(
    ("text", "unknown"),
    [
        ('`make test ARGS="-k name"`, `make`, `make -j2 lint`; we make things', []),
        ("```sh\nmake demo DATABASE=postgres    # says so\n```", []),
        ("```text\nmake things: printed by something\n```", []),
        ("`make tests`", ["tests"]),
        ("`make bench\nFAST=1`", ["FAST=1"]),
        ("```sh\nmake things    # says so\n```", ["things"]),
    ],
    ids=["there", "pasted", "printed", "no target", "no option", "no pasted target"],
)
def test_a_command_is_known_by_its_targets_and_options(text: str, unknown: list[str]) -> None:
    assert unknown_targets(text) == unknown
