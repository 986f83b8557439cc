// Counting evaluations, and those that passed, by some key.
#pragma once

#include <cstddef>
#include <vector>

#include "engine/group_key.h"
#include "engine/text_index.h"
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

// Counts by key, in the order in which the keys were first met. Keys are told apart as
// dictionaries tell them apart: one of totals, one of passes. As long as hashing and comparing the
// keys runs no code, one look-up serves for both; the first key of another type makes them real
// dictionaries, so that its hash and its comparisons run as often as they should.
class CountTable {
   public:
    CountTable() : totals_(host::new_dict()) {}

    void add(PyObject* key, bool is_pass);

    // Whether every key so far is hashed and compared without running code.
    bool runs_no_code() const { return passes_.empty(); }
    // The same, with one key more.
    bool runs_no_code_with(PyObject* key) const { return runs_no_code() && is_plain_key(key); }

    // Whether a plain string has not been met yet. REQUIRES: runs_no_code().
    bool is_new(const KeySide::Value& text) const {
        return texts_.find(text.text, text.hash) == texts_.size();
    }

    // Adds a plain string. REQUIRES: runs_no_code().
    void add(const KeySide::Value& text, bool is_pass) { add_text(text.text, text.hash, is_pass); }

    // The keys as a new list.
    host::Ref keys() const { return host::list_of(totals_.get()); }

    // The counts of a key that was added; KeyError if it cannot be found again.
    PassCounts counts(PyObject* key) const;

    // Calls `visit` with every key and its counts, in order.
    template <typename Visit>
    void for_each(Visit&& visit) const;

   private:
    static bool is_plain_key(PyObject* key) {
        return PyUnicode_CheckExact(key) || PyLong_CheckExact(key) || PyFloat_CheckExact(key) ||
               PyBool_Check(key) || key == Py_None;
    }
    std::size_t number_of_object(PyObject* key);
    void add_text(PyObject* text, Py_hash_t hash, bool is_pass);
    std::size_t number_new(PyObject* key);
    void become_dictionaries();
    static void increment(const host::Ref& dict, PyObject* key);
    Py_ssize_t passed(PyObject* key) const;

    // While keys are plain: the numbers of the strings among them, and the numbers of the first
    // other keys, by the very object (borrowed: totals_ owns it), since small ints are shared.
    struct KnownObject {
        PyObject* key;
        std::size_t number;
    };
    static constexpr std::size_t kMostKnownObjects = 16;

    TextIndex texts_;
    std::vector<std::size_t> text_numbers_;
    std::vector<KnownObject> known_objects_;

    // Key to number while keys are plain, and key to total afterwards.
    host::Ref totals_;
    host::Ref passes_;
    std::vector<PassCounts> counts_;
};

template <typename Visit>
void CountTable::for_each(Visit&& visit) const {
    const host::Ref entries = host::Ref::steal(PyDict_Items(totals_.get()));
    host::for_each(entries.get(), [&](PyObject* entry) {
        PyObject* key = PyTuple_GET_ITEM(entry, 0);
        const Py_ssize_t value = PyLong_AsSsize_t(PyTuple_GET_ITEM(entry, 1));
        visit(key, passes_.empty() ? counts_[static_cast<std::size_t>(value)]
                                   : PassCounts{value, passed(key)});
    });
}

}  // namespace search_analytics
