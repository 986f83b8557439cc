"""The most memory that a call holds beyond the records: the high-water mark of its process.

    python memory.py CONTESTANT RECORDS

makes that many narrow records and prints, as JSON, what each question needs on top of them. Each
question is asked in a process of its own (a fork), so that none finds another's memory.
Linux with glibc only.
"""

import ctypes
import gc
import json
import os
import platform
import subprocess
import sys
from collections.abc import Iterable
from dataclasses import dataclass

import contestants
import paths
from timing import Call


@dataclass
class Need:
    """Bytes per record: at the peak of a call, and of that what the result itself keeps."""

    question: str
    contestant: str
    records: int
    peak: float
    result: float


def measure(count: int, names: Iterable[str]) -> list[Need]:
    """Measure each contestant in a fresh process; nothing where the system cannot tell."""
    if platform.libc_ver()[0] != "glibc" or not os.access("/proc/self/clear_refs", os.W_OK):
        print("  this system does not tell the memory's high-water mark", flush=True)
        return []
    needs = []
    for name in names:
        command = [sys.executable, __file__, name, str(count)]
        done = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True)
        for question, (peak, result) in json.loads(done.stdout).items():
            needs.append(Need(question, name, count, peak, result))
            print(f"  {question:<28}{name:<11}{peak:8.1f} bytes a record", flush=True)
    return needs


def _main() -> None:
    name, count = sys.argv[1], int(sys.argv[2])
    paths.prepare()
    from operations import QUESTIONS
    from workloads import NARROW

    module = {
        contestants.EXTENSION: contestants.extension,
        contestants.MODEL: contestants.model,
        contestants.CYTHON: contestants.compiled_model,
    }[name]()
    records = NARROW.records(count)
    few = records[:100]
    needs = {
        question.method: [
            size / count
            for size in _forked(question.call(module, few), question.call(module, records))
        ]
        for question in QUESTIONS
    }
    print(json.dumps(needs))


def _forked(small: Call, call: Call) -> list[int]:
    """Return what `call` needs, in bytes, at its peak and for its result.

    `small` goes before it and has the one-time needs behind it: code, caches.
    """
    incoming, outgoing = os.pipe()
    child = os.fork()
    if child == 0:
        with os.fdopen(outgoing, "w") as pipe:
            small()
            json.dump(_need(call), pipe)
        os._exit(0)
    os.close(outgoing)
    with os.fdopen(incoming) as pipe:
        text = pipe.read()
    os.waitpid(child, 0)
    return json.loads(text)


def _need(call: Call) -> list[int]:
    # What the records' making left free would be used again, and not be seen.
    gc.collect()
    ctypes.CDLL(None).malloc_trim(0)
    with open("/proc/self/clear_refs", "w") as reset:
        reset.write("5")
    before = _status("VmRSS")
    answer = call()
    peak, after = _status("VmHWM"), _status("VmRSS")
    del answer
    return [max(peak - before, 0), max(after - before, 0)]


def _status(name: str) -> int:
    """Return a size of this process in bytes."""
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith(name + ":"):
                return int(line.split()[1]) * 1024
    raise LookupError(name)


if __name__ == "__main__":
    _main()
