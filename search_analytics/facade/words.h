// Words of Python's own protocols that the facade looks up, interned.
#pragma once

#include "python/interned.h"

#define SEARCH_ANALYTICS_WORDS(NAME, TEXT)      \
    NAME(Enum)                                  \
    NAME(dataclass)                             \
    NAME(default_factory)                       \
    TEXT(dunder_annotations, "__annotations__") \
    TEXT(dunder_builtins, "__builtins__")       \
    TEXT(dunder_doc, "__doc__")                 \
    TEXT(dunder_init, "__init__")               \
    TEXT(dunder_module, "__module__")           \
    TEXT(dunder_name, "__name__")               \
    TEXT(dunder_prepare, "__prepare__")         \
    TEXT(dunder_qualname, "__qualname__")       \
    NAME(field)                                 \
    NAME(first)                                 \
    NAME(function)                              \
    NAME(key)                                   \
    NAME(replace)                               \
    NAME(second)                                \
    NAME(sort)                                  \
    NAME(value)

namespace search_analytics {

SEARCH_ANALYTICS_INTERNED(Words, SEARCH_ANALYTICS_WORDS)

}  // namespace search_analytics
