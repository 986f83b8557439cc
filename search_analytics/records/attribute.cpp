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

// An ordinary look-up runs no code where it finds a slot, an item of a tuple, or no descriptor and
// the attribute in the instance itself.
void Attribute::learn_by_peeking(PyObject* record) {
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = compat::kHasLock ? _PyType_Lookup(type, name_) : nullptr;
    if (!is_worth_learning(record) || !has_fixed_kind(in_class) ||
        (in_class != nullptr && !goes_before_instances(in_class) &&
         Py_TYPE(in_class)->tp_descr_get != nullptr) ||
        !learn_place(record, in_class)) {
        return;
    }
    Place& place = places_[current_];
    const PyObject* found = value_in(place.shape.view(record));
    if (found == nullptr) {
        place.where = Where::kUnknown;
        return;
    }
    try {
        place.where = attribute(record, name_).get() == found ? place.where : Where::kUnknown;
    } catch (const ErrorSet&) {
        forget_error();
        place.where = Where::kUnknown;
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

// Notes the shape of a record in the place after the one last used. Returns whether it is worth
// finding out where that keeps things; not for a name that runs code when it is hashed, and not
// where another thread may empty the place while it is read.
bool Attribute::is_worth_learning(PyObject* record) {
    if (!compat::kHasLock || lessons_ == 0 || !is_exact_str(name_) || select(record)) {
        return false;
    }
    --lessons_;
    current_ = places_[current_].shape.type() == nullptr ? current_ : (current_ + 1) % kMostShapes;
    places_[current_] = {.shape = Shape(record)};
    return places_[current_].shape.is_ordinary_where_found();
}

// Where the class puts the attribute, given what stands in the class itself.
bool Attribute::learn_place(PyObject* record, PyObject* in_class) {
    PyTypeObject* type = Py_TYPE(record);
    Place& place = places_[current_];
    if (!goes_before_instances(in_class)) {
        place.number = attribute_number(type, name_);
        place.where = Where::kOwn;
    } else if (place.number = slot_offset(type, in_class); place.number >= 0) {
        place.where = Where::kSlot;
    } else if (place.number = tuple_place(type, in_class); place.number >= 0) {
        place.where = Where::kItem;
    }
    return place.has_value();
}

// A place is believed only after it has shown the very object that the look-up gave.
void Attribute::learn(PyObject* record, PyObject* value) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyObject* in_class = _PyType_Lookup(Py_TYPE(record), name_);
    Place& place = places_[current_];
    if (!has_fixed_kind(in_class) || !learn_place(record, in_class) ||
        value_in(place.shape.view(record)) != value) {
        place.where = Where::kUnknown;
    }
}

void Attribute::learn_absence(PyObject* record) {
    if (!is_worth_learning(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    Place& place = places_[current_];
    if (place.shape.is_ordinary() && _PyType_Lookup(type, name_) == nullptr &&
        attribute_number(type, name_) < 0) {
        place.number = numbered_attributes(type);
        place.where = Where::kNowhere;
    }
}

}  // namespace search_analytics
