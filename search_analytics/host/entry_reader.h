// Reading the entry under the same key of one dictionary after another.
#pragma once

#include "host/key_table.h"
#include "host/plain_text.h"
#include "host/prefetch.h"

namespace search_analytics::host {

// Looks entries up, and remembers in which place the last dictionary had its own: dictionaries
// that come from the same source list their keys in the same order.
class EntryReader {
   public:
    EntryReader() noexcept = default;

    // A key that is no plain string is found nowhere. REQUIRES: `key` outlives the reader.
    explicit EntryReader(PyObject* key) : key_(is_plain_text(key) ? key : nullptr) {
        if (key_ != nullptr) {
            hash_ = text_hash(key_);
        }
    }

    // The value under the key, borrowed; or null where it takes an ordinary look-up to tell. Runs
    // no code.
    PyObject* look(PyObject* object) {
        const KeyTable* table = plain_table(object);
        if (table == nullptr || key_ == nullptr) {
            return nullptr;
        }
        if (place_ < table->entry_count) [[likely]] {
            const KeyTable::Entry& entry = table->entries()[place_];
            if (is_wanted(entry)) [[likely]] {
                return entry.value;
            }
        }
        return search(*table);
    }

    // Hints that the dictionary will be looked into soon. Reads the dictionary, not its table.
    void prefetch_place(PyObject* object) const {
        if (PyDict_CheckExact(object)) {
            const void* table = reinterpret_cast<PyDictObject*>(object)->ma_keys;
            prefetch(table);
            prefetch(static_cast<const KeyTable*>(table)->indices + kUsualIndices +
                     static_cast<std::size_t>(place_) * sizeof(KeyTable::Entry));
        }
    }

    // Hints that the entry will be read soon. Reads the table.
    void prefetch_entry(PyObject* object) const {
        const KeyTable* table = plain_table(object);
        if (table != nullptr && place_ < table->entry_count) {
            const KeyTable::Entry& entry = table->entries()[place_];
            prefetch_text(entry.key);
            prefetch_value(entry.value);
        }
    }

   private:
    // How many indices stand in front of the entries of a small table.
    static constexpr std::size_t kUsualIndices = 8;
    // Through more entries than this it is quicker to go by the hash.
    static constexpr Py_ssize_t kMostSearched = 32;

    bool is_wanted(const KeyTable::Entry& entry) const {
        return entry.value != nullptr &&
               (entry.key == key_ || (reinterpret_cast<PyASCIIObject*>(entry.key)->hash == hash_ &&
                                      same_text(entry.key, key_)));
    }

    PyObject* search(const KeyTable& table) {
        if (table.entry_count > kMostSearched) {
            return nullptr;
        }
        for (Py_ssize_t place = 0; place < table.entry_count; ++place) {
            if (is_wanted(table.entries()[place])) {
                place_ = place;
                return table.entries()[place].value;
            }
        }
        return nullptr;
    }

    PyObject* key_ = nullptr;
    Py_hash_t hash_ = 0;
    Py_ssize_t place_ = 0;
};

}  // namespace search_analytics::host
