"""What no program does, and why: the one list of what the fuzzer leaves out.

The first part would never end, or tells the two sides apart without a fault; it follows the known
differences of docs/python-semantics.md.
"""

from __future__ import annotations

AVOIDED = {
    "walks without end": "a list that grows whenever it is read: after EVENT_LIMIT hooks each "
    "further one raises, on both sides at the same one",
    "endless recursion": "a RecursionError of the interpreter's own comes at another depth: calls "
    "from within calls stop at NESTING_LIMIT, and the error itself is raised by hand",
    "moments of death": "a record that an iterator made may be freed earlier than a loop variable "
    "would: finalisers and weak references may do things, but none is logged",
    "what the collector sees": "frames and locals of the model, or containers that are tracked "
    "late: objects of the collector are looked at and kept, never logged, nor changed",
    "which of two NaNs": "plain Python gives now the one, now the other: outcomes may differ in it",
    "looks at frames": "no tracing, no profiling, no warnings with a stack level",
    "built-in functions replaced": "a `len` in the namespace is not called",
    "names that log": "a name in the module's namespace that runs code is compared less often",
    "the machinery of enumerations": "a getter changed inside of enum's descriptor is not noticed",
    "reloads": "the body does not run again",
    "addresses": "whatever may be shown as a text has a text of its own",
    "interned texts": "results hold texts of their own: texts are compared, not their identity",
}
"""Each thing that is left out, with its reason."""

EVENT_LIMIT = 1500
NESTING_LIMIT = 2
