// Where CPython keeps the attributes of an ordinary instance, for the versions that we know.
//
// Instances of a class whose attributes have not been asked for as a dictionary hold them in an
// array that all instances number alike. Reading the array is what the interpreter's own
// specialised instructions do; there is no call for it. Whoever uses this checks every class
// against an ordinary look-up first (see AttributeReader); elsewhere nothing is found here.
#pragma once

#include <cstdint>

#include "host/key_table.h"
#include "host/plain_text.h"

namespace search_analytics::host {

#if SEARCH_ANALYTICS_KNOWS_LAYOUT

// The names of the attributes that the instances of a class number alike, in the order of their
// numbers; or null.
inline const KeyTable* attribute_names(PyTypeObject* type) {
    constexpr unsigned long kNeeded = Py_TPFLAGS_HEAPTYPE | Py_TPFLAGS_MANAGED_DICT;
    if ((type->tp_flags & kNeeded) != kNeeded) {
        return nullptr;
    }
    return reinterpret_cast<const KeyTable*>(
        reinterpret_cast<PyHeapTypeObject*>(type)->ht_cached_keys);
}

// How many such attributes there are, or -1 where nothing is known. They never become fewer.
inline Py_ssize_t numbered_attributes(PyTypeObject* type) {
    const KeyTable* names = attribute_names(type);
    return names != nullptr ? names->entry_count : -1;
}

// The number of an attribute, or -1.
inline Py_ssize_t attribute_number(PyTypeObject* type, PyObject* name) {
    const KeyTable* names = attribute_names(type);
    for (Py_ssize_t i = 0; names != nullptr && i < names->entry_count; ++i) {
        if (same_text(names->entries()[i].key, name)) {
            return i;
        }
    }
    return -1;
}

// The array of an instance's attributes, or null where it has a dictionary instead. A null entry
// is an attribute that is not set. REQUIRES: attribute_number() knows the instance's class.
inline PyObject** instance_values(PyObject* instance) {
#if PY_VERSION_HEX >= 0x030D0000
    if ((Py_TYPE(instance)->tp_flags & Py_TPFLAGS_INLINE_VALUES) == 0) {
        return nullptr;
    }
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kValid = 3;
    char* values = reinterpret_cast<char*>(instance) + sizeof(PyObject);
    return values[kValid] != 0 ? reinterpret_cast<PyObject**>(values + kHeader) : nullptr;
#elif PY_VERSION_HEX >= 0x030C0000
    char* tagged = reinterpret_cast<char**>(instance)[-3];
    const bool is_values = (reinterpret_cast<std::uintptr_t>(tagged) & 1U) != 0;
    return is_values ? reinterpret_cast<PyObject**>(tagged + 1) : nullptr;
#else
    return reinterpret_cast<PyObject***>(instance)[-4];
#endif
}

#else

inline Py_ssize_t numbered_attributes(PyTypeObject*) { return -1; }
inline Py_ssize_t attribute_number(PyTypeObject*, PyObject*) { return -1; }
inline PyObject** instance_values(PyObject*) { return nullptr; }

#endif

}  // namespace search_analytics::host
