// Reading the same attribute of one record after another.
#include "records/attribute.h"

namespace search_analytics {

namespace {

// Whether what stands in a class will be, or will not be, a descriptor for as long as it stands
// there: a class of Python code may become one by an assignment.
bool has_fixed_kind(PyObject* in_class) {
    return in_class == nullptr || (Py_TYPE(in_class)->tp_flags & Py_TPFLAGS_IMMUTABLETYPE) != 0;
}

bool goes_before_instances(PyObject* in_class) {
    return in_class != nullptr && Py_TYPE(in_class)->tp_descr_set != nullptr;
}

}  // namespace

PyObject* Attribute::value_elsewhere(PyObject* record) const {
    const Holding held(here_.shape, record);
    return value_elsewhere(held.view());
}

PyObject* Attribute::value_elsewhere(const View& view) const {
    if (here_.where == Where::kItem) {
        return here_.number < tuple_size(view.record) ? tuple_item(view.record, here_.number)
                                                      : nullptr;
    }
    return view.table != nullptr ? key_.find(*view.table, here_.entry) : nullptr;
}

bool Attribute::is_absent_from_dictionary(PyObject* record) const {
    const Holding held(here_.shape, record);
    return held.is_complete() && key_.is_missing_in(*held.view().table);
}

// An ordinary look-up runs no code where it finds a slot, an item of a tuple, or nothing in the
// class that goes before the instance and the attribute in the instance itself.
void Attribute::learn_by_peeking(PyObject* record) {
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = compat::kHasLock ? _PyType_Lookup(type, name_) : nullptr;
    if (!is_worth_learning(record) || !has_fixed_kind(in_class) || !learn_place(record, in_class)) {
        return;
    }
    const PyObject* found = value_of(record);
    const Where where = std::exchange(here_.where, Where::kUnknown);
    if (found == nullptr) {
        return;
    }
    try {
        here_.where = attribute(record, name_).get() == found ? where : Where::kUnknown;
    } catch (const ErrorSet&) {
        forget_error();
    }
}

Ref Attribute::ask_anew(PyObject* record) {
    Ref value = attribute(record, name_);
    learn(record, value.get());
    return value;
}

Ref Attribute::ask_anew_or_none(PyObject* record) {
    auto value = optional_attribute(record, name_);
    if (!value) {
        learn_absence(record);
        return Ref::none();
    }
    learn(record, value->get());
    return std::move(*value);
}

bool Attribute::select_other(PyObject* record) {
    const auto found = std::ranges::find_if(
        elsewhere_, [&](const Place& place) { return place.shape.fits(record); });
    if (found == elsewhere_.end()) {
        return false;
    }
    std::swap(here_, *found);
    return true;
}

// Notes the shape of a record, and forgets the one that was met first. Returns whether it is worth
// finding out where that keeps things; not for a name that runs code when it is hashed, and not
// where another thread may empty the place while it is read.
bool Attribute::is_worth_learning(PyObject* record) {
    if (!compat::kHasLock || lessons_ == 0 || !is_exact_str(name_) || select(record)) {
        return false;
    }
    --lessons_;
    if (here_.shape.type() != nullptr) {
        std::ranges::rotate(elsewhere_, elsewhere_.end() - 1);
        elsewhere_.front() = here_;
    }
    here_ = {.shape = Shape(record)};
    return here_.shape.is_ordinary_where_found();
}

// Where the class puts the attribute, given what stands in the class itself.
bool Attribute::learn_place(PyObject* record, PyObject* in_class) {
    PyTypeObject* type = Py_TYPE(record);
    if (!goes_before_instances(in_class)) {
        here_.number = attribute_number(type, name_);
        here_.where = here_.number >= 0 ? Where::kNumbered : Where::kNamed;
    } else if (here_.number = slot_offset(type, in_class); here_.number >= 0) {
        here_.where = Where::kSlot;
    } else if (here_.number = tuple_place(type, in_class); here_.number >= 0) {
        here_.where = Where::kItem;
    }
    return here_.has_value();
}

// A place is believed only after it has shown the very object that the look-up gave.
void Attribute::learn(PyObject* record, PyObject* value) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyObject* in_class = _PyType_Lookup(Py_TYPE(record), name_);
    if (!has_fixed_kind(in_class) || !learn_place(record, in_class)) {
        return;
    }
    if (value_of(record) != value) {
        here_.where = Where::kUnknown;
    }
}

void Attribute::learn_absence(PyObject* record) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    if (here_.shape.is_ordinary() && _PyType_Lookup(type, name_) == nullptr &&
        attribute_number(type, name_) < 0) {
        here_.number = numbered_attributes(type);
        here_.where = Where::kNowhere;
    }
}

}  // namespace search_analytics
