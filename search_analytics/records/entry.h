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

    // The value under the key, borrowed; or null where there is none, or where it takes an ordinary
    // look-up to tell. `place` is where it was found last.
    PyObject* find(const Table& table, std::size_t& place) const {
        if (key_ == nullptr) {
            return nullptr;
        }
        if (place < table.size() && table.key(place) == key_ && table.has_only_text()) [[likely]] {
            return table.value(place);
        }
        return search(table, place);
    }

    // Whether the key is surely not in the table.
    bool is_missing_in(const Table& table) const {
        std::size_t place = 0;
        return key_ != nullptr && table.has_only_text() && table.size() <= kMostSearched &&
               search(table, place) == nullptr;
    }

   private:
    // Through more entries than this it is quicker to go by the hash.
    static constexpr std::size_t kMostSearched = 32;

    bool is_at(const Table& table, std::size_t place) const {
        PyObject* key = table.key(place);
        return key == key_ || (key != nullptr && PyUnicode_CheckExact(key) &&
                               known_hash(key) == hash_ && same_text(key, key_));
    }

    // A look-up would ask any key that has the same hash and is no exact string.
    bool may_be_asked_at(const Table& table, std::size_t place) const {
        return table.key(place) != nullptr && table.hash(place) == hash_ &&
               !PyUnicode_CheckExact(table.key(place));
    }

    PyObject* search(const Table& table, std::size_t& place) const {
        if (place < table.size() && is_at(table, place) && table.has_only_text()) {
            return table.value(place);
        }
        if (table.size() > kMostSearched) {
            return nullptr;
        }
        PyObject* found = nullptr;
        for (std::size_t i = 0; i < table.size(); ++i) {
            if (found == nullptr && is_at(table, i)) {
                place = i;
                found = table.value(i);
                if (table.has_only_text()) {
                    return found;
                }
            } else if (!table.has_only_text() && may_be_asked_at(table, i)) {
                return nullptr;
            }
        }
        return found;
    }

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
        if (!kKnowsLayout || !is_exact_dict(object)) {
            return nullptr;
        }
        return key_.find(table_of(object), place_);
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
        if (!kKnowsLayout || !is_exact_dict(object)) {
            return;
        }
        const Table table = table_of(object);
        if (place_ < table.size() && table.key(place_) != nullptr &&
            table.value(place_) != nullptr) {
            prefetch_text(table.key(place_));
            prefetch_value(table.value(place_));
        }
    }

   private:
    TableKey key_;
    std::size_t place_ = 0;
};

}  // namespace search_analytics
