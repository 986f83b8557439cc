"""Sources that hold all mutants at once, of which each process chooses one.

Building takes far longer than a test that notices a mutant, so that there is one build for all of
them: `original` becomes `(::mutant(17) ? (changed) : (original))`. Each line stays where it is:
tracebacks name lines of the sources.
"""

from __future__ import annotations

from catalogue import Mutant


def choice(mutant: Mutant, original: str) -> str:
    """Return the text that is the mutant where it is chosen, and the original elsewhere."""
    chosen, changed = f"::mutant({mutant.number})", in_one_line(mutant.changed)
    if original.endswith((";", "}")):
        return f"if ({chosen}) {{ {changed} }} else {{ {original} }}"
    return f"({chosen} ? ({changed}) : ({original}))"


def in_one_line(text: str) -> str:
    """Return a text without its line breaks."""
    return " ".join(line.strip() for line in text.splitlines())


def render(text: str, mutants: list[Mutant]) -> str:
    """Return the text of a source with choices. A mutant may stand within another's original."""
    spans = sorted(
        ((mutant.span(text), mutant) for mutant in mutants),
        key=lambda entry: (entry[0][0], -entry[0][1]),
    )
    return _render(text, 0, len(text), spans)


def _render(text: str, start: int, end: int, spans: list[tuple[tuple[int, int], Mutant]]) -> str:
    """Return the text from `start` to `end`, of whose mutants outer ones come before inner ones."""
    pieces = []
    while spans:
        (first, last), mutant = spans[0]
        if last > end:
            raise ValueError(f"{mutant.place} overlaps another mutant: {mutant}")
        inner = [entry for entry in spans[1:] if entry[0][0] < last]
        spans = spans[1 + len(inner) :]
        pieces += [text[start:first], choice(mutant, _render(text, first, last, inner))]
        start = last
    return "".join([*pieces, text[start:end]])


def replace(text: str, mutant: Mutant) -> str:
    """Return the text of a source with one mutant in its place."""
    first, last = mutant.span(text)
    lines = "\n" * text.count("\n", first, last)
    return text[:first] + in_one_line(mutant.changed) + lines + text[last:]
