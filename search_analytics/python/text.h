// Exact strings (`str` itself, no subclass), read without running code.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "python/compat.h"
#include "python/ref.h"

namespace search_analytics {

// isinstance(object, str), by what its type derives from
inline bool is_str(Arg object) { return PyUnicode_Check(object.get()) != 0; }

// Whether an object is an exact string that can be read as it is.
inline bool is_exact_str(Arg object) {
    return PyUnicode_CheckExact(object.get()) && compat::is_ready_text(object);
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

// What a string holds, letter by letter in the form in which it keeps them: the same for equal
// texts. REQUIRES: an exact string.
inline std::span<const unsigned char> bytes_of(PyObject* text) {
    assert(is_exact_str(text));
    return {static_cast<const unsigned char*>(PyUnicode_DATA(text)),
            static_cast<std::size_t>(PyUnicode_GET_LENGTH(text)) *
                static_cast<std::size_t>(PyUnicode_KIND(text))};
}

// Whether two strings hold the same text. REQUIRES: both are exact strings.
inline bool same_text(PyObject* left, PyObject* right) {
    assert(is_exact_str(left) && is_exact_str(right));
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

// Whether the left text sorts before the right one. REQUIRES: both are exact strings.
inline bool comes_before(PyObject* left, PyObject* right) {
    assert(is_exact_str(left) && is_exact_str(right));
    if (PyUnicode_KIND(left) != PyUnicode_1BYTE_KIND ||
        PyUnicode_KIND(right) != PyUnicode_1BYTE_KIND) {
        return PyUnicode_Compare(left, right) < 0;
    }
    // Letters of one byte sort as bytes do, and a text before what it begins.
    const Py_ssize_t left_length = PyUnicode_GET_LENGTH(left);
    const Py_ssize_t right_length = PyUnicode_GET_LENGTH(right);
    const int order = std::memcmp(PyUnicode_1BYTE_DATA(left), PyUnicode_1BYTE_DATA(right),
                                  static_cast<std::size_t>(std::min(left_length, right_length)));
    return order != 0 ? order < 0 : left_length < right_length;
}

// REQUIRES: an exact string.
inline bool is_empty_text(PyObject* text) {
    assert(is_exact_str(text));
    return PyUnicode_GET_LENGTH(text) == 0;
}

// REQUIRES: an exact string.
inline std::size_t text_length(Arg text) {
    assert(is_exact_str(text));
    return static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get()));
}

// Texts up to this length are hashed and compared in no time to speak of.
inline constexpr std::size_t kLongestShortText = 4096;

// Whether a text says something, and is short. REQUIRES: an exact string.
inline bool is_short_name(Arg text) {
    assert(is_exact_str(text));
    return text_length(text) - 1 < kLongestShortText;
}

// Whether an object is None, or an exact string of ASCII letters.
inline bool is_none_or_ascii(Arg object) {
    return object.is_none() || (is_exact_str(object) && PyUnicode_IS_ASCII(object.get()) != 0);
}

// Whether a text holds a word, in capitals or not. REQUIRES: an exact string of ASCII letters, and
// a word of small ones.
inline bool mentions(Arg text, std::string_view word) {
    assert(is_exact_str(text) && PyUnicode_IS_ASCII(text.get()) != 0);
    constexpr unsigned kSmall = 0x20;
    const auto* letters = static_cast<const unsigned char*>(PyUnicode_DATA(text.get()));
    const std::span all(letters, static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get())));
    const auto is_same = [](unsigned letter, char wanted) {
        return (letter | kSmall) == static_cast<unsigned>(wanted);
    };
    return !std::ranges::search(all, word, is_same).empty();
}

}  // namespace search_analytics
