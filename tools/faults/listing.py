"""Which calls that can fail are there: read from the machine code and debugger information.

The build has one call instruction for each call in the sources. A *site* is a place in our code
from which a function that can fail is called, directly or through helpers: those of `python/` and
of the C++ library. It is known by the function that fails, the way through the helpers, and file,
line and number of the call in its line. Copies of one template are one site.
"""

from __future__ import annotations

import re
import subprocess
from bisect import bisect_right
from collections import defaultdict
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SOURCES = ROOT / "search_analytics"
HELPERS = SOURCES / "python"
TOOLS = Path(__file__).resolve().parent
MOST_FRAMES = 24

Chain = tuple[int, ...]
"""Return addresses from the function that fails to the site, as offsets into the library."""

# Functions of the interpreter that cannot fail, or not for what the module hands them.
CANNOT_FAIL = {
    *("PyCallable_Check", "PyCapsule_GetPointer", "PyErr_Clear", "PyErr_ExceptionMatches"),
    *("PyErr_Fetch", "PyErr_GetExcInfo", "PyErr_GetRaisedException", "PyErr_NoMemory"),
    *("PyErr_Occurred", "PyErr_Restore", "PyErr_SetExcInfo", "PyErr_SetRaisedException"),
    *("PyEval_GetBuiltins", "PyEval_GetFrame", "PyException_GetTraceback"),
    *("PyDict_Next", "PyException_SetCause", "PyException_SetTraceback", "PyFrame_GetCode"),
    *("PyGILState_GetThisThreadState", "PyInterpreterState_Get", "PyInterpreterState_Main"),
    *("PyModuleDef_Init", "PyModule_GetDict", "PyModule_GetState", "PyObject_ClearWeakRefs"),
    *("PyObject_IS_GC", "PyObject_GC_IsTracked", "PyObject_GC_Track", "PyObject_GC_UnTrack"),
    *("PySys_WriteStderr", "PyThreadState_EnterTracing", "PyThreadState_Get"),
    *("PyThreadState_GetUnchecked", "PyThreadState_LeaveTracing"),
    *("PyThread_get_thread_ident", "PyType_IsSubtype"),
    *("PyWeakref_GetObject", "Py_IsFinalizing", "Py_LeaveRecursiveCall"),
    *("_PyThreadState_UncheckedGet", "_Py_Dealloc", "_Py_IsFinalizing"),
    # Where the keys of a class fail to compare, it finds nothing, and so does the interpreter.
    "_PyType_Lookup",
    # Without memory for the dictionary it says that there is none.
    "_PyObject_GetDictPtr",
    # It is given an int, and strings that can be read as they are.
    *("PyLong_AsLongLongAndOverflow", "PyUnicode_Compare"),
}


@dataclass(frozen=True)
class Call:
    """A call instruction: the function that it stands in, and the address behind it."""

    caller: str
    behind: int


@dataclass
class Function:
    """A function of the library: its symbol, where it is and where it comes from."""

    symbol: str
    begin: int
    end: int
    name: str = ""
    file: Path = Path()
    line: int = 0
    is_helper: bool = False


@dataclass(frozen=True, order=True)
class Site:
    """A place in our code from which a function that can fail is called."""

    file: str
    line: int
    number: int
    way: tuple[str, ...]
    fails: str
    function: str = field(compare=False)
    text: str = field(compare=False)

    def __str__(self) -> str:
        place = f"{self.file}:{self.line}"
        return f"{self.key}   ({place})"

    @property
    def key(self) -> str:
        """What the list of unreachable sites calls it: no line number."""
        return f"{self.file} | {self.whole_way} | {self.text}"

    @property
    def whole_way(self) -> str:
        """What fails, and the helpers on the way outwards."""
        return " in ".join((self.fails, *self.way))


def _run(*command: str, given: str = "") -> list[str]:
    done = subprocess.run(command, input=given, capture_output=True, text=True, check=True)
    return done.stdout.splitlines()


