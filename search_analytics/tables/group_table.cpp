// Numbering groups in the order in which they are first met.
#include "tables/group_table.h"

namespace search_analytics {

namespace {

using NameList = std::vector<Name>;

std::uint64_t scramble(std::uint64_t bits) {
    bits ^= bits >> 31;
    bits *= 0x9E3779B97F4A7C15U;
    bits ^= bits >> 29;
    return bits;
}

// The same for any order of the names.
std::uint64_t set_hash(const NameList& names) {
    std::uint64_t sum = names.size();
    for (const Name& name : names) {
        sum += scramble(name.hash);
    }
    return sum;
}

std::uint64_t key_hash(const NameList& functions, const NameList& features) {
    return scramble(set_hash(functions)) + set_hash(features);
}

// A frozenset of the names, added in their order. Nobody finds it while it is filled: exact strings
// are hashed and compared without running code.
Ref frozen_set(const OwnedName* names, std::size_t count) {
    Ref set = new_frozenset();
    for (std::size_t i = 0; i < count; ++i) {
        add_to_set(set, names[i].text);
    }
    return set;
}

// Whether two sets of `names.size()` distinct names are equal. Records that use the same functions
// mostly list them in the same order.
bool same_set(const OwnedName* set, const NameList& names) {
    const std::size_t count = names.size();
    for (std::size_t i = 0; i < count; ++i) {
        bool found = set[i].is(names[i]);
        for (std::size_t j = 0; !found && j < count; ++j) {
            found = set[j].is(names[i]);
        }
        if (!found) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool GroupTable::matches(const Group& group, std::uint64_t hash, const NameSet& functions,
                         const NameSet& features) const {
    return group.hash == hash && group.function_count == functions.names().size() &&
           group.feature_count == features.names().size() &&
           same_set(names_.data() + group.first, functions.names()) &&
           same_set(names_.data() + group.first + group.function_count, features.names());
}

std::size_t GroupTable::number_of(NameSet& functions, NameSet& features) {
    if (!is_exact() || !functions.is_exact() || !features.is_exact()) {
        const Ref function_side = functions.frozen();
        const Ref feature_side = features.frozen();
        return number_of(tuple_of(function_side, feature_side));
    }
    const std::uint64_t hash = key_hash(functions.names(), features.names());
    const std::size_t known = slots_.find(hash, [&](std::size_t number) {
        return matches(groups_[number], hash, functions, features);
    });
    return known != Slots::kNone ? known : add(hash, functions, features);
}

std::size_t GroupTable::add(std::uint64_t hash, const NameSet& functions, const NameSet& features) {
    slots_.add(hash, [&](std::size_t number) { return groups_[number].hash; });
    groups_.push_back({hash, names_.size(), static_cast<std::uint32_t>(functions.names().size()),
                       static_cast<std::uint32_t>(features.names().size())});
    for (const NameSet* side : {&functions, &features}) {
        for (const Name& name : side->names()) {
            names_.push_back({name.hash, Ref::share(name.text)});
        }
    }
    return groups_.size() - 1;
}

std::size_t GroupTable::number_of(Ref key) {
    if (is_exact()) {
        become_dictionary();
    }
    if (const auto number = dict_entry(numbers_, key)) {
        return as_place(*number, next_number_);
    }
    set_item(numbers_, key, new_int(static_cast<Py_ssize_t>(next_number_)));
    return next_number_++;
}

void GroupTable::become_dictionary() {
    Ref numbers = new_dict();
    for (std::size_t number = 0; number < groups_.size(); ++number) {
        set_item(numbers, exact_key(number), new_int(static_cast<Py_ssize_t>(number)));
    }
    next_number_ = groups_.size();
    numbers_ = std::move(numbers);
    groups_.clear();
    names_.clear();
    slots_.clear();
}

Ref GroupTable::exact_key(std::size_t number) const {
    const Group& group = groups_[number];
    const OwnedName* names = names_.data() + group.first;
    return tuple_of(frozen_set(names, group.function_count),
                    frozen_set(names + group.function_count, group.feature_count));
}

}  // namespace search_analytics
