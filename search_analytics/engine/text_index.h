// Numbering plain strings in the order in which they are first met.
#pragma once

#include <cstdint>
#include <vector>

#include "host/containers.h"
#include "host/plain_text.h"

namespace search_analytics {

// Finds the number of an exact string by its hash and its text, without running code.
class TextIndex {
   public:
    std::size_t size() const { return texts_.size(); }
    PyObject* text(std::size_t number) const { return texts_[number].text.get(); }

    // The number of a text, or size() where it has not been met.
    std::size_t find(PyObject* text, Py_hash_t hash) const {
        if (slots_.empty()) {
            return 0;
        }
        const std::size_t mask = slots_.size() - 1;
        std::size_t slot = static_cast<std::uint64_t>(hash) & mask;
        for (; slots_[slot] != 0; slot = (slot + 1) & mask) {
            const host::OwnedText& known = texts_[slots_[slot] - 1];
            if (known.hash == hash && host::same_text(known.text.get(), text)) {
                return slots_[slot] - 1;
            }
        }
        return size();
    }

    // The same; a text that has not been met is numbered now.
    std::size_t number_of(PyObject* text, Py_hash_t hash) {
        const std::size_t number = find(text, hash);
        if (number == size()) {
            add(text, hash);
        }
        return number;
    }

   private:
    void add(PyObject* text, Py_hash_t hash);

    std::vector<host::OwnedText> texts_;
    // Open addressing: a text's number plus one, or 0 for a free slot.
    std::vector<std::uint32_t> slots_;
};

}  // namespace search_analytics
