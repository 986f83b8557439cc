// Reading the same attribute of one record after another.
#include "records/attribute.h"

namespace search_analytics {

namespace {

// Whether what stands in a class will be, or will not be, a descriptor for as long as it stands
// there: a class of Python code may become one by an assignment.
bool has_fixed_kind(PyObject* in_class) {
    return in_class == nullptr || (Py_TYPE(in_class)->tp_flags & Py_TPFLAGS_IMMUTABLETYPE) != 0;
}

}  // namespace

// An ordinary look-up runs no code where it finds a slot, or no descriptor and the attribute among
// those that all instances number alike.
void Attribute::learn_by_peeking(PyObject* record) {
    if (!compat::kHasLock) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = _PyType_Lookup(type, name_);
    const bool is_value = in_class == nullptr ||
                          (has_fixed_kind(in_class) && Py_TYPE(in_class)->tp_descr_get == nullptr);
    const bool is_in_array =
        is_value && attribute_number(type, name_) >= 0 && instance_values(record) != nullptr;
    if (Shape(record).is_ordinary() && (is_in_array || slot_offset(type, in_class) >= 0)) {
        try {
            learn(record, attribute(record, name_).get());
        } catch (const ErrorSet&) {
            forget_error();
        }
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

// Notes the shape of a record. Returns whether it is worth finding out where that keeps things; not
// for a name that runs code when it is hashed, and not where another thread may empty the place
// while it is read.
bool Attribute::is_worth_learning(PyObject* record) {
    if (!compat::kHasLock || shape_.fits(record) || lessons_ == 0 || !is_exact_str(name_)) {
        return false;
    }
    --lessons_;
    shape_ = Shape(record);
    where_ = Where::kUnknown;
    return shape_.is_ordinary();
}

// A place is believed only after it has shown the very object that the look-up gave.
void Attribute::learn(PyObject* record, PyObject* value) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = _PyType_Lookup(type, name_);
    if (!has_fixed_kind(in_class)) {
        return;
    }
    if (in_class == nullptr || Py_TYPE(in_class)->tp_descr_set == nullptr) {
        number_ = attribute_number(type, name_);
        where_ = Where::kArray;
    } else {
        number_ = slot_offset(type, in_class);
        where_ = Where::kSlot;
    }
    if (number_ < 0 || peek(record) != value) {
        where_ = Where::kUnknown;
    }
}

void Attribute::learn_absence(PyObject* record) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    if (_PyType_Lookup(type, name_) == nullptr && attribute_number(type, name_) < 0) {
        number_ = numbered_attributes(type);
        where_ = number_ >= 0 ? Where::kNowhere : Where::kUnknown;
    }
}

}  // namespace search_analytics
