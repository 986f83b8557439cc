"""Compare the model with the module on many generated cases, and say how many were run.

    PYTHONPATH=tests python -m differential.run_cases --cases 100000
    PYTHONPATH=tests python -m differential.run_cases --kind "search stats" --seed 4711

The second form runs one case and shows both outcomes whole. Ends with code 1 when any case differs.
"""

from __future__ import annotations

import argparse
import time
from pprint import pformat

from differential.cases import KINDS, SUBJECT, compare_seed, outcome, shares, subject
from differential.sources import Seeded
from model import search_analytics_model as model

SHOWN_PER_KIND = 3


def run(cases: int, first_seed: int, kinds: list[str]) -> int:
    """Run `cases` cases split over all kinds, of which only `kinds`; return the differences."""
    module = subject()
    started = time.perf_counter()
    total = differences = 0
    for kind, count in shares(cases).items():
        if kind not in kinds:
            continue
        here = 0
        for seed in range(first_seed, first_seed + count):
            difference = compare_seed(kind, seed, module)
            if difference is not None:
                here += 1
                if here <= SHOWN_PER_KIND:
                    print(difference, flush=True)
        print(f"{kind:24}{count:8} cases {here:6} differences", flush=True)
        total += count
        differences += here
    seconds = time.perf_counter() - started
    print(f"{total} cases against {SUBJECT} in {seconds:.1f} s: {differences} differences")
    return differences


def show(kind: str, seed: int) -> None:
    """Print both outcomes of one case."""
    for side, module in (("model", model), ("module", subject())):
        found, _ = outcome(kind, module, Seeded(f"{kind}/{seed}"))
        print(f"--- {side}: {found.kind}\n{pformat(found.tree)}\ntrace:")
        for entry in found.trace:
            print("   ", entry)
    print(compare_seed(kind, seed, subject()) or "the two agree")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cases", type=int, default=10_000, help="cases in all")
    parser.add_argument("--first-seed", type=int, default=0)
    parser.add_argument("--kind", choices=list(KINDS), action="append", help="only this kind")
    parser.add_argument("--seed", type=int, help="show one case of one kind")
    arguments = parser.parse_args()
    if arguments.seed is not None:
        show((arguments.kind or list(KINDS))[0], arguments.seed)
        return 0
    kinds = arguments.kind or list(KINDS)
    return 1 if run(arguments.cases, arguments.first_seed, kinds) else 0


if __name__ == "__main__":
    raise SystemExit(main())
