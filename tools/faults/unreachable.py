"""The sites that no operation can reach, each with the reason.

A rule names what does not move with the lines: what fails and the helpers on the way, the file, the
text of the line. The run breaks where a rule matches nothing, or something that was reached.
"""

from __future__ import annotations

import sys
from dataclasses import dataclass
from fnmatch import fnmatchcase

from listing import Site


@dataclass(frozen=True)
class Rule:
    """Sites by patterns: what fails and the way outwards, the file, a part of the line's text."""

    reason: str
    way: str
    file: str = "*"
    text: str = ""

    def matches(self, site: Site) -> bool:
        """Whether the rule is about this site."""
        return (
            fnmatchcase(site.whole_way, self.way)
            and fnmatchcase(site.file, self.file)
            and self.text in site.text
        )


IN_RANGE = "the place is below the size that was just read"
OWN_LIST = "an exact list of the module's own is walked by index"
ROOM = "room was made before, or is there already"
EXACT_TEXTS = "two exact strings were compared before this"
NO_TEXTS = "one side is a number"
FEW = "records that are there are fewer than 2**53"
OWN_COUNTS = "nobody else sees the dictionary"
GUARD = "it guards against a mistake in the module's own tables, or an unknown interpreter"
UNTOUCHED = "it serves whoever changes a dictionary of the module's own that the collector shows"
LISTS = "comparing two lists gives a bool"
LOADING = "it runs when the extension is loaded, before any operation"
COMPILER = "a branch for what the compiler works out itself"

RULES = [
    Rule(LOADING, "operator new", file="*/basic_string.h", text="_M_construct(__s, __end"),
    Rule(LOADING, "operator new*", file="tables/name_hash.cpp"),
    Rule(IN_RANGE, "PyErr_SetString in raise in list_item*"),
    *(
        Rule(OWN_LIST, f"{fails} in for_each_until*", text=text)
        for fails in ("PyObject_GetIter", "PyIter_Next")
        for text in (
            *("items_of_dict(", "depths.sorted_keys()", "list_of(requested)"),
            *("(measured, ", "(snapshot, "),
        )
    ),
    Rule(ROOM, "operator new in Keywords::add", file="e*"),
    Rule(ROOM, "operator new in Keywords::add", file="facade/*"),
    Rule(ROOM, "operator new in Keywords::add in Keywords::add"),
    Rule(ROOM, "operator new", file="engine/statistic.cpp", text="entries.push_back("),
    Rule(ROOM, "operator new", file="module/vocabulary.cpp", text='members.emplace_back("NONE"'),
    Rule(ROOM, "operator new", file="tables/pair_table.cpp", text="ranking.resize(count)"),
    Rule(ROOM, "operator new", file="facade/signature.cpp", text="PyLong_FromString("),
    Rule(EXACT_TEXTS, "PyUnicode_RichCompare in comparison in compare in equal"),
    *(
        Rule(NO_TEXTS, "PyUnicode_RichCompare in comparison*", text=text)
        for text in ("new_int(", "new_float(", "(window, zero, ", "is_greater(floor")
    ),
    Rule(FEW, "* in ratio"),
    Rule(OWN_COUNTS, "PyErr_SetString in raise in as_p*"),
    Rule(OWN_COUNTS, "PyErr_SetObject in raise", text="raise(PyExc_KeyError, tuple_of(key))"),
    Rule(OWN_COUNTS, "PyTuple_Pack in tuple_of", text="raise(PyExc_KeyError, tuple_of(key))"),
    Rule(UNTOUCHED, "*", file="layout/mould.cpp", text="Ref made = new_dict();"),
    Rule(UNTOUCHED, "*", file="layout/mould.cpp", text="set_item(made, keys_[place]"),
    *(Rule(GUARD, way, text="PyExc_SystemError") for way in ("* in raise", "* in format")),
    Rule(LISTS, "PyObject_IsTrue in truth in compare in equal", text="equal(list_of(annotations)"),
    Rule(COMPILER, "operator new[[]]"),
    Rule(ROOM, "operator new", file="facade/profile.cpp", text="std::move(name)"),
]
if sys.version_info < (3, 14):
    LATER = "functions of this interpreter have no __annotate__"
    RULES += [
        Rule(LATER, "*", file="facade/function_attributes.cpp", text=text)
        for text in (
            *(
                "(annotate, ",
                "__annotate__ returned non-dict",
                "def function() -> '",
                "(code.get(), function->g",
            ),
            *(
                "scope = new_dict()",
                "statement.c_str()",
                '"__annotate__"',
                "PyExc_TypeError, value ==",
            ),
        )
    ]
