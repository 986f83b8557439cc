// Reading the entry under the same key of one dictionary after another.
#pragma once

#include "records/layout.h"
#include "records/prefetch.h"

namespace search_analytics {

// An entry by its key, with an inline cache: it remembers in which place the last dictionary had
// it, since dictionaries that come from the same source list their keys in the same order.
class Entry {
   public:
    Entry() noexcept = default;

    // A key that is no exact string is found nowhere. REQUIRES: `key` outlives the entry.
    explicit Entry(PyObject* key) { set_key(key); }

    // Looks for another key from now on. REQUIRES: `key` outlives the entry.
    void set_key(PyObject* key) {
        key_ = is_exact_str(key) ? key : nullptr;
        hash_ = key_ != nullptr ? text_hash(key_) : 0;
    }

    // The value under the key, borrowed; or null where it takes an ordinary look-up to tell. Runs
    // no code.
    PyObject* peek(PyObject* object) {
        const DictKeys* keys = str_keys_of(object);
        if (keys == nullptr || key_ == nullptr) {
            return nullptr;
        }
        const auto entries = entries_of(*keys);
        if (place_ < entries.size() && is_wanted(entries[place_])) [[likely]] {
            return entries[place_].me_value;
        }
        return search(entries);
    }

    // Hints that the dictionary will be looked into soon. Reads the dictionary, not its table.
    void prefetch_place(PyObject* object) const {
        if (is_exact_dict(object)) {
            const DictKeys* keys = keys_of(object);
            prefetch(keys);
            prefetch(usual_entry(*keys, place_));
        }
    }

    // Hints that the entry will be read soon. Reads the table.
    void prefetch_entry(PyObject* object) const {
        const DictKeys* keys = str_keys_of(object);
        if (keys != nullptr && place_ < entries_of(*keys).size()) {
            const DictUnicodeEntry& entry = entries_of(*keys)[place_];
            prefetch_text(entry.me_key);
            prefetch_value(entry.me_value);
        }
    }

   private:
    // Through more entries than this it is quicker to go by the hash.
    static constexpr std::size_t kMostSearched = 32;

    bool is_wanted(const DictUnicodeEntry& entry) const {
        return entry.me_value != nullptr &&
               (entry.me_key == key_ ||
                (known_hash(entry.me_key) == hash_ && same_text(entry.me_key, key_)));
    }

    PyObject* search(std::span<const DictUnicodeEntry> entries) {
        if (entries.size() > kMostSearched) {
            return nullptr;
        }
        for (std::size_t place = 0; place < entries.size(); ++place) {
            if (is_wanted(entries[place])) {
                place_ = place;
                return entries[place].me_value;
            }
        }
        return nullptr;
    }

    PyObject* key_ = nullptr;
    Py_hash_t hash_ = 0;
    std::size_t place_ = 0;
};

}  // namespace search_analytics
