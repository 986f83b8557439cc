// Where CPython keeps the entries of a dictionary, for the versions that we know.
#pragma once

#include <cstdint>

#include "host/compat.h"

namespace search_analytics::host {

// The table behind a dictionary: its entries in the order in which they were added. The same
// table, without values, names the attributes that the instances of a class number alike.
struct KeyTable {
    enum Kind : std::uint8_t { kGeneral, kPlainStrings, kSplit };

    struct Entry {
        PyObject* key;
        PyObject* value;
    };

    Py_ssize_t reference_count;
    std::uint8_t log2_size;
    std::uint8_t log2_index_bytes;
    std::uint8_t kind;
    std::uint32_t version;
    Py_ssize_t usable;
    Py_ssize_t entry_count;
    char indices[1];

    // REQUIRES: the kind is not kGeneral, whose entries hold a hash besides.
    const Entry* entries() const {
        return reinterpret_cast<const Entry*>(indices + (std::size_t{1} << log2_index_bytes));
    }
};

// The table of an exact dictionary all of whose keys are plain strings, with its values; or null,
// for any other object and wherever nothing is known.
inline const KeyTable* plain_table(PyObject* object) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT
    if (PyDict_CheckExact(object)) {
        const auto* dict = reinterpret_cast<const PyDictObject*>(object);
        const auto* table = reinterpret_cast<const KeyTable*>(dict->ma_keys);
        if (dict->ma_values == nullptr && table->kind == KeyTable::kPlainStrings) {
            return table;
        }
    }
#else
    static_cast<void>(object);
#endif
    return nullptr;
}

}  // namespace search_analytics::host
