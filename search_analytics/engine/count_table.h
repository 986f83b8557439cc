// Counting evaluations, and those that passed, by some key.
#pragma once

#include <cstddef>
#include <vector>

#include "host/containers.h"

namespace search_analytics {

struct PassCounts {
    Py_ssize_t total = 0;
    Py_ssize_t passed = 0;

    void add(bool is_pass) {
        ++total;
        passed += is_pass ? 1 : 0;
    }

    // The share that passed.
    double yield_rate() const { return total > 0 ? host::ratio(passed, total) : 0.0; }
};

// Counts by key, in the order in which the keys were first met. Keys are told apart as a
// dictionary does.
class CountTable {
   public:
    CountTable() : numbers_(host::new_dict()) {}

    // The number of a key, or nothing where it has not been met.
    std::optional<std::size_t> find(PyObject* key) const;

    // The counts of a key; of zeros where it is new. Valid until the next new key.
    PassCounts& counts(PyObject* key);

    std::size_t size() const { return keys_.size(); }
    PyObject* key(std::size_t number) const { return keys_[number].get(); }
    const PassCounts& counts(std::size_t number) const { return counts_[number]; }

    // The keys as a new list.
    host::Ref keys() const { return host::list_of(numbers_.get()); }

   private:
    host::Ref numbers_;
    std::vector<host::Ref> keys_;
    std::vector<PassCounts> counts_;
};

}  // namespace search_analytics
