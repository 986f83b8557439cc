// Counting pairs of names that occur together.
#include "tables/pair_table.h"

#include <algorithm>

namespace search_analytics {

std::size_t PairTable::add_pair(Pair pair, std::uint64_t hash, Arg first, Arg second) {
    slots_.add(hash, [&](std::size_t number) { return pairs_[number].pair.hash(); });
    pairs_.push_back({pair, {}});
    pair_names_.push_back({first.share(), second.share()});
    return pairs_.size() - 1;
}

void PairTable::add_to_row(const Name& name) {
    row_.push_back({static_cast<std::uint32_t>(names_.number_of(name)),
                    static_cast<std::uint32_t>(row_.size())});
}

bool PairTable::is_before(const RowName& left, const RowName& right) const {
    return comes_before(names_.text(left.number), names_.text(right.number));
}

// The names may be borrowed from a record that is only peeked at: others have their turn when the
// last of them has been read.
bool PairTable::add_small_row(NameSet& names, bool is_pass) {
    row_.clear();
    for (const Name& name : names.names()) {
        add_to_row(name);
    }
    std::ranges::sort(row_,
                      [&](const auto& one, const auto& other) { return is_before(one, other); });
    for (std::size_t i = 0; i < row_.size(); ++i) {
        count_pairs_from(i, is_pass, [&](std::size_t place) { return names.names()[place].text; });
    }
    return take_turns_after(row_.size() * row_.size() / 2 * kWorkOfComparison);
}

void PairTable::add_large_row(const Ref& set, bool is_pass) {
    row_.clear();
    std::vector<PyObject*> texts;
    for_each(set, [&](PyObject* text) {
        add_to_row(Name(text));
        texts.push_back(text);
    });
    std::ranges::sort(
        row_, in_turns([&](const auto& one, const auto& other) { return is_before(one, other); }));
    for (std::size_t i = 0; i < row_.size(); ++i) {
        count_pairs_from(i, is_pass, [&](std::size_t place) { return texts[place]; });
        take_turns_after((row_.size() - i) * kWorkOfComparison);
    }
}

void PairTable::add_sorted(const Ref& ordered, bool is_pass) {
    const Py_ssize_t count = list_size(ordered);
    for (Py_ssize_t i = 0; i < count; ++i) {
        for (Py_ssize_t j = i + 1; j < count; ++j) {
            add_tuple(tuple_of(list_item(ordered, i), list_item(ordered, j)), is_pass);
            take_turns_after(kWorkOfStep);
        }
    }
}

Ref PairTable::count_tuple(const PassCounts& counts) {
    return tuple_of(new_int(counts.total), new_int(counts.passed));
}

PassCounts PairTable::pass_counts(Arg tuple) {
    const auto [total, passed] = as_pair(tuple);
    return {as_count(total), as_count(passed)};
}

// dict[tuple] = (total + 1, passed + is_pass), of dict.get(tuple, (0, 0))
void PairTable::add_tuple(const Ref& tuple, bool is_pass) {
    const auto known = dict_entry(counts_, tuple);
    PassCounts counts = known ? pass_counts(*known) : PassCounts();
    counts.add(is_pass);
    set_item(counts_, tuple, count_tuple(counts));
}

void PairTable::become_tuples() {
    Ref counts = new_dict();
    for_each_pair([&](Arg first, Arg second, const PassCounts& pair) {
        set_item(counts, tuple_of(first, second), count_tuple(pair));
    });
    counts_ = std::move(counts);
}

std::vector<std::size_t> PairTable::best(std::size_t count) const {
    assert(is_exact());
    std::vector<std::size_t> ranking(pairs_.size());
    for (std::size_t pair = 0; pair < ranking.size(); ++pair) {
        ranking[pair] = pair;
    }
    const auto ranks_before = [&](std::size_t left, std::size_t right) {
        if (pairs_[left].counts.passed != pairs_[right].counts.passed) {
            return pairs_[left].counts.passed > pairs_[right].counts.passed;
        }
        const Pair& one = pairs_[left].pair;
        const Pair& other = pairs_[right].pair;
        return one.first != other.first
                   ? comes_before(names_.text(one.first), names_.text(other.first))
                   : comes_before(names_.text(one.second), names_.text(other.second));
    };
    count = std::min(count, ranking.size());
    std::ranges::partial_sort(ranking, ranking.begin() + static_cast<std::ptrdiff_t>(count),
                              in_turns(ranks_before));
    ranking.resize(count);
    return ranking;
}

}  // namespace search_analytics
