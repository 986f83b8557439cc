// Strings that are made once and compared by identity: lists of them, a field for each.
#pragma once

#include <string_view>

#include "python/ref.h"

// Makes a struct `Name` from a list of fields and texts: LIST(NAME, TEXT) says NAME(x) for the text
// "x" under the field `x`, and TEXT(field, text) where the two must differ.
#define SEARCH_ANALYTICS_INTERNED(Name, LIST)                                               \
    struct Name {                                                                           \
        LIST(SEARCH_ANALYTICS_FIELD, SEARCH_ANALYTICS_TEXT_FIELD)                           \
                                                                                            \
        /* Interns every text; throws ErrorSet when memory runs out. */                     \
        void create() { LIST(SEARCH_ANALYTICS_CREATE, SEARCH_ANALYTICS_CREATE_TEXT) }       \
                                                                                            \
        /* Releases every text. Only for the end of the module: until then code may run. */ \
        void destroy() { LIST(SEARCH_ANALYTICS_DESTROY, SEARCH_ANALYTICS_DESTROY_TEXT) }    \
                                                                                            \
        /* The text of a field, for what is checked while compiling. */                     \
        static consteval std::string_view text_of(PyObject* Name::* member) {               \
            LIST(SEARCH_ANALYTICS_COMPARE, SEARCH_ANALYTICS_COMPARE_TEXT)                   \
            return {};                                                                      \
        }                                                                                   \
                                                                                            \
       private:                                                                             \
        using Self = Name;                                                                  \
    };
#define SEARCH_ANALYTICS_TEXT_FIELD(name, text) PyObject* name = nullptr;
#define SEARCH_ANALYTICS_FIELD(name) SEARCH_ANALYTICS_TEXT_FIELD(name, #name)
#define SEARCH_ANALYTICS_CREATE_TEXT(name, text) \
    name = Ref::steal(PyUnicode_InternFromString(text)).release();
#define SEARCH_ANALYTICS_CREATE(name) SEARCH_ANALYTICS_CREATE_TEXT(name, #name)
#define SEARCH_ANALYTICS_DESTROY_TEXT(name, text) Py_CLEAR(name);
#define SEARCH_ANALYTICS_DESTROY(name) SEARCH_ANALYTICS_DESTROY_TEXT(name, #name)
#define SEARCH_ANALYTICS_COMPARE_TEXT(name, text) \
    if (member == &Self::name) {                  \
        return text;                              \
    }
#define SEARCH_ANALYTICS_COMPARE(name) SEARCH_ANALYTICS_COMPARE_TEXT(name, #name)
