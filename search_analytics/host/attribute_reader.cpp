// Reading the same attribute of one record after another.
#include "host/attribute_reader.h"

namespace search_analytics::host {

namespace {

// Whether an instance's own attribute is what an ordinary look-up of `name` finds first.
bool goes_by_instance(PyTypeObject* type, PyObject* name) {
    if (type->tp_getattro != PyObject_GenericGetAttr ||
        (type->tp_flags & Py_TPFLAGS_VALID_VERSION_TAG) == 0) {
        return false;
    }
    PyObject* in_class = _PyType_Lookup(type, name);
    return in_class == nullptr || Py_TYPE(in_class)->tp_descr_set == nullptr;
}

}  // namespace

Ref AttributeReader::read_anew(PyObject* record) {
    Ref value = attribute(record, name_);
    learn(record, value.get());
    return value;
}

Ref AttributeReader::read_anew_or_none(PyObject* record) {
    auto value = optional_attribute(record, name_);
    if (!value) {
        return Ref::none();
    }
    learn(record, value->get());
    return std::move(*value);
}

// A class is believed only after its array has shown the very object that the look-up gave.
void AttributeReader::learn(PyObject* record, PyObject* value) {
    PyTypeObject* type = Py_TYPE(record);
    if ((type == type_ && type->tp_version_tag == version_) || lessons_ == 0) {
        return;
    }
    --lessons_;
    type_ = type;
    version_ = type->tp_version_tag;
    number_ = goes_by_instance(type, name_) ? attribute_number(type, name_) : -1;
    if (number_ >= 0 && known_place(record) != value) {
        number_ = -1;
    }
}

}  // namespace search_analytics::host
