// Plain strings (`str` itself, no subclass), looked at without running code.
#pragma once

#include <cstdint>
#include <cstring>

#include "host/compat.h"
#include "host/error.h"
#include "host/ref.h"

namespace search_analytics::host {

// Whether an object is a plain string that can be looked at as it is.
inline bool is_plain_text(PyObject* object) {
    return PyUnicode_CheckExact(object) && compat::is_ready_text(object);
}

// The hash of a plain string, which a string remembers.
inline Py_hash_t text_hash(PyObject* text) {
    const Py_hash_t known = reinterpret_cast<PyASCIIObject*>(text)->hash;
    if (known != -1) [[likely]] {
        return known;
    }
    const Py_hash_t hash = PyObject_Hash(text);
    if (hash == -1) {
        throw ErrorSet();
    }
    return hash;
}

// Whether two pieces of memory of `count` bytes are the same. Names are short: calling out to
// compare them takes longer than comparing.
inline bool same_bytes(const char* left, const char* right, std::size_t count) {
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    if (count < kWord) {
        return std::memcmp(left, right, count) == 0;
    }
    const auto differ = [&](std::size_t i) {
        std::uint64_t a = 0;
        std::uint64_t b = 0;
        std::memcpy(&a, left + i, kWord);
        std::memcpy(&b, right + i, kWord);
        return a != b;
    };
    const std::size_t last = count - kWord;
    for (std::size_t i = 0; i < last; i += kWord) {
        if (differ(i)) {
            return false;
        }
    }
    return !differ(last);
}

// Whether two plain strings hold the same text.
inline bool same_text(PyObject* left, PyObject* right) {
    if (left == right) {
        return true;
    }
    const Py_ssize_t length = PyUnicode_GET_LENGTH(left);
    const auto kind = PyUnicode_KIND(left);
    return length == PyUnicode_GET_LENGTH(right) && kind == PyUnicode_KIND(right) &&
           same_bytes(static_cast<const char*>(PyUnicode_DATA(left)),
                      static_cast<const char*>(PyUnicode_DATA(right)),
                      static_cast<std::size_t>(length) * static_cast<std::size_t>(kind));
}

// A plain string that is kept, and its hash.
struct OwnedText {
    Py_hash_t hash;
    Ref text;
};

}  // namespace search_analytics::host
