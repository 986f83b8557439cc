// What one class of records lets its instances keep, and where.
#pragma once

#include "layout/instance.h"

namespace search_analytics {

// A record whose shape is known, and what it holds itself: in an array, or in a dictionary.
struct View {
    PyObject* record;
    PyObject** values = nullptr;
    Table table;
    // Whether it holds nothing but what is seen here.
    bool is_complete = true;
};

// A class as it was when its instances were met: an instance of the same class in the same version
// keeps its attributes in the same places.
class Shape {
   public:
    Shape() = default;
    explicit Shape(PyObject* record);

    bool fits(PyObject* record) const {
        return Py_TYPE(record) == type_ && compat::load(type_->tp_version_tag) == version_;
    }

    bool operator==(const Shape& other) const {
        return type_ == other.type_ && version_ == other.version_;
    }

    // Whether the class looks attributes up in the ordinary way, and tells when it changes.
    bool is_ordinary() const {
        return type_->tp_getattro == PyObject_GenericGetAttr && compat::class_version(type_) != 0;
    }

    // The same of attributes that are found: for others the class may have a function to ask.
    bool is_ordinary_where_found() const;

    // The class. Only compared, never used without a record of that very class.
    PyTypeObject* type() const { return type_; }

    // Whether its instances may hold their attributes in an array.
    bool has_array() const { return has_array_; }

    // What a record holds. REQUIRES: it is of the class.
    View view(PyObject* record) const {
        assert(Py_TYPE(record) == type_);
        View view = {record};
        if (has_array_) [[likely]] {
            view.values = instance_values(record);
        }
        if (view.values == nullptr) {
            add_dictionary(view);
        }
        return view;
    }

    // The dictionary of a record that holds its attributes there, for hints; or null. REQUIRES: it
    // is of the class.
    PyObject* dictionary_pointer(PyObject* record) const {
        assert(Py_TYPE(record) == type_);
        if (dictionary_offset_ == 0 || (has_array_ && instance_values(record) != nullptr)) {
            return nullptr;
        }
        return *dictionary_place(record, dictionary_offset_);
    }

   private:
    void add_dictionary(View& view) const {
        if (dictionary_offset_ == 0) {
            view.is_complete = !has_hidden_dictionary_;
            return;
        }
        PyObject* dict = *dictionary_place(view.record, dictionary_offset_);
        if (dict != nullptr && is_exact_dict(dict)) {
            view.table = table_of(dict);
        } else {
            view.is_complete = dict == nullptr;
        }
    }

    PyTypeObject* type_ = nullptr;
    unsigned int version_ = 0;
    bool has_array_ = false;
    // Whether its instances have a dictionary, and it is not known where.
    bool has_hidden_dictionary_ = false;
    Py_ssize_t dictionary_offset_ = 0;
};

}  // namespace search_analytics
