"""Write RESULTS.md and results.svg from what the runs on all interpreters found out.

Runs on other sources of the extension than those that are here are left out, and named.
"""

import argparse
import os
import sys

import paths


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--quick", action="store_true", help="from quick runs, into build/bench")
    quick = parser.parse_args().quick
    paths.prepare()
    import machine
    import report
    from results import load

    found = [load(file) for file in paths.results(quick).glob("*.json")]
    found.sort(key=lambda results: results.version, reverse=True)
    current = machine.sources()
    runs = [results for results in found if results.sources == current]
    outdated = {
        results.name: "measured on other sources, left out"
        for results in found
        if results.sources != current
    }
    if not runs:
        sys.exit("publish: no run on the sources that are here")
    folder = paths.BUILD if quick else paths.BENCHMARKS
    report.write(folder / "RESULTS.md", runs, outdated)
    print(f"Wrote {os.path.relpath(folder / 'RESULTS.md')}")
    try:
        import picture
    except ImportError as error:
        print(f"No picture: {error}")
        return
    picture.write(folder / "results.svg", runs)
    print(f"Wrote {os.path.relpath(folder / 'results.svg')}")


if __name__ == "__main__":
    main()
