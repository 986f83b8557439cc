// Counting evaluations, and those that passed, by some key.
#include "engine/count_table.h"

namespace search_analytics {

using namespace host;

std::optional<std::size_t> CountTable::find(PyObject* key) const {
    const auto number = dict_entry(numbers_.get(), key);
    if (!number) {
        return std::nullopt;
    }
    return PyLong_AsSize_t(number->get());
}

PassCounts& CountTable::counts(PyObject* key) {
    if (const auto number = find(key)) {
        return counts_[*number];
    }
    set_item(numbers_, key, integer(static_cast<Py_ssize_t>(keys_.size())).get());
    keys_.push_back(Ref::share(key));
    return counts_.emplace_back();
}

}  // namespace search_analytics
