// Counting evaluations, and those that passed, by some key.
#include "engine/count_table.h"

namespace search_analytics {

using namespace host;

std::size_t CountTable::number_new(PyObject* key) {
    const std::size_t number = counts_.size();
    set_item(totals_, key, integer(static_cast<Py_ssize_t>(number)).get());
    counts_.emplace_back();
    return number;
}

void CountTable::add_text(PyObject* text, Py_hash_t hash, bool is_pass) {
    const std::size_t place = texts_.number_of(text, hash);
    if (place == text_numbers_.size()) {
        text_numbers_.push_back(number_new(text));
    }
    counts_[text_numbers_[place]].add(is_pass);
}

std::size_t CountTable::number_of_object(PyObject* key) {
    for (const KnownObject& known : known_objects_) {
        if (known.key == key) {
            return known.number;
        }
    }
    if (const auto entry = dict_entry(totals_.get(), key)) {
        return PyLong_AsSize_t(entry->get());
    }
    const std::size_t number = number_new(key);
    if (known_objects_.size() < kMostKnownObjects) {
        known_objects_.push_back({key, number});
    }
    return number;
}

void CountTable::add(PyObject* key, bool is_pass) {
    if (passes_.empty() && !is_plain_key(key)) {
        become_dictionaries();
    }
    if (!passes_.empty()) {
        increment(totals_, key);
        if (is_pass) {
            increment(passes_, key);
        }
        return;
    }
    if (PyUnicode_CheckExact(key)) {
        const Py_hash_t hash = PyObject_Hash(key);
        if (hash == -1) {
            throw ErrorSet();
        }
        add_text(key, hash, is_pass);
        return;
    }
    counts_[number_of_object(key)].add(is_pass);
}

// dict[key] = dict.get(key, 0) + 1
void CountTable::increment(const Ref& dict, PyObject* key) {
    const auto count = dict_entry(dict.get(), key);
    const Py_ssize_t next = (count ? PyLong_AsSsize_t(count->get()) : 0) + 1;
    set_item(dict, key, integer(next).get());
}

void CountTable::become_dictionaries() {
    Ref totals = new_dict();
    Ref passes = new_dict();
    for_each([&](PyObject* key, const PassCounts& counts) {
        set_item(totals, key, integer(counts.total).get());
        if (counts.passed > 0) {
            set_item(passes, key, integer(counts.passed).get());
        }
    });
    known_objects_.clear();
    totals_ = std::move(totals);
    passes_ = std::move(passes);
    counts_.clear();
}

Py_ssize_t CountTable::passed(PyObject* key) const {
    const auto count = dict_entry(passes_.get(), key);
    return count ? PyLong_AsSsize_t(count->get()) : 0;
}

PassCounts CountTable::counts(PyObject* key) const {
    const auto entry = dict_entry(totals_.get(), key);
    if (!entry) {
        raise(PyExc_KeyError, Ref::share(key));
    }
    const Py_ssize_t value = PyLong_AsSsize_t(entry->get());
    return passes_.empty() ? counts_[static_cast<std::size_t>(value)]
                           : PassCounts{value, passed(key)};
}

}  // namespace search_analytics
