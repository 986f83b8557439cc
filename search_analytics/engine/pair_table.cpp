// Counting pairs of names that occur together.
#include "engine/pair_table.h"

#include <algorithm>

#include "engine/slots.h"

namespace search_analytics {

using namespace host;

namespace {

std::uint64_t pair_hash(std::uint32_t first, std::uint32_t second) {
    std::uint64_t bits = (static_cast<std::uint64_t>(first) << 32) | second;
    bits ^= bits >> 33;
    bits *= 0xFF51AFD7ED558CCDU;
    return bits ^ (bits >> 33);
}

// The order of two plain strings, which runs no code.
bool comes_before(PyObject* left, PyObject* right) { return PyUnicode_Compare(left, right) < 0; }

}  // namespace

PassCounts& PairTable::plain_counts(Pair pair) {
    reserve_slot(pair_slots_, pairs_.size(), [&](std::size_t entry) {
        return pair_hash(pairs_[entry].first, pairs_[entry].second);
    });
    const std::size_t mask = pair_slots_.size() - 1;
    std::size_t slot = pair_hash(pair.first, pair.second) & mask;
    for (; pair_slots_[slot] != 0; slot = (slot + 1) & mask) {
        const std::uint32_t number = pair_slots_[slot] - 1;
        if (pairs_[number].first == pair.first && pairs_[number].second == pair.second) {
            return counts_[number];
        }
    }
    pairs_.push_back(pair);
    pair_slots_[slot] = static_cast<std::uint32_t>(pairs_.size());
    return counts_.emplace_back();
}

// Puts the numbers of an evaluation's names into row_.
void PairTable::number(KeySide& names) {
    row_.clear();
    if (names.is_plain()) {
        for (const KeySide::Value& name : names.values()) {
            row_.push_back(static_cast<std::uint32_t>(names_.number_of(name.text, name.hash)));
        }
        return;
    }
    const Ref set = names.frozen();
    for_each(set.get(), [&](PyObject* name) {
        row_.push_back(static_cast<std::uint32_t>(names_.number_of(name, PyObject_Hash(name))));
    });
}

void PairTable::add_row(bool passed) {
    std::ranges::sort(row_, [&](std::uint32_t left, std::uint32_t right) {
        return comes_before(names_.text(left), names_.text(right));
    });
    for (std::size_t i = 0; i < row_.size(); ++i) {
        for (std::size_t j = i + 1; j < row_.size(); ++j) {
            plain_counts({row_[i], row_[j]}).add(passed);
        }
        signals_.work(row_.size() - i);
    }
}

void PairTable::add_sorted(const Ref& ordered, bool passed) {
    const Py_ssize_t count = list_size(ordered);
    for (Py_ssize_t i = 0; i < count; ++i) {
        for (Py_ssize_t j = i + 1; j < count; ++j) {
            add_tuple(tuple_of(item(ordered.get(), i), item(ordered.get(), j)), passed);
        }
        signals_.work(static_cast<std::size_t>(count - i));
    }
}

// Looks the pair up and stores it each time, as counts that are values in a dictionary are.
void PairTable::add_tuple(Ref tuple, bool passed) {
    const auto known = dict_entry(numbers_.get(), tuple.get());
    const std::size_t number = known ? PyLong_AsSize_t(known->get()) : counts_.size();
    set_item(numbers_, tuple.get(), integer(static_cast<Py_ssize_t>(number)).get());
    if (!known) {
        counts_.emplace_back();
        tuples_.push_back(std::move(tuple));
    }
    counts_[number].add(passed);
}

void PairTable::become_tuples() {
    Ref numbers = new_dict();
    for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
        tuples_.push_back(Ref::steal(
            PyTuple_Pack(2, names_.text(pairs_[pair].first), names_.text(pairs_[pair].second))));
        set_item(numbers, tuples_.back().get(), integer(static_cast<Py_ssize_t>(pair)).get());
    }
    numbers_ = std::move(numbers);
}

Ref PairTable::first(std::size_t pair) const {
    return is_plain() ? Ref::share(names_.text(pairs_[pair].first))
                      : Ref::share(PyTuple_GET_ITEM(tuples_[pair].get(), 0));
}

Ref PairTable::second(std::size_t pair) const {
    return is_plain() ? Ref::share(names_.text(pairs_[pair].second))
                      : Ref::share(PyTuple_GET_ITEM(tuples_[pair].get(), 1));
}

std::vector<std::size_t> PairTable::best(std::size_t count) const {
    std::vector<std::size_t> ranking(pairs_.size());
    for (std::size_t pair = 0; pair < ranking.size(); ++pair) {
        ranking[pair] = pair;
    }
    const auto ranks_before = [&](std::size_t left, std::size_t right) {
        if (counts_[left].passed != counts_[right].passed) {
            return counts_[left].passed > counts_[right].passed;
        }
        const Pair& one = pairs_[left];
        const Pair& other = pairs_[right];
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
