// Counting pairs of names that occur together.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/count_table.h"
#include "engine/text_index.h"

namespace search_analytics {

// Counts by ordered pair of names, in the order in which the pairs were first met. As long as all
// names are plain strings, a pair is two small numbers; the first name of another type turns the
// table into a dictionary keyed by tuples, for good.
class PairTable {
   public:
    // Counts every pair of an evaluation's distinct names, each with its smaller name first.
    // `passes` is asked once, and only if there is a pair. Whatever `names` holds is gone then.
    template <typename Passes>
    void add(KeySide& names, Passes&& passes);

    std::size_t size() const { return counts_.size(); }
    host::Ref first(std::size_t pair) const;
    host::Ref second(std::size_t pair) const;
    const PassCounts& counts(std::size_t pair) const { return counts_[pair]; }

    // The first `count` pairs by passed co-occurrences, most first, ties by their names. Only
    // while is_plain(): plain strings are ordered without running code.
    std::vector<std::size_t> best(std::size_t count) const;
    bool is_plain() const { return numbers_.empty(); }

   private:
    struct Pair {
        std::uint32_t first;
        std::uint32_t second;
    };

    void number(KeySide& names);
    PassCounts& plain_counts(Pair pair);
    void become_tuples();
    void add_row(bool passed);
    void add_sorted(const host::Ref& ordered, bool passed);
    void add_tuple(host::Ref tuple, bool passed);

    TextIndex names_;
    // Pairs by number, and their slots.
    std::vector<Pair> pairs_;
    std::vector<PassCounts> counts_;
    std::vector<std::uint32_t> pair_slots_;

    // Once plain strings do not do any more: tuple to number, and number to tuple.
    host::Ref numbers_;
    std::vector<host::Ref> tuples_;

    // The numbers of one evaluation's names.
    std::vector<std::uint32_t> row_;
    host::SignalWatch signals_;
};

template <typename Passes>
void PairTable::add(KeySide& names, Passes&& passes) {
    if (is_plain() && names.holds_only_text()) {
        number(names);
        if (row_.size() >= 2) {
            add_row(passes());
        }
        return;
    }
    if (is_plain()) {
        become_tuples();
    }
    const host::Ref ordered = host::list_of(names.frozen().get());
    host::check(PyList_Sort(ordered.get()));
    if (host::list_size(ordered) >= 2) {
        add_sorted(ordered, passes());
    }
}

}  // namespace search_analytics