def _functions(library: Path) -> dict[str, Function]:
    """The functions of the library by symbol, with their names and files.

    One function may have several symbols, of which the first counts; functions of several files
    may have the same, and are told apart by where they begin.
    """
    found: dict[str, Function] = {}
    begins = set()
    for line in _run("objdump", "-t", "-j", ".text", str(library)):
        match = re.match(r"([0-9a-f]+) .{6}F \.text\s+([0-9a-f]+)\s+(?:\.hidden )?(\S+)$", line)
        if match and match[1] not in begins:
            begins.add(match[1])
            begin, size = int(match[1], 16), int(match[2], 16)
            symbol = f"{match[3]}@{match[1]}" if match[3] in found else match[3]
            found[symbol] = Function(symbol, begin, begin + size)
    names = _run("c++filt", given="\n".join(symbol.partition("@")[0] for symbol in found))
    places = _places(library, (function.begin for function in found.values()))
    for function, name in zip(found.values(), names, strict=True):
        function.name = name
        function.file, function.line = places[function.begin]
        function.is_helper = is_helper(function.file)
    return found


def is_helper(file: Path) -> bool:
    """Whether calls in a file are those of its callers: helpers of ours, and what is not ours.

    A turn of the others is something of its own, that fails as a whole for those who call it.
    """
    return SOURCES not in file.parents or (HELPERS in file.parents and file.name != "turns.cpp")


def _places(library: Path, addresses: Iterable[int]) -> dict[int, tuple[Path, int]]:
    """File and line of each address."""
    addresses = sorted(set(addresses))
    given = "\n".join(f"{address:x}" for address in addresses)
    lines = _run("addr2line", "-e", str(library), given=given)
    places = {}
    for address, line in zip(addresses, lines, strict=True):
        name, _, number = line.partition(" ")[0].rpartition(":")
        places[address] = Path(name).resolve(), int(number) if number.isdigit() else 0
    return places


def _calls(library: Path, functions: Iterable[Function]) -> Iterator[tuple[Call, str]]:
    """Each call instruction with what it calls; of one through a pointer, `*`."""
    ordered = sorted(functions, key=lambda function: function.begin)
    begins = [function.begin for function in ordered]
    by_begin = {function.begin: function.symbol for function in ordered}
    callee = ""
    for line in _run("objdump", "-d", "--no-show-raw-insn", "-j", ".text", str(library)):
        here, tab, instruction = line.partition(":\t")
        if not tab:
            continue
        # A call may be the last instruction of its function: behind it the next one begins.
        if callee:
            behind = int(here, 16)
            function = ordered[bisect_right(begins, behind - 1) - 1]
            # Copies that the linker left over have no symbol, and nobody calls them.
            if behind <= function.end:
                yield Call(function.symbol, behind), callee
            callee = ""
        if match := re.match(r"(?:call|bl)\s+([0-9a-f]+) <([^>]+)>", instruction):
            callee = by_begin.get(int(match[1], 16), match[2])
        elif re.match(r"(?:call\s+\*|blr\s)", instruction):
            callee = "*"


