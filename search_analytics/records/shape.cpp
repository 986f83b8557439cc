// What one class of records lets its instances keep, and where.
#include "records/shape.h"

namespace search_analytics {

namespace {

bool may_have_dictionary(const PyTypeObject* type) {
#if PY_VERSION_HEX >= 0x030B0000
    return type->tp_dictoffset != 0 || (type->tp_flags & Py_TPFLAGS_MANAGED_DICT) != 0;
#else
    return type->tp_dictoffset != 0;
#endif
}

}  // namespace

Shape::Shape(PyObject* record)
    : type_(Py_TYPE(record)),
      version_(compat::load(type_->tp_version_tag)),
      has_array_(numbered_names(type_) != nullptr),
      dictionary_offset_(dictionary_offset(type_)) {
    has_hidden_dictionary_ = dictionary_offset_ == 0 && may_have_dictionary(type_);
}

// Where a class has `__getattr__`, but looks attributes up as every object does, the function is
// asked for nothing that is found.
bool Shape::is_ordinary_where_found() const {
    if (is_ordinary()) {
        return true;
    }
    if (compat::class_version(type_) == 0) {
        return false;
    }
    const auto in_class = [](PyTypeObject* type, const char* name) {
        return _PyType_Lookup(type, interned_str(name).get());
    };
    return in_class(type_, "__getattribute__") ==
               in_class(&PyBaseObject_Type, "__getattribute__") &&
           in_class(type_, "__getattr__") != nullptr;
}

}  // namespace search_analytics
