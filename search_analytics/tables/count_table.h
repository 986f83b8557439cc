// Counting evaluations, and those that passed, by some key.
#pragma once

#include <vector>

#include "python/iteration.h"
#include "tables/name_table.h"

namespace search_analytics {

struct PassCounts {
    Py_ssize_t total = 0;
    Py_ssize_t passed = 0;

    void add(bool is_pass) {
        ++total;
        passed += is_pass ? 1 : 0;
    }

    // The share that passed.
    double yield_rate() const { return total > 0 ? ratio(passed, total) : 0.0; }
};

// Counts by key, in the order in which the keys were first met. Keys are told apart as
// dictionaries tell them apart: one of totals, one of passes. As long as hashing and comparing the
// keys runs no code, one look-up serves for both; the first key of another type makes them real
// dictionaries, so that its hash and its comparisons run as often as they should.
class CountTable {
   public:
    CountTable() : totals_(new_dict()) {}

    void add(Arg key, bool is_pass);

    // Adds every name of a set once. Where several are new, they are numbered in the order in which
    // a real set holds them. Returns whether code may have run.
    bool add_each(NameSet& names, bool is_pass);

    // Whether every key so far is hashed and compared without running code.
    bool is_exact() const { return passes_.empty(); }

    // The keys, in ascending order.
    Ref sorted_keys() const { return sorted(totals_); }

    // The counts of a key that was added; KeyError if it cannot be found again.
    PassCounts counts(Arg key) const;

    // Calls `visit` with every key and its counts, in order.
    template <typename Visit>
    void for_each_key(Visit&& visit) const;

   private:
    std::size_t number_of_name(const Name& name, std::size_t place);
    void count(std::size_t number, Arg key, bool is_pass);
    void note_first_pass(std::size_t number, Arg key);
    std::size_t number_of_object(Arg key);
    std::size_t number_new(Arg key);
    void become_dictionaries();
    static void increment(const Ref& dict, Arg key);
    Py_ssize_t passed(Arg key) const;
    PassCounts counts_at(Arg key, Arg value) const;

    // While keys are exact: the numbers of the strings among them, and the numbers of the first
    // other keys, by the very object (borrowed: totals_ owns it), since small ints are shared.
    struct KnownObject {
        PyObject* key;
        std::size_t number;
    };
    static constexpr std::size_t kMostKnownObjects = 16;

    NameTable names_;
    std::vector<std::size_t> name_numbers_;
    // Where the names of the set at hand stand in names_.
    std::vector<std::size_t> places_;
    std::vector<KnownObject> known_objects_;
    std::vector<PassCounts> counts_;
    // The number of each key that passed, and the object that it was when it first did: the key
    // that a dictionary of passes holds.
    struct FirstPass {
        std::size_t number;
        Ref key;
    };
    std::vector<FirstPass> first_passes_;

    // Key to number while keys are exact, and key to total afterwards.
    Ref totals_;
    Ref passes_;
};

inline void CountTable::count(std::size_t number, Arg key, bool is_pass) {
    PassCounts& counts = counts_[number];
    if (is_pass && counts.passed == 0) [[unlikely]] {
        note_first_pass(number, key);
    }
    counts.add(is_pass);
}

template <typename Visit>
void CountTable::for_each_key(Visit&& visit) const {
    for_each(items_of_dict(totals_), [&](PyObject* entry) {
        const auto [key, value] = as_pair(entry);
        visit(key.get(), counts_at(key, value));
    });
}

}  // namespace search_analytics
