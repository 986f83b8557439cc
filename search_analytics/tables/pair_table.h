// Counting pairs of names that occur together.
#pragma once

#include <deque>

#include "tables/count_table.h"

namespace search_analytics {

// Counts by ordered pair of names, in the order in which the pairs were first met. As long as all
// names are exact strings, a pair is two small numbers; the first name of another type turns the
// table into a dictionary keyed by tuples, for good.
class PairTable {
   public:
    // Counts every pair of an evaluation's distinct names, each with its smaller name first.
    // `passes` is asked once, and only if there is a pair. Whatever `names` holds is gone then.
    // Returns whether code may have run but for `passes`.
    template <typename Passes>
    bool add(NameSet& names, Passes&& passes);

    std::size_t size() const { return is_exact() ? pairs_.size() : dict_size(counts_); }

    // Calls `visit` with the names of every pair, the objects that they were when the pair first
    // occurred, and its counts, in order.
    template <typename Visit>
    void for_each_pair(Visit&& visit) const;

    // Whether all names are exact strings so far, which are ordered without running code.
    bool is_exact() const { return counts_.empty(); }

    // The same for the first `count` pairs by passed co-occurrences, most first, ties by their
    // names. REQUIRES: is_exact().
    template <typename Visit>
    void for_best_pairs(std::size_t count, Visit&& visit) const;

   private:
    // A pair by the numbers of its names.
    struct Pair {
        std::uint32_t first;
        std::uint32_t second;

        std::uint64_t hash() const {
            return keyed_hash((static_cast<std::uint64_t>(first) << 32) | second);
        }
        bool operator==(const Pair&) const = default;
    };
    struct PairCounts {
        Pair pair;
        PassCounts counts;
    };
    struct PairNames {
        Ref first;
        Ref second;
    };

    bool add_small_row(NameSet& names, bool is_pass);
    void add_large_row(const Ref& set, bool is_pass);
    // A name of the evaluation at hand: its number, and its place among the evaluation's names.
    struct RowName {
        std::uint32_t number;
        std::uint32_t place;
    };

    bool is_before(const RowName& left, const RowName& right) const;

    // `text_at` gives the text of a name by its place.
    template <typename TextAt>
    void count_pairs_from(std::size_t i, bool is_pass, TextAt&& text_at);
    void add_to_row(const Name& name);
    std::size_t add_pair(Pair pair, std::uint64_t hash, Arg first, Arg second);
    std::vector<std::size_t> best(std::size_t count) const;
    void become_tuples();
    void add_sorted(const Ref& ordered, bool is_pass);
    void add_tuple(const Ref& tuple, bool is_pass);
    static Ref count_tuple(const PassCounts& counts);
    static PassCounts pass_counts(Arg tuple);

    NameTable names_;
    std::vector<PairCounts> pairs_;
    std::deque<PairNames> pair_names_;
    Slots slots_;

    // Once exact strings do not do any more: tuple of names to tuple of counts. These are values,
    // not places: dictionaries compare when they look up and again when they store, and may find
    // two entries for one pair.
    Ref counts_;

    std::vector<RowName> row_;
};

template <typename Visit>
void PairTable::for_each_pair(Visit&& visit) const {
    if (is_exact()) {
        for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
            visit(pair_names_[pair].first, pair_names_[pair].second, pairs_[pair].counts);
        }
        return;
    }
    for_each(items_of_dict(counts_), [&](PyObject* entry) {
        const auto [names, counts] = as_pair(entry);
        const auto [first, second] = as_pair(names);
        visit(first, second, pass_counts(counts));
    });
}

template <typename Visit>
void PairTable::for_best_pairs(std::size_t count, Visit&& visit) const {
    for (const std::size_t pair : best(count)) {
        visit(pair_names_[pair].first, pair_names_[pair].second, pairs_[pair].counts);
    }
}

// Counts the pairs that begin with a name of the row.
template <typename TextAt>
void PairTable::count_pairs_from(std::size_t i, bool is_pass, TextAt&& text_at) {
    for (std::size_t j = i + 1; j < row_.size(); ++j) {
        const Pair pair = {row_[i].number, row_[j].number};
        const std::uint64_t hash = pair.hash();
        std::size_t number =
            slots_.find(hash, [&](std::size_t known) { return pairs_[known].pair == pair; });
        if (number == Slots::kNone) [[unlikely]] {
            number = add_pair(pair, hash, text_at(row_[i].place), text_at(row_[j].place));
        }
        pairs_[number].counts.add(is_pass);
    }
}

template <typename Passes>
bool PairTable::add(NameSet& names, Passes&& passes) {
    if (is_exact() && names.is_exact()) {
        return names.names().size() >= 2 && add_small_row(names, passes());
    }
    const bool holds_only_str = names.holds_only_str();
    const Ref set = names.frozen();
    if (is_exact() && holds_only_str) {
        add_large_row(set, passes());
        return true;
    }
    if (is_exact()) {
        become_tuples();
    }
    const Ref ordered = sorted(set);
    if (list_size(ordered) >= 2) {
        add_sorted(ordered, passes());
    }
    return true;
}

}  // namespace search_analytics
