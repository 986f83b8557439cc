"""What instructions.py counts: the questions of the benchmark, each asked in forks.

    python counted.py RECORDS LAYOUTS FEW_CALLS MORE_CALLS [TEXT ...]

makes that many records of each workload and each shape, and asks every question, or those whose
label contains one of the TEXTs, FEW_CALLS times in one fork and MORE_CALLS times in another, and
so for each layout. Every fork finds the process as it was when the records had been made, and
imports the extension itself. Prints JSON: in the first line the extension's file, then for each
question its label and, for each layout, the ids of its two processes, which have ended by then.
"""

import gc
import importlib.util
import json
import os
import random
import sys
import time
import traceback
from collections.abc import Iterator, Sequence
from typing import Any

import contestants
import paths

# The records' ages, and what is recent, are the same in every run.
_NOW = 1_700_000_000.0


def main() -> None:
    count, layouts, few, more = (int(text) for text in sys.argv[1:5])
    texts = sys.argv[5:]
    time.time = lambda: _NOW
    paths.prepare()
    spec = importlib.util.find_spec("kestrune.search_analytics")
    if spec is None:
        sys.exit("The extension is not installed.")
    print(json.dumps(spec.origin), flush=True)
    questions = list(_questions(count, texts))
    if not questions:
        sys.exit(f"No question's label contains {' or '.join(map(repr, texts))}.")
    gc.collect()
    gc.freeze()
    gc.disable()
    for label, operation, records in questions:
        processes = [
            [_forked(operation, records, layout, calls) for calls in (few, more)]
            for layout in range(layouts)
        ]
        print(json.dumps([label, processes]), flush=True)


def _questions(count: int, texts: Sequence[str]) -> Iterator[tuple[str, Any, list[Any]]]:
    """Yield the label, the operation and the records of the questions that are asked for.

    Records are made when the first question needs them.
    """
    from operations import OPERATIONS
    from shapes import SHAPES, reshaped
    from workloads import NARROW, WIDE

    workloads = {workload.name: workload for workload in (NARROW, WIDE)}
    plain: dict[str, list[Any]] = {}
    for shape in (None, *SHAPES):
        shaped: dict[str, list[Any]] = {}
        for operation in OPERATIONS:
            label = operation.label if shape is None else f"{operation.label}, {shape}"
            if texts and not any(text in label for text in texts):
                continue
            name = operation.workload
            if name not in plain:
                plain[name] = workloads[name].records(count)
            if name not in shaped:
                records = plain[name]
                shaped[name] = records if shape is None else reshaped(records, SHAPES[shape])
            yield label, operation, shaped[name]


def _forked(operation: Any, records: list[Any], layout: int, calls: int) -> int:
    """Return the id of a process that has asked so many times; raise if it failed."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            _ask(operation, records, layout, calls)
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(status)
    _, status = os.waitpid(child, 0)
    if status != 0:
        raise ChildProcessError(f"a question ended its process with {status}")
    return child


def _ask(operation: Any, records: list[Any], layout: int, calls: int) -> None:
    # The extension's names get other addresses in each layout.
    rng = random.Random(layout)
    others = [" " * size for size in range(0, 64, 8) for _ in range(rng.randrange(200))]
    call = operation.call(contestants.extension(), records)
    for _ in range(calls):
        call()
    del others


if __name__ == "__main__":
    main()
