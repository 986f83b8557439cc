// Where CPython keeps the entries of a dictionary.
//
// A dictionary holds its entries in a table, in the order in which they were added. The table of a
// dictionary that was an instance's own may be shared with others: then it holds the keys only, and
// the values stand beside it. Structures are named as CPython names them. On versions that are not
// known no dictionary shows its table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "layout/value.h"

#if PY_VERSION_HEX < 0x03100000 && !defined(Py_GIL_DISABLED) && SIZEOF_VOID_P == 8
#define SEARCH_ANALYTICS_KNOWS_LAYOUT 1
#else
#define SEARCH_ANALYTICS_KNOWS_LAYOUT 0
#endif

namespace search_analytics {

inline constexpr bool kKnowsLayout = SEARCH_ANALYTICS_KNOWS_LAYOUT == 1;

// Internal/pycore_dict.h, before 3.11 Objects/dict-common.h: a table, and its kinds. The indices
// are followed by the entries: a key and a value each, after the key's hash where keys are of any
// type.
// NOLINTBEGIN(readability-identifier-naming): CPython's names
#if PY_VERSION_HEX >= 0x030B0000
enum DictKeysKind : std::uint8_t { DICT_KEYS_GENERAL, DICT_KEYS_UNICODE, DICT_KEYS_SPLIT };

struct DictKeys {
    Py_ssize_t dk_refcnt;
    std::uint8_t dk_log2_size;
    std::uint8_t dk_log2_index_bytes;
    std::uint8_t dk_kind;
    std::uint32_t dk_version;
    Py_ssize_t dk_usable;
    Py_ssize_t dk_nentries;
    char dk_indices[1];
};
#else
struct DictKeys {
    Py_ssize_t dk_refcnt;
    Py_ssize_t dk_size;
    void* dk_lookup;
    Py_ssize_t dk_usable;
    Py_ssize_t dk_nentries;
    char dk_indices[1];
};
#endif
// NOLINTEND(readability-identifier-naming)

// The entries of a table, wherever their values are. An entry that was deleted has no key, or no
// value.
class Table {
   public:
    // No entry at all.
    Table() = default;

    std::size_t size() const { return size_; }
    PyObject* key(std::size_t place) const { return keys_[place * step_]; }
    PyObject* value(std::size_t place) const { return values_[place * value_step_]; }

    // Puts another value into an entry, and gives back the one that was there. REQUIRES: there is
    // such an entry, of a dictionary that nobody has seen.
    void exchange_value(std::size_t place, Ref& value) const {
        assert(place < size_);
        auto** at = const_cast<PyObject**>(values_ + place * value_step_);
        PyObject* old = std::exchange(*at, value.release());
        value = Ref::adopt(old);
    }

    // Whether every key is known to be an exact string.
    bool has_only_text() const { return step_ != kGeneralStep; }

    // The hash of a key. REQUIRES: not has_only_text().
    Py_hash_t hash(std::size_t place) const {
        assert(!has_only_text());
        return reinterpret_cast<const Py_hash_t*>(keys_)[place * step_ - 1];
    }

   private:
    friend Table table_of(PyObject*);
    friend Table table_of_keys(const DictKeys&);

    // An entry of keys that are all strings, and one of any keys, in words.
    static constexpr std::size_t kTextStep = 2;
    static constexpr std::size_t kGeneralStep = 3;

    PyObject* const* keys_ = nullptr;
    PyObject* const* values_ = nullptr;
    std::size_t step_ = kTextStep;
    std::size_t value_step_ = kTextStep;
    std::size_t size_ = 0;
};

// The table of a dictionary, whatever its kind. REQUIRES: an exact dictionary.
inline const DictKeys* keys_of(PyObject* dict) {
    assert(is_exact_dict(dict));
    return reinterpret_cast<const DictKeys*>(reinterpret_cast<PyDictObject*>(dict)->ma_keys);
}

// The entries of a table that holds its values itself, or whose values are not asked for.
inline Table table_of_keys([[maybe_unused]] const DictKeys& keys) {
    Table table;
#if SEARCH_ANALYTICS_KNOWS_LAYOUT
#if PY_VERSION_HEX >= 0x030B0000
    const char* entries = keys.dk_indices + (std::size_t{1} << keys.dk_log2_index_bytes);
    table.step_ = keys.dk_kind == DICT_KEYS_GENERAL ? Table::kGeneralStep : Table::kTextStep;
#else
    const auto slots = static_cast<std::size_t>(keys.dk_size);
    const std::size_t index_size = slots <= 0xFF ? 1 : slots <= 0xFFFF ? 2 : 4;
    const char* entries = keys.dk_indices + slots * index_size;
    table.step_ = Table::kGeneralStep;
#endif
    table.keys_ = reinterpret_cast<PyObject* const*>(entries) + (table.step_ - Table::kTextStep);
    table.values_ = table.keys_ + 1;
    table.value_step_ = table.step_;
    table.size_ = static_cast<std::size_t>(keys.dk_nentries);
#endif
    return table;
}

// An entry of a table all of whose keys are strings.
struct TextEntry {
    PyObject* key;
    PyObject* value;
};

// The entries of an exact dictionary of the most frequent kind: all keys are strings, and the
// values stand with them. None for any other object, and on versions that keep no such tables.
inline std::span<const TextEntry> text_entries_of([[maybe_unused]] PyObject* object) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT && PY_VERSION_HEX >= 0x030B0000
    if (is_exact_dict(object)) [[likely]] {
        const DictKeys& keys = *keys_of(object);
        if (keys.dk_kind == DICT_KEYS_UNICODE) [[likely]] {
            assert(reinterpret_cast<PyDictObject*>(object)->ma_values == nullptr);
            const char* entries = keys.dk_indices + (std::size_t{1} << keys.dk_log2_index_bytes);
            return {reinterpret_cast<const TextEntry*>(entries),
                    static_cast<std::size_t>(keys.dk_nentries)};
        }
    }
#endif
    return {};
}

// The entries of an exact dictionary. REQUIRES: a build that knows the layout.
inline Table table_of(PyObject* dict) {
    assert(kKnowsLayout);
    Table table = table_of_keys(*keys_of(dict));
    if (auto* beside = reinterpret_cast<PyDictObject*>(dict)->ma_values) [[unlikely]] {
        // Internal/pycore_dict.h: from 3.13 on, something stands in front of the values.
        constexpr std::size_t kHeadWords = PY_VERSION_HEX >= 0x030D0000 ? 1 : 0;
        table.values_ = reinterpret_cast<PyObject* const*>(beside) + kHeadWords;
        table.value_step_ = 1;
    }
    return table;
}

// Where an entry of a table stands if it is a small one, for hints: reads nothing of the table.
inline const void* usual_entry(const DictKeys& keys, std::size_t place) {
    constexpr std::size_t kUsualIndices = 8;
    return keys.dk_indices + kUsualIndices + place * 2 * sizeof(PyObject*);
}

}  // namespace search_analytics
