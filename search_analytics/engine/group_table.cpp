// Numbering groups in the order in which they are first met.
#include "engine/group_table.h"

#include "engine/slots.h"
#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

using Values = std::vector<KeySide::Value>;

std::uint64_t scramble(std::uint64_t bits) {
    bits ^= bits >> 31;
    bits *= 0x9E3779B97F4A7C15U;
    bits ^= bits >> 29;
    return bits;
}

// The same for any order of the values.
std::uint64_t set_hash(const Values& values) {
    std::uint64_t sum = values.size();
    for (const KeySide::Value& value : values) {
        sum += scramble(static_cast<std::uint64_t>(value.hash));
    }
    return sum;
}

std::uint64_t key_hash(const Values& functions, const Values& features) {
    return scramble(set_hash(functions)) + set_hash(features);
}

bool same_value(const OwnedText& left, const KeySide::Value& right) {
    return left.hash == right.hash && same_text(left.text.get(), right.text);
}

// A frozenset of the texts, added in their order.
Ref frozen_set(const OwnedText* texts, std::size_t count) {
    Ref set = Ref::steal(PyFrozenSet_New(nullptr));
    for (std::size_t i = 0; i < count; ++i) {
        check(PySet_Add(set.get(), texts[i].text.get()));
    }
    return set;
}

// Whether two sets of `values.size()` distinct values are equal. Records that use the same
// functions mostly list them in the same order.
bool same_set(const OwnedText* set, const Values& values) {
    const std::size_t count = values.size();
    for (std::size_t i = 0; i < count; ++i) {
        bool found = same_value(set[i], values[i]);
        for (std::size_t j = 0; !found && j < count; ++j) {
            found = same_value(set[j], values[i]);
        }
        if (!found) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool GroupTable::matches(const Group& group, std::uint64_t hash, const KeySide& functions,
                         const KeySide& features) const {
    return group.hash == hash && group.function_count == functions.values().size() &&
           group.feature_count == features.values().size() &&
           same_set(texts_.data() + group.first, functions.values()) &&
           same_set(texts_.data() + group.first + group.function_count, features.values());
}

std::size_t GroupTable::number_of(KeySide& functions, KeySide& features) {
    if (!is_plain() || !functions.is_plain() || !features.is_plain()) {
        const Ref function_side = functions.frozen();
        const Ref feature_side = features.frozen();
        return number_of(tuple_of(function_side, feature_side));
    }
    reserve_slot(slots_, groups_.size(), [&](std::size_t number) { return groups_[number].hash; });
    const std::uint64_t hash = key_hash(functions.values(), features.values());
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = hash & mask;
    for (; slots_[slot] != 0; slot = (slot + 1) & mask) {
        const std::size_t number = slots_[slot] - 1;
        if (matches(groups_[number], hash, functions, features)) {
            return number;
        }
    }
    const std::size_t number = add_plain(hash, functions, features);
    slots_[slot] = static_cast<std::uint32_t>(number + 1);
    return number;
}

std::size_t GroupTable::add_plain(std::uint64_t hash, const KeySide& functions,
                                  const KeySide& features) {
    groups_.push_back({hash, texts_.size(), static_cast<std::uint32_t>(functions.values().size()),
                       static_cast<std::uint32_t>(features.values().size())});
    for (const KeySide* side : {&functions, &features}) {
        for (const KeySide::Value& value : side->values()) {
            texts_.push_back({value.hash, Ref::share(value.text)});
        }
    }
    return groups_.size() - 1;
}

std::size_t GroupTable::number_of(Ref key) {
    if (is_plain()) {
        become_dictionary();
    }
    if (const auto number = dict_entry(numbers_.get(), key.get())) {
        return static_cast<std::size_t>(PyLong_AsSize_t(number->get()));
    }
    set_item(numbers_, key.get(), integer(static_cast<Py_ssize_t>(keys_.size())).get());
    keys_.push_back(std::move(key));
    return keys_.size() - 1;
}

void GroupTable::become_dictionary() {
    Ref numbers = new_dict();
    std::vector<Ref> keys;
    for (std::size_t number = 0; number < groups_.size(); ++number) {
        keys.push_back(key(number));
        set_item(numbers, keys.back().get(), integer(static_cast<Py_ssize_t>(number)).get());
    }
    numbers_ = std::move(numbers);
    keys_ = std::move(keys);
    groups_.clear();
    texts_.clear();
    slots_.clear();
}

Ref GroupTable::key(std::size_t number) const {
    if (!is_plain()) {
        return keys_[number].copy();
    }
    const Group& group = groups_[number];
    const OwnedText* texts = texts_.data() + group.first;
    return tuple_of(frozen_set(texts, group.function_count),
                    frozen_set(texts + group.function_count, group.feature_count));
}

}  // namespace search_analytics
