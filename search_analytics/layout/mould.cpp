// Fresh instances and dictionaries that are filled at once, all in the same form.
#include "layout/mould.h"

#include <algorithm>

namespace search_analytics {

namespace {

// Whether a value may be part of a cycle, so that a dictionary that holds it has to be seen by the
// collector. Versions that track every dictionary do so from the start.
bool may_be_in_cycle(const Ref& value) {
    return PyObject_IS_GC(value.get()) != 0 &&
           (!is_exact_tuple(value) || PyObject_GC_IsTracked(value.get()) != 0);
}

}  // namespace

void InstanceMould::take(PyObject* made, const std::vector<PyObject*>& names) {
    clear();
    PyTypeObject* type = Py_TYPE(made);
    if (numbered_names(type) == nullptr || instance_values(made) == nullptr) {
        return;
    }
    for (PyObject* name : names) {
        const Py_ssize_t number = attribute_number(type, name);
        if (number < 0) {
            clear();
            return;
        }
        places_.push_back(static_cast<std::size_t>(number));
    }
}

// The interpreter notes beside an array in which order its attributes were set: as many numbers of
// a byte as there are attributes. Internal/pycore_dict.h, _PyDictValues_AddToInsertionOrder.
void InstanceMould::note_order([[maybe_unused]] PyObject** array) const {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT && PY_VERSION_HEX >= 0x030B0000
#if PY_VERSION_HEX >= 0x030D0000
    // How many there are stands in the head, the numbers after the array.
    auto* head = reinterpret_cast<DictValuesHead*>(array) - 2;
    auto* numbers = reinterpret_cast<std::uint8_t*>(array + head->capacity);
    assert(head->size == 0 && places_.size() <= head->capacity);
    std::uint8_t* count = &head->size;
    constexpr std::ptrdiff_t kStep = 1;
#else
    // How many there are stands in front of the array, and the numbers in front of that, backwards.
    auto* count = reinterpret_cast<std::uint8_t*>(array) - 2;
    std::uint8_t* numbers = count - 1;
    assert(*count == 0 && places_.size() + 2 <= count[1]);
    constexpr std::ptrdiff_t kStep = -1;
#endif
    for (const std::size_t place : places_) {
        *numbers = static_cast<std::uint8_t>(place);
        numbers += kStep;
    }
    *count = static_cast<std::uint8_t>(places_.size());
#endif
}

DictMould::DictMould(std::initializer_list<PyObject*> keys) : keys_(keys), blank_(new_dict()) {
    for (PyObject* key : keys_) {
        set_item(blank_, key, Py_None);
    }
}

// Whether a table has the keys in their order, and nothing else.
bool DictMould::is_form_of(const Table& table) const {
    if (table.size() != keys_.size()) {
        return false;
    }
    for (std::size_t place = 0; place < keys_.size(); ++place) {
        if (table.key(place) != keys_[place] || table.value(place) == nullptr) {
            return false;
        }
    }
    return true;
}

Ref DictMould::make(std::span<Ref> values) const {
    assert(values.size() == keys_.size());
    if constexpr (kKnowsLayout) {
        Ref made = Ref::steal(PyDict_Copy(blank_.get()));
        const Table table = table_of(made.get());
        if (is_form_of(table)) [[likely]] {
            const bool is_shown = PyObject_GC_IsTracked(made.get()) != 0;
            if (!is_shown && std::ranges::any_of(values, may_be_in_cycle)) {
                PyObject_GC_Track(made.get());
            }
            for (std::size_t place = 0; place < values.size(); ++place) {
                table.exchange_value(place, values[place]);
            }
            return made;
        }
    }
    Ref made = new_dict();
    for (std::size_t place = 0; place < values.size(); ++place) {
        set_item(made, keys_[place], values[place]);
    }
    return made;
}

}  // namespace search_analytics
