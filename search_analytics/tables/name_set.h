// The set of names that a record uses on one side, while it is being collected.
#pragma once

#include <vector>

#include "python/containers.h"
#include "python/turns.h"
#include "tables/name_hash.h"

namespace search_analytics {

// An exact string and its hash, borrowed.
struct Name {
    explicit Name(PyObject* exact) : hash(name_hash(exact)), text(exact) {}

    std::uint64_t hash;
    PyObject* text;
};

// As long as the values are a few exact strings the set is only a list of them, and costs no set;
// anything else makes it a real set, filled in the same order, so that foreign hashes and
// comparisons run as they should.
class NameSet {
   public:
    // Empties the set for the next record.
    void clear() {
        names_.clear();
        if (!owned_.empty() || !is_exact()) {
            drop_owned();
        }
        holds_only_str_ = true;
    }

    // Adds one value, as a set does.
    void add(Arg value);

    // Adds an exact string without owning it: it stays what it is until code runs. False where
    // there are too many for a list. REQUIRES: is_exact().
    bool add_borrowed(PyObject* text);

    // Whether the distinct values all stand in names(), in the order in which they were met.
    bool is_exact() const { return set_.empty(); }
    const std::vector<Name>& names() const { return names_; }

    // Whether all values are exact strings, be they few or many.
    bool holds_only_str() const { return holds_only_str_; }

    // The set as a frozenset, which is handed over: what was collected is gone.
    Ref frozen();

   private:
    // Beyond so many distinct names, comparing them one by one costs more than a real set does.
    static constexpr std::size_t kMostListedNames = 128;

    bool is_present(const Name& name) const;
    // Kept out of clear(), which most records pass without it.
    [[gnu::noinline]] void drop_owned();
    void make_set();

    std::vector<Name> names_;
    // The references to them, where the set has any.
    std::vector<Ref> owned_;
    // What becomes the frozenset, hidden until it is handed over.
    Ref set_;
    bool holds_only_str_ = true;
};

inline bool NameSet::is_present(const Name& name) const {
    for (const Name& present : names_) {
        if (present.hash == name.hash && same_text(present.text, name.text)) {
            return true;
        }
    }
    return false;
}

inline bool NameSet::add_borrowed(PyObject* text) {
    assert(is_exact());
    const Name name(text);
    if (!is_present(name)) {
        names_.push_back(name);
    }
    return names_.size() <= kMostListedNames;
}

}  // namespace search_analytics
