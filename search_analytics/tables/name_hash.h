// Hashing the names that records use.
#pragma once

#include "layout/value.h"
#include "python/text.h"

namespace search_analytics {

// Two numbers that nobody outside the process knows: names that share their hash under all of them
// cannot be chosen.
struct HashKeys {
    std::uint64_t first;
    std::uint64_t second;
};

// The same in the whole process, which are chosen when the extension is loaded.
extern const HashKeys kHashKeys;

// The two halves of the product of two numbers, each of whose bits depends on all bits of both.
inline std::uint64_t folded_product(std::uint64_t left, std::uint64_t right) {
#ifdef __SIZEOF_INT128__
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const std::uint64_t straight = left * (right | 1);
    const std::uint64_t crossed = (left >> 32 | left << 32) * (right >> 32 | 1);
    return straight ^ (straight >> 32) ^ crossed ^ (crossed >> 29);
#endif
}

// A number as a hash under the keys.
inline std::uint64_t keyed_hash(std::uint64_t number) {
    return folded_product(number ^ kHashKeys.first, kHashKeys.second);
}

// Up to so many bytes a name is hashed by what it says, which takes less time than having the
// interpreter do it and remember it. Beyond that it is not read again and again.
inline constexpr std::size_t kMostBytesHashed = 128;

// The hash of an exact string, under the keys. Equal texts have equal hashes. REQUIRES: an exact
// string.
inline std::uint64_t name_hash(PyObject* text) {
    assert(is_exact_str(text));
    const auto bytes = bytes_of(text);
    const std::size_t size = bytes.size();
    if (size > kMostBytesHashed) [[unlikely]] {
        return keyed_hash(static_cast<std::uint64_t>(text_hash(text)));
    }
    const HashKeys keys = kHashKeys;
    const auto word = [&](std::size_t at) {
        std::uint64_t read = 0;
        std::memcpy(&read, bytes.data() + at, sizeof(read));
        return read;
    };
    const auto half = [&](std::size_t at) {
        std::uint32_t read = 0;
        std::memcpy(&read, bytes.data() + at, sizeof(read));
        return static_cast<std::uint64_t>(read);
    };
    std::uint64_t hash = keys.first ^ size;
    if (size >= 8) [[likely]] {
        for (std::size_t at = 0; at + 16 < size; at += 16) {
            hash = folded_product(word(at) ^ keys.second, word(at + 8) ^ hash);
        }
        const std::size_t begin = size >= 16 ? size - 16 : 0;
        return folded_product(word(begin) ^ keys.second, word(size - 8) ^ hash);
    }
    if (size >= 4) {
        return folded_product(half(0) ^ keys.second, half(size - 4) ^ hash);
    }
    std::uint64_t few = 0;
    for (const unsigned char byte : bytes) {
        few = few << 8 | byte;
    }
    return folded_product(few ^ keys.second, hash);
}

}  // namespace search_analytics
