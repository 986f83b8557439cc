"""Count the machine instructions that each question takes per record.

Unlike times, the counts of two runs are the same, so that a gain of one percent shows. Valgrind's
cachegrind counts, in a process that asks a question a few times and in one that asks it some more
times: in the difference, what both do besides cancels out (imports, making the records, the first
calls, which hash the names). Dropping an answer is counted, too. The garbage collector is off: a
small change elsewhere would move its turns from one call to another. And the counting is repeated
with the extension's names at other addresses, of which the median is taken: where two of them fall
into one place of the interpreter's cache of look-ups, a question can cost five percent more.
"""

import argparse
import json
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import NoReturn

import paths

RECORDS = 2_000
# The first calls are different: they hash names, and the interpreter learns its way.
FEW_CALLS = 2
MORE_CALLS = 6
LAYOUTS = 3

_COUNTED = paths.BENCHMARKS / "counted.py"


class CountingError(Exception):
    """The counting did not work; the text says why."""


@dataclass
class Counts:
    """The instructions per record of each question, by its label, and what they are of."""

    python: str
    records: int
    extension: str = ""
    instructions: dict[str, float] = field(default_factory=dict)


def main() -> None:
    arguments = _parse_arguments()
    valgrind = shutil.which("valgrind")
    if valgrind is None:
        _stop("valgrind is not installed, and nothing else counts instructions here")
    try:
        old = _read(arguments.compare) if arguments.compare else None
        new = Counts(f"{platform.python_implementation()} {platform.python_version()}", RECORDS)
        for label, figure in _count(valgrind, arguments.only, arguments.extension_path, new):
            if not new.instructions:
                print("\n".join(_heading(new, old)))
            new.instructions[label] = figure
            print(_row(label, figure, old.instructions if old else None), flush=True)
        if arguments.json:
            arguments.json.write_text(json.dumps(asdict(new), indent=2) + "\n")
    except (CountingError, OSError) as error:
        _stop(str(error))


def _parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument(
        "--only",
        metavar="TEXT",
        action="append",
        default=[],
        help="only the questions whose label contains TEXT; may be given several times",
    )
    parser.add_argument(
        "--extension-path",
        metavar="FOLDER",
        type=Path,
        help="take the extension that is in FOLDER/kestrune, such as build/release of another "
        "working copy, instead of the installed one; it must be built for this interpreter",
    )
    parser.add_argument("--json", metavar="FILE", type=Path, help="write the figures to FILE")
    parser.add_argument(
        "--compare",
        metavar="FILE",
        type=Path,
        help="print the figures of FILE, which --json wrote, beside the new ones",
    )
    return parser.parse_args()


def _stop(reason: str) -> NoReturn:
    print(f"instructions: {reason}", file=sys.stderr)
    sys.exit(2)


def _read(file: Path) -> Counts:
    try:
        return Counts(**json.loads(file.read_text()))
    except (TypeError, ValueError) as error:
        raise CountingError(f"{file} holds no figures that --json wrote: {error}") from error


def _heading(new: Counts, old: Counts | None) -> Iterable[str]:
    """Return the lines above the figures."""
    yield f"Instructions per record, {new.records} records, {new.python}, {new.extension}"
    if old is None:
        return
    for what in ("python", "records"):
        before, now = getattr(old, what), getattr(new, what)
        if before != now:
            yield f"  The old figures are of other {what}: {before}, not {now}."
    yield f"  {'':<58}{'old':>10}{'new':>10}{'new / old':>11}"


def _row(label: str, figure: float, old: Mapping[str, float] | None) -> str:
    """Return one line of the table: old, new and their ratio, or just the figure."""
    if old is None:
        return f"  {label:<58}{figure:10.1f}"
    before = old.get(label)
    if before is None:
        return f"  {label:<58}{'':10}{figure:10.1f}"
    return f"  {label:<58}{before:10.1f}{figure:10.1f}{figure / before:11.3f}"


def _count(
    valgrind: str, only: list[str], folder: Path | None, counts: Counts
) -> Iterator[tuple[str, float]]:
    """Yield the label and the instructions per record of each question that is asked for.

    Notes in `counts` which extension it was. All processes are forks of one that has made the
    records; each leaves a file that is named after its id.
    """
    environment = os.environ | {"PYTHONHASHSEED": "0"}
    if folder is not None:
        others = environment.get("PYTHONPATH")
        environment["PYTHONPATH"] = os.pathsep.join(
            [str(folder.resolve()), *([others] if others else [])]
        )
    with tempfile.TemporaryDirectory(prefix="instructions-") as made:
        command = [
            *(valgrind, "--tool=cachegrind", "--cache-sim=no"),
            *(f"--cachegrind-out-file={made}/%p", f"--log-file={made}/log-%p"),
            *(sys.executable, str(_COUNTED)),
            *map(str, (RECORDS, LAYOUTS, FEW_CALLS, MORE_CALLS)),
            *only,
        ]
        with subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, text=True) as run:
            assert run.stdout is not None
            try:
                counts.extension = json.loads(run.stdout.readline() or '""')
                _require_within(folder, counts.extension)
                for line in run.stdout:
                    label, layouts = json.loads(line)
                    yield label, statistics.median(_per_record(made, *pair) for pair in layouts)
            except BaseException:
                run.terminate()
                raise
        if run.returncode != 0:
            raise CountingError(f"what was to be counted ended with {run.returncode}")


def _require_within(folder: Path | None, extension: str) -> None:
    """Raise CountingError if another extension was found than the one of `folder`."""
    if folder is not None and extension and folder.resolve() not in Path(extension).parents:
        raise CountingError(
            f"{folder} has no extension for {sys.executable}; found was {extension}"
        )


def _per_record(folder: str, few: int, more: int) -> float:
    """Return the instructions per record, from what these two processes left in `folder`."""
    difference = _total(Path(folder, str(more))) - _total(Path(folder, str(few)))
    return difference / ((MORE_CALLS - FEW_CALLS) * RECORDS)


def _total(file: Path) -> int:
    """Return the instructions that cachegrind counted, from the file it wrote."""
    for line in file.read_text().splitlines():
        name, _, value = line.partition(":")
        if name == "summary":
            return int(value.split()[0])
    raise CountingError(f"cachegrind wrote no summary into {file}")


if __name__ == "__main__":
    main()
