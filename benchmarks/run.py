"""Time kestrune.search_analytics against its rivals and against the cost of reading its records.

Answers are compared before anything is timed; the run fails when they differ, never because
something is slow. A whole run takes minutes and writes RESULTS.md and results.svg; a quick one
writes into the build folder.
"""

import argparse
import os
import sys
from dataclasses import replace

import paths


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--quick", action="store_true", help="under a minute; nothing to publish")
    parser.add_argument(
        "-k",
        metavar="TEXT",
        help="only the operations whose label contains TEXT, and nothing else; nothing is written",
    )
    parser.add_argument(
        "--only",
        choices=("fresh", "kinds"),
        help="only the extension and the model on fresh records, or on those of every kind, in "
        "seconds with -k; nothing is written",
    )
    parser.add_argument("--rounds", type=int, metavar="N", help="so many rounds")
    return parser.parse_args()


def main() -> None:
    arguments = parse_arguments()
    paths.prepare()
    # The rest needs what is on the path only now.
    from agreement import DisagreementError
    from settings import FULL, QUICK

    settings = QUICK if arguments.quick else FULL
    if arguments.rounds:
        settings = replace(settings, rounds=arguments.rounds, side_rounds=arguments.rounds)
    if arguments.only:
        from glance import Glance

        getattr(Glance(settings, arguments.k or ""), arguments.only)()
        return
    from whole_run import WholeRun

    run = WholeRun(settings)
    try:
        if arguments.k is not None:
            run.operations(arguments.k)
            return
        run.everything()
    except DisagreementError as error:
        sys.exit(f"benchmark: answers differ: {error}")

    import demands
    import picture
    import report

    print(
        "\nNot met:" if (missed := list(demands.missed(run.results))) else "\nAll demands are met."
    )
    for text in missed:
        print(f"  {text}")
    folder = paths.BUILD if arguments.quick else paths.BENCHMARKS
    for name, write in (("RESULTS.md", report.write), ("results.svg", picture.write)):
        write(folder / name, run.results)
        print(f"Wrote {os.path.relpath(folder / name)}")


if __name__ == "__main__":
    main()