class Listing:
    """The sites of a library, and the chains of calls that lead to each."""

    def __init__(self, library: Path) -> None:
        self.functions = _functions(library)
        self._callers: dict[str, list[Call]] = defaultdict(list)
        for call, callee in _calls(library, self.functions.values()):
            self._callers[callee].append(call)
        behind = [call.behind - 1 for calls in self._callers.values() for call in calls]
        self._places = _places(library, behind)
        self._numbers = self._number_calls()
        self.sites: dict[Chain, Site] = {}
        for callee in sorted(self._callers):
            if callee.startswith("__wrap_") and not re.match(r"__wrap_(_Zd|_ZNSt)", callee):
                for chain, way in self._chains(callee, (), ()):
                    self.sites[chain] = self._site(callee, chain, way)

    @property
    def helpers(self) -> list[int]:
        """Begin and end of each helper, one after the other, in their order."""
        ranges = sorted((f.begin, f.end) for f in self.functions.values() if f.is_helper)
        return [place for pair in ranges for place in pair]

    @property
    def turns(self) -> list[Chain]:
        """The calls of a turn of the others, and those made in one."""
        return [
            chain
            for chain, site in self.sites.items()
            if site.fails == "take_turns_by_clock" or site.file == "python/turns.cpp"
        ]

    def unknown(self) -> list[str]:
        """Functions of the interpreter that are called past the wrappers and may fail."""
        names = set()
        for callee in list(self._callers):
            name = callee.removesuffix("@plt").partition("@")[0]
            is_interpreters = callee.endswith("@plt") and re.match(r"_?Py|_Zn", name)
            if is_interpreters and self._ours(callee):
                names.add(name)
        return sorted(names - CANNOT_FAIL)

    def through_pointers(self) -> list[str]:
        """Lines of our code that call through a slot of a class."""
        texts = (_text(*self._places[call.behind - 1]) for call in self._ours("*"))
        return sorted({text for text in texts if re.search(r"->tp_(?!free)", text)})

    def _ours(self, callee: str) -> list[Call]:
        """The calls of `callee` but for those in the tools."""
        return [
            call
            for call in self._callers[callee]
            if TOOLS not in self.functions[call.caller].file.parents
        ]

    def _chains(
        self, callee: str, chain: Chain, way: tuple[str, ...]
    ) -> Iterator[tuple[Chain, tuple[Call, ...]]]:
        """All ways on which `callee` is called from a site, innermost call first."""
        for call in self._ours(callee):
            function = self.functions[call.caller]
            if call in way:
                continue
            longer = (*chain, call.behind)
            if function.is_helper and self._callers[call.caller]:
                yield from self._chains(call.caller, longer, (*way, call))
            else:
                yield longer, (*way, call)

    def _number_calls(self) -> dict[int, int]:
        """Tells calls of one line and callee apart: by their order in each function."""
        met: dict[tuple[object, ...], int] = defaultdict(int)
        numbers = {}
        pairs = [(call, callee) for callee, calls in self._callers.items() for call in calls]
        for call, callee in sorted(pairs, key=lambda pair: pair[0].behind):
            name = self.functions[callee].name if callee in self.functions else callee
            key = call.caller, self._places[call.behind - 1], _plain(name)
            met[key] += 1
            numbers[call.behind] = met[key]
        return numbers

    def _site(self, callee: str, chain: Chain, way: tuple[Call, ...]) -> Site:
        fails = _WORDS.get(callee, callee.removeprefix("__wrap_"))
        file, line = self._places[chain[-1] - 1]
        function = self.functions[way[-1].caller]
        # Which templates of the C++ library lie between is its own affair.
        helpers = [
            _plain(self.functions[call.caller].name)
            for call in way[:-1]
            if SOURCES in self.functions[call.caller].file.parents
        ]
        name = str(file.relative_to(SOURCES)) if SOURCES in file.parents else str(file)
        number = self._numbers[chain[-1]]
        return Site(name, line, number, tuple(helpers), fails, function.name, _text(file, line))


# What fails that is no function of the interpreter.
_WORDS = {
    "__wrap__Znwm": "operator new",
    "__wrap__ZnwmRKSt9nothrow_t": "operator new",
    "__wrap__Znam": "operator new[]",
    "__wrap__ZN16search_analytics19take_turns_by_clockEv": "take_turns_by_clock",
}


def _plain(name: str) -> str:
    """A function's name without template arguments, parameters and what it returns."""
    plain = name.replace("(anonymous namespace)::", "").replace("search_analytics::", "")
    for _ in range(20):
        shorter = re.sub(r"<[^<>]*>|\([^()]*\)|\[[^\[\]]*\]", "", plain)
        if shorter == plain:
            break
        plain = shorter
    return plain.replace(" const", "").split(" ")[-1]


_LINES: dict[Path, list[str]] = {}


def _text(file: Path, line: int) -> str:
    if file not in _LINES:
        _LINES[file] = file.read_text().splitlines() if file.is_file() else []
    lines = _LINES[file]
    return lines[line - 1].strip() if 0 < line <= len(lines) else ""
