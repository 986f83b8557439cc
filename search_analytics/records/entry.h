// Reading the entry under the same key of one dictionary after another.
#pragma once

#include "layout/table.h"
#include "records/prefetch.h"

namespace search_analytics {

// A key that is looked for in one table after another. Tables of the same source list their keys in
// the same order, so that the place where it was found last is looked at first. Runs no code.
class TableKey {
   public:
    TableKey() noexcept = default;

    // A key that is no exact string is found nowhere. REQUIRES: `key` outlives this.
    explicit TableKey(PyObject* key)
        : key_(is_exact_str(key) ? key : nullptr), hash_(key_ != nullptr ? text_hash(key_) : 0) {}

    // Whether a key of a table all of whose keys are strings is this one; null is none.
    bool is(PyObject* key) const {
        return key == key_ ? key != nullptr
                           : key != nullptr && known_hash(key) == hash_ && key_ != nullptr &&
                                 same_text(key, key_);
    }

    // The value under the key, borrowed; or null where there is none, or where it takes an ordinary
    // look-up to tell. `place` is where it was found last.
    PyObject* find(const Table& table, std::size_t& place) const;

    // Whether the key is surely not in the table.
    bool is_missing_in(const Table& table) const;

   private:
    bool is_at(const Table& table, std::size_t place) const;
    PyObject* search(const Table& table, std::size_t& place) const;

    PyObject* key_ = nullptr;
    Py_hash_t hash_ = 0;
};

// An entry by its key, with an inline cache: it remembers in which place the last dictionary had
// it.
class Entry {
   public:
    Entry() noexcept = default;

    // REQUIRES: `key` outlives the entry.
    explicit Entry(PyObject* key) : key_(key) {}

    // Looks for another key from now on. REQUIRES: `key` outlives the entry.
    void set_key(PyObject* key) { key_ = TableKey(key); }

    // The value under the key, borrowed; or null where it takes an ordinary look-up to tell. Runs
    // no code.
    PyObject* peek(PyObject* object) {
        const auto entries = text_entries_of(object);
        if (place_ < entries.size() && key_.is(entries[place_].key)) [[likely]] {
            return entries[place_].value;
        }
        return kKnowsLayout && is_exact_dict(object) ? key_.find(table_of(object), place_)
                                                     : nullptr;
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
        const auto entries = text_entries_of(object);
        if (place_ < entries.size()) {
            prefetch_text(entries[place_].key);
            prefetch_value(entries[place_].value);
        }
    }

   private:
    TableKey key_;
    std::size_t place_ = 0;
};

}  // namespace search_analytics
