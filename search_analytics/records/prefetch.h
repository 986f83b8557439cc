// Hints to the processor of what memory will be read soon. None of them changes anything, and none
// of them has to be right.
#pragma once

#include "python/python.h"

namespace search_analytics {

// Asks for the line of memory at an address, into the second cache: more lines can be under way to
// it than to the first. The empty statement makes a function that does nothing else worth calling:
// GCC takes one that only prefetches for one without effect, and leaves the call out.
inline void prefetch(const void* address) {
    constexpr int kForReading = 0;
    constexpr int kSecondCache = 2;
    __builtin_prefetch(address, kForReading, kSecondCache);
    asm volatile("");
}

// Asks for an instance and what the interpreter keeps in front of it.
inline void prefetch_instance(PyObject* instance) {
    prefetch(reinterpret_cast<char*>(instance) - 32);
    prefetch(instance);
}

// Asks for the table of an instance's dictionary, as large as tables with two dozen attributes are.
inline void prefetch_usual_table(const void* table) {
    constexpr std::size_t kUsualBytes = 512;
    constexpr std::size_t kLine = 64;
    for (std::size_t offset = 0; offset < kUsualBytes; offset += kLine) {
        prefetch(static_cast<const char*>(table) + offset);
    }
}

// The part of a short string that comparing reads, from its length to its end. The type in front
// of that often lies in a line of its own.
inline constexpr std::size_t kTextBegin = 24;
inline constexpr std::size_t kTextEnd = 72;

// Asks for a string whose type will not be asked for.
inline void prefetch_text(PyObject* text) {
    prefetch(reinterpret_cast<char*>(text) + kTextBegin);
    prefetch(reinterpret_cast<char*>(text) + kTextEnd);
}

// Asks for an object of the size of a short string.
inline void prefetch_value(PyObject* value) {
    prefetch(value);
    prefetch(reinterpret_cast<char*>(value) + kTextEnd);
}

}  // namespace search_analytics
