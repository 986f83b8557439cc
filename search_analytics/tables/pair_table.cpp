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

void PairTable::sort_row() {
    std::ranges::sort(row_, [&](const RowName& left, const RowName& right) {
        return comes_before(names_.text(left.number), names_.text(right.number));
    });
}

// The names may be borrowed from a record that is only peeked at: signals are looked for when the
// last of them has been read.
bool PairTable::add_small_row(NameSet& names, bool is_pass) {
    row_.clear();
    for (const Name& name : names.names()) {
        add_to_row(name);
    }
    sort_row();
    for (std::size_t i = 0; i < row_.size(); ++i) {
        count_pairs_from(i, is_pass, [&](std::size_t place) { return names.names()[place].text; });
    }
    return signals_.work(row_.size() * row_.size() / 2);
}

void PairTable::add_large_row(const Ref& set, bool is_pass) {
    row_.clear();
    std::vector<PyObject*> texts;
    for_each(set, [&](PyObject* text) {
        add_to_row({text_hash(text), text});
        texts.push_back(text);
    });
    sort_row();
    for (std::size_t i = 0; i < row_.size(); ++i) {
        count_pairs_from(i, is_pass, [&](std::size_t place) { return texts[place]; });
        signals_.work(row_.size() - i);
    }
}

void PairTable::add_sorted(const Ref& ordered, bool is_pass) {
    const Py_ssize_t count = list_size(ordered);
    for (Py_ssize_t i = 0; i < count; ++i) {
        for (Py_ssize_t j = i + 1; j < count; ++j) {
            add_tuple(tuple_of(list_item(ordered, i), list_item(ordered, j)), is_pass);
        }
        signals_.work(static_cast<std::size_t>(count - i));
    }
}

// Looks the pair up and stores it each time, as counts that are values in a dictionary are.
void PairTable::add_tuple(const Ref& tuple, bool is_pass) {
    const auto known = dict_entry(numbers_, tuple);
    const std::size_t number = known ? as_place(*known, pairs_.size()) : pairs_.size();
    set_item(numbers_, tuple, new_int(static_cast<Py_ssize_t>(number)));
    if (!known) {
        pairs_.emplace_back();
    }
    pairs_[number].counts.add(is_pass);
}

void PairTable::become_tuples() {
    Ref numbers = new_dict();
    Py_ssize_t number = 0;
    for (const PairNames& names : pair_names_) {
        set_item(numbers, tuple_of(names.first, names.second), new_int(number++));
    }
    numbers_ = std::move(numbers);
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
                              ranks_before);
    ranking.resize(count);
    return ranking;
}

}  // namespace search_analytics
