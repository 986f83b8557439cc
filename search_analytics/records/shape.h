// What one class of records lets its instances keep, and where.
#pragma once

#include <optional>

#include "layout/instance.h"

namespace search_analytics {

// A record whose shape is known, and what it holds itself.
struct View {
    PyObject* record;
    // The array of its attributes, or null.
    PyObject** values = nullptr;
    // If it has no array, the entries of its dictionary.
    const Table* table = nullptr;
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

    // The array of a record's attributes, or null. REQUIRES: it is of the class.
    PyObject** array(PyObject* record) const {
        assert(Py_TYPE(record) == type_);
        return has_array_ ? instance_values(record) : nullptr;
    }

    // The dictionary of a record without an array, as it is; or null. REQUIRES: it is of the class.
    PyObject* dictionary(PyObject* record) const {
        assert(Py_TYPE(record) == type_ && array(record) == nullptr);
        return dictionary_offset_ != 0 ? *dictionary_place(record, dictionary_offset_) : nullptr;
    }

    // Whether its instances have a dictionary, and it is not known where.
    bool has_hidden_dictionary() const { return has_hidden_dictionary_; }

   private:
    PyTypeObject* type_ = nullptr;
    unsigned int version_ = 0;
    bool has_array_ = false;
    bool has_hidden_dictionary_ = false;
    Py_ssize_t dictionary_offset_ = 0;
};

// What a record holds itself, as it is seen before any code runs.
class Holding {
   public:
    // REQUIRES: the record is of the shape's class.
    Holding(const Shape& shape, PyObject* record) : view_{record, shape.array(record), nullptr} {
        assert(Py_TYPE(record) == shape.type());
        if (view_.values == nullptr) {
            look_into_dictionary(shape);
        }
    }
    Holding(const Holding&) = delete;
    Holding& operator=(const Holding&) = delete;

    const View& view() const { return view_; }

    // Whether the record holds nothing but what is seen here.
    bool is_complete() const { return is_complete_; }

   private:
    void look_into_dictionary(const Shape& shape) {
        PyObject* dict = shape.dictionary(view_.record);
        const bool is_known = dict != nullptr && is_exact_dict(dict);
        table_.emplace(is_known ? table_of(dict) : Table());
        view_.table = &*table_;
        is_complete_ = is_known || (dict == nullptr && !shape.has_hidden_dictionary());
    }

    View view_;
    std::optional<Table> table_;
    bool is_complete_ = true;
};

}  // namespace search_analytics
