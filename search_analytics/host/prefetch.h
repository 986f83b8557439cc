// Hints to the processor of what memory will be read soon. None of them changes anything, and none
// of them has to be right.
#pragma once

#include <algorithm>

#include "host/instance_layout.h"

namespace search_analytics::host {

// Asks for the line of memory at an address. The empty statement makes a function that does nothing
// else worth calling: GCC takes one that only prefetches for one without effect, and leaves the
// call out.
inline void prefetch(const void* address) {
    __builtin_prefetch(address);
    asm volatile("");
}

// The longest stretch of a list or a dictionary that is asked for ahead.
inline constexpr Py_ssize_t kPrefetchedItems = 8;

// Asks for an object and what the interpreter keeps in front of it.
inline void prefetch_object(PyObject* object) {
    prefetch(reinterpret_cast<char*>(object) - 32);
    prefetch(object);
}

// Asks for the table behind a list or a dictionary. Reads the object itself.
inline void prefetch_table(PyObject* object) {
    if (PyList_CheckExact(object)) {
        prefetch(reinterpret_cast<PyListObject*>(object)->ob_item);
    } else if (PyDict_CheckExact(object)) {
        const char* table =
            reinterpret_cast<const char*>(reinterpret_cast<PyDictObject*>(object)->ma_keys);
        prefetch(table);
        prefetch(table + 64);
        prefetch(table + 128);
    }
}

// Calls `visit` with the first items of a list, borrowed. `visit` must not run code.
template <typename Visit>
void for_each_item(PyObject* object, Visit&& visit) {
    if (PyList_CheckExact(object)) {
        const Py_ssize_t count = std::min(PyList_GET_SIZE(object), kPrefetchedItems);
        for (Py_ssize_t i = 0; i < count; ++i) {
            visit(PyList_GET_ITEM(object, i));
        }
    }
}

// Asks for the items of a list, or for the keys and values of a dictionary. Reads the table.
inline void prefetch_entries(PyObject* object) {
    for_each_item(object, prefetch_object);
#if SEARCH_ANALYTICS_KNOWS_INSTANCES
    if (PyDict_CheckExact(object)) {
        const auto* keys =
            reinterpret_cast<const SharedKeys*>(reinterpret_cast<PyDictObject*>(object)->ma_keys);
        const Py_ssize_t count = std::min(keys->entry_count, kPrefetchedItems);
        for (Py_ssize_t i = 0; i < count; ++i) {
            prefetch(keys->entries()[i].key);
            prefetch(keys->entries()[i].value);
        }
    }
#endif
}

}  // namespace search_analytics::host
