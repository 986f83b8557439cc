// Reading the same attribute of one record after another.
#include "host/attribute_reader.h"

namespace search_analytics::host {

namespace {

// Whether a class looks attributes up in the ordinary way, and tells when it changes.
bool is_ordinary(const PyTypeObject* type) {
    return type->tp_getattro == PyObject_GenericGetAttr && compat::has_valid_version(type);
}

// The offset of the slot that a class's attribute describes, or -1.
Py_ssize_t slot_offset(PyTypeObject* type, PyObject* in_class) {
    if (in_class == nullptr || Py_TYPE(in_class) != &PyMemberDescr_Type ||
        PyType_IsSubtype(type, PyDescr_TYPE(in_class)) == 0) {
        return -1;
    }
    const PyMemberDef* member = reinterpret_cast<PyMemberDescrObject*>(in_class)->d_member;
    return member->type == Py_T_OBJECT_EX && member->flags == 0 ? member->offset : -1;
}

}  // namespace

// An ordinary look-up runs no code where it finds a slot, or no descriptor and the attribute among
// those that all instances number alike.
void AttributeReader::learn_by_looking(PyObject* record) {
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = _PyType_Lookup(type, name_);
    const bool is_value = in_class == nullptr || Py_TYPE(in_class)->tp_descr_get == nullptr;
    const bool is_in_array =
        is_value && attribute_number(type, name_) >= 0 && instance_values(record) != nullptr;
    if (is_ordinary(type) && (is_in_array || slot_offset(type, in_class) >= 0)) {
        try {
            learn(record, attribute(record, name_).get());
        } catch (const ErrorSet&) {
            forget_error();
        }
    }
}

Ref AttributeReader::read_anew(PyObject* record) {
    Ref value = attribute(record, name_);
    learn(record, value.get());
    return value;
}

Ref AttributeReader::read_anew_or_none(PyObject* record) {
    auto value = optional_attribute(record, name_);
    if (!value) {
        learn_absence(record);
        return Ref::none();
    }
    learn(record, value->get());
    return std::move(*value);
}

// Notes the class of a record. Returns whether it is worth finding out where that keeps things.
bool AttributeReader::is_new_class_of(PyObject* record) {
    if (knows_class_of(record) || lessons_ == 0) {
        return false;
    }
    --lessons_;
    type_ = Py_TYPE(record);
    version_ = type_->tp_version_tag;
    where_ = Where::kUnknown;
    return is_ordinary(type_);
}

// A place is believed only after it has shown the very object that the look-up gave.
void AttributeReader::learn(PyObject* record, PyObject* value) {
    if (!is_new_class_of(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    PyObject* in_class = _PyType_Lookup(type, name_);
    if (in_class == nullptr || Py_TYPE(in_class)->tp_descr_set == nullptr) {
        number_ = attribute_number(type, name_);
        where_ = Where::kArray;
    } else {
        number_ = slot_offset(type, in_class);
        where_ = Where::kSlot;
    }
    if (number_ < 0 || look(record) != value) {
        where_ = Where::kUnknown;
    }
}

void AttributeReader::learn_absence(PyObject* record) {
    if (!is_new_class_of(record)) {
        return;
    }
    PyTypeObject* type = Py_TYPE(record);
    if (_PyType_Lookup(type, name_) == nullptr && attribute_number(type, name_) < 0) {
        number_ = numbered_attributes(type);
        where_ = number_ >= 0 ? Where::kNowhere : Where::kUnknown;
    }
}

}  // namespace search_analytics::host
