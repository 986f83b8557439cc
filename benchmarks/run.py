"""Time kestrune.search_analytics on this interpreter: against its rivals, and against the cost of
reading its records.

Answers are compared before anything is timed; the run fails when they differ, never because
something is slow. All that was found out is kept in a file of the build folder, from which
publish.py makes RESULTS.md and results.svg. For whoever changes the extension:

    python benchmarks/run.py --only fresh -k patterns --rounds 5
    python benchmarks/run.py --only kinds -k patterns
"""

import argparse
import os
import sys
from dataclasses import replace
from pathlib import Path

import paths


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--quick", action="store_true", help="in a minute; nothing to publish")
    parser.add_argument(
        "-k",
        metavar="TEXT",
        default="",
        help="only the operations whose label contains TEXT, and nothing else; nothing is written",
    )
    parser.add_argument(
        "--only",
        choices=("fresh", "kinds"),
        help="only the extension and the model on fresh records, or on those of every kind, in "
        "seconds with -k; nothing is written",
    )
    parser.add_argument("--rounds", type=int, metavar="N", help="so many rounds")
    parser.add_argument(
        "--json", type=Path, metavar="FILE", help="keep the results in FILE instead"
    )
    return parser.parse_args()


def main() -> None:
    arguments = parse_arguments()
    paths.prepare()
    # The rest needs what is on the path only now.
    from agreement import DisagreementError
    from settings import FULL, QUICK

    settings = QUICK if arguments.quick else FULL
    if arguments.rounds:
        names = ("rounds", "fresh_rounds", "kind_rounds", "side_rounds")
        settings = replace(settings, **dict.fromkeys(names, arguments.rounds))
    try:
        if arguments.only:
            from glance import Glance

            getattr(Glance(settings, arguments.k), arguments.only)()
            return
        from whole_run import WholeRun

        run = WholeRun(settings)
        if arguments.k:
            run.operations(arguments.k)
            return
        results = run.everything()
    except DisagreementError as error:
        sys.exit(f"benchmark: answers differ: {error}")
    file = arguments.json or paths.results(arguments.quick) / f"{results.name}.json"
    results.save(file)
    print(f"\nWrote {os.path.relpath(file)}")
    import demands

    missed = list(demands.missed(results))
    print("Not met:" if missed else "All demands are met.")
    for text in missed:
        print(f"  {text}")


if __name__ == "__main__":
    main()
