// What stands inside of exact strings, lists and tuples.
#pragma once

#include <span>

#include "python/containers.h"

namespace search_analytics {

// The hash that a string has at hand, or -1 where it has not been asked for. REQUIRES: an exact
// str.
inline Py_hash_t known_hash(PyObject* text) {
    assert(PyUnicode_CheckExact(text));
    return compat::load(reinterpret_cast<PyASCIIObject*>(text)->hash);
}

// The hash of an exact string, which a string remembers.
inline Py_hash_t text_hash(PyObject* text) {
    const Py_hash_t known = known_hash(text);
    if (known != -1) [[likely]] {
        return known;
    }
    const Py_hash_t hash = PyObject_Hash(text);
    if (hash == -1) {
        throw ErrorSet();
    }
    return hash;
}

// The items of an exact list, in place. REQUIRES: a build with the interpreter's lock.
inline PyObject* const* items_in_place(PyObject* list) {
    assert(compat::kHasLock && is_exact_list(list));
    return reinterpret_cast<PyListObject*>(list)->ob_item;
}

// The items of an exact list or tuple, borrowed; nothing for any other object. REQUIRES: a build
// with the interpreter's lock.
inline std::span<PyObject* const> items_of(PyObject* object) {
    assert(compat::kHasLock);
    if (is_exact_list(object)) [[likely]] {
        return {items_in_place(object), static_cast<std::size_t>(list_size(object))};
    }
    if (is_exact_tuple(object)) {
        return {reinterpret_cast<PyTupleObject*>(object)->ob_item,
                static_cast<std::size_t>(tuple_size(object))};
    }
    return {};
}

}  // namespace search_analytics
