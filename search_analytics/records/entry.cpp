// Reading the entry under the same key of one dictionary after another.
#include "records/entry.h"

namespace search_analytics {

namespace {

// Through more entries than this it is quicker to go by the hash.
constexpr std::size_t kMostSearched = 32;

// Whether a look-up of a text may ask a key, which has the same hash and is no exact string.
bool may_be_asked(const Table& table, std::size_t place, Py_hash_t hash) {
    return table.key(place) != nullptr && table.hash(place) == hash &&
           !PyUnicode_CheckExact(table.key(place));
}

}  // namespace

PyObject* TableKey::find(const Table& table, std::size_t& place) const {
    if (key_ == nullptr) {
        return nullptr;
    }
    if (table.has_only_text() && place < table.size() && is(table.key(place))) {
        return table.value(place);
    }
    return table.size() <= kMostSearched ? search(table, place) : nullptr;
}

bool TableKey::is_missing_in(const Table& table) const {
    std::size_t place = 0;
    return key_ != nullptr && table.has_only_text() && table.size() <= kMostSearched &&
           search(table, place) == nullptr;
}

bool TableKey::is_at(const Table& table, std::size_t place) const {
    PyObject* key = table.key(place);
    return key != nullptr && (table.has_only_text() || PyUnicode_CheckExact(key)) && is(key);
}

// REQUIRES: there is a key.
PyObject* TableKey::search(const Table& table, std::size_t& place) const {
    assert(key_ != nullptr);
    PyObject* found = nullptr;
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (found == nullptr && is_at(table, i)) {
            place = i;
            found = table.value(i);
            if (table.has_only_text()) {
                return found;
            }
        } else if (!table.has_only_text() && may_be_asked(table, i, hash_)) {
            return nullptr;
        }
    }
    return found;
}

}  // namespace search_analytics
