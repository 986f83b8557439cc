"""A batch of programs in one process, which may crash: started by fuzz.run.

    python -X faulthandler -m fuzz.batch FIRST COUNT PROGRESS

Writes the seed of each program to the file PROGRESS before it runs, and the seeds of those on which
the two sides differ to standard output.
"""

from __future__ import annotations

import gc
import os
import sys

from differential.cases import subject
from fuzz.compare import differs
from model import search_analytics_model as model


def main() -> None:
    first, count = map(int, sys.argv[1:3])
    module = subject()
    # The collector looks at what programs make, not at the interpreter's modules again and again.
    gc.collect()
    gc.freeze()
    progress = os.open(sys.argv[3], os.O_WRONLY)
    for seed in range(first, first + count):
        os.pwrite(progress, b"%20d" % seed, 0)
        if differs(seed, module, model):
            print(seed, flush=True)


if __name__ == "__main__":
    main()
