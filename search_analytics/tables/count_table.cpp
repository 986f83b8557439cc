// Counting evaluations, and those that passed, by some key.
#include "tables/count_table.h"

namespace search_analytics {

void CountTable::note_first_pass(std::size_t number, Arg key) {
    first_passes_.push_back({number, key.share()});
}

std::size_t CountTable::number_new(Arg key) {
    const std::size_t number = counts_.size();
    set_item(totals_, key, new_int(static_cast<Py_ssize_t>(number)));
    counts_.emplace_back();
    return number;
}

// The number of a name's counts, by its place among the names; a new one where it has none yet.
std::size_t CountTable::number_of_name(const Name& name, std::size_t place) {
    if (place == Slots::kNone) [[unlikely]] {
        names_.add(name);
        name_numbers_.push_back(number_new(name.text));
        return name_numbers_.back();
    }
    return name_numbers_[place];
}

std::size_t CountTable::number_of_object(Arg key) {
    for (const KnownObject& known : known_objects_) {
        if (known.key == key) {
            return known.number;
        }
    }
    if (const auto entry = dict_entry(totals_, key)) {
        return as_place(*entry, counts_.size());
    }
    const std::size_t number = number_new(key);
    if (known_objects_.size() < kMostKnownObjects) {
        known_objects_.push_back({key, number});
    }
    return number;
}

void CountTable::add(Arg key, bool is_pass) {
    if (is_exact() && !is_exact_key(key)) {
        become_dictionaries();
    }
    if (!is_exact()) {
        increment(totals_, key);
        if (is_pass) {
            increment(passes_, key);
        }
    } else if (is_exact_str(key)) {
        note_work(text_length(key));
        const Name name(key);
        count(number_of_name(name, names_.find(name)), key, is_pass);
    } else {
        count(number_of_object(key), key, is_pass);
    }
}

bool CountTable::add_each(NameSet& names, bool is_pass) {
    if (names.is_exact() && is_exact()) {
        const std::vector<Name>& listed = names.names();
        std::size_t unknown = 0;
        places_.clear();
        for (const Name& name : listed) {
            places_.push_back(names_.find(name));
            unknown += places_.back() == Slots::kNone ? 1 : 0;
        }
        if (unknown < 2) {
            for (std::size_t i = 0; i < listed.size(); ++i) {
                count(number_of_name(listed[i], places_[i]), listed[i].text, is_pass);
            }
            return false;
        }
    }
    const Ref set = names.frozen();
    for_each(set, [&](PyObject* name) { add(name, is_pass); });
    return true;
}

// dict[key] = dict.get(key, 0) + 1
void CountTable::increment(const Ref& dict, Arg key) {
    const auto count = dict_entry(dict, key);
    set_item(dict, key, new_int((count ? as_count(*count) : 0) + 1));
}

void CountTable::become_dictionaries() {
    Ref totals = new_dict();
    Ref passes = new_dict();
    for_each_key([&](PyObject* key, const PassCounts& counts) {
        set_item(totals, key, new_int(counts.total));
    });
    for (const FirstPass& first : first_passes_) {
        set_item(passes, first.key, new_int(counts_[first.number].passed));
    }
    known_objects_.clear();
    totals_ = std::move(totals);
    passes_ = std::move(passes);
    counts_.clear();
    first_passes_.clear();
}

Py_ssize_t CountTable::passed(Arg key) const {
    const auto count = dict_entry(passes_, key);
    return count ? as_count(*count) : 0;
}

// The counts of a key by what stands for it in totals_.
PassCounts CountTable::counts_at(Arg key, Arg value) const {
    return is_exact() ? counts_[as_place(value, counts_.size())]
                      : PassCounts{as_count(value), passed(key)};
}

PassCounts CountTable::counts(Arg key) const {
    const auto entry = dict_entry(totals_, key);
    if (!entry) {
        raise(PyExc_KeyError, tuple_of(key));
    }
    return counts_at(key, *entry);
}

}  // namespace search_analytics
