// Reading a record as fast as the interpreter's C API allows: an attribute, an entry of a
// dictionary, the hash of a string. Nothing here keeps, compares or counts what it reads, but for
// what decides which entry is to be read next.
#pragma once

#include <Python.h>

#include <cstring>
#include <span>

namespace floor_reads {

// The interpreter's error indicator is set.
struct Failed {};

// Owns one reference for a scope.
class Owned {
   public:
    explicit Owned(PyObject* object) : object_(object) {
        if (object_ == nullptr) {
            throw Failed();
        }
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { Py_DECREF(object_); }
    PyObject* get() const { return object_; }

   private:
    PyObject* object_;
};

inline Owned attribute(PyObject* record, PyObject* name) {
    return Owned(PyObject_GetAttr(record, name));
}

// Like getattr(record, name, None), without the cost of an exception for a missing attribute.
inline Owned attribute_or_none(PyObject* record, PyObject* name) {
    PyObject* value = nullptr;
#if PY_VERSION_HEX >= 0x030D0000
    const int found = PyObject_GetOptionalAttr(record, name, &value);
#else
    const int found = _PyObject_LookupAttr(record, name, &value);
#endif
    if (found < 0) {
        throw Failed();
    }
    return Owned(found > 0 ? value : Py_NewRef(Py_None));
}

// The items of a list, borrowed; the loops run no code that could change one.
inline std::span<PyObject* const> items_of(PyObject* list) {
    if (!PyList_CheckExact(list)) {
        PyErr_SetString(PyExc_TypeError, "the read floor takes lists");
        throw Failed();
    }
    return {reinterpret_cast<PyListObject*>(list)->ob_item,
            static_cast<std::size_t>(PyList_GET_SIZE(list))};
}

// A dictionary's value for `key`, borrowed, or null.
inline PyObject* entry(PyObject* dict, PyObject* key) {
    PyObject* value = PyDict_GetItemWithError(dict, key);
    if (value == nullptr && PyErr_Occurred() != nullptr) {
        throw Failed();
    }
    return value;
}

// A string keeps its hash once it is known.
inline Py_hash_t hash_of(PyObject* value) {
    if (PyUnicode_CheckExact(value)) {
        const Py_hash_t known = reinterpret_cast<PyASCIIObject*>(value)->hash;
        if (known != -1) {
            return known;
        }
    }
    const Py_hash_t hash = PyObject_Hash(value);
    if (hash == -1) {
        throw Failed();
    }
    return hash;
}

inline bool is_true(PyObject* value) {
    if (value == Py_True || value == Py_False) {
        return value == Py_True;
    }
    const int truth = PyObject_IsTrue(value);
    if (truth < 0) {
        throw Failed();
    }
    return truth != 0;
}

inline double number(PyObject* value) {
    if (PyFloat_CheckExact(value)) {
        return PyFloat_AS_DOUBLE(value);
    }
    const double result = PyFloat_AsDouble(value);
    if (result == -1.0 && PyErr_Occurred() != nullptr) {
        throw Failed();
    }
    return result;
}

// Whether two strings are equal; the hash is compared first.
inline bool same_text(PyObject* left, PyObject* right) {
    return left == right || (hash_of(left) == hash_of(right) && PyUnicode_Check(left) &&
                             PyUnicode_Compare(left, right) == 0);
}

// The attributes and the fallback key of one side of a record's usage.
struct Side {
    PyObject* metadata;
    PyObject* names;
    PyObject* name_key;
};

// The value that one usage item has for `key`, borrowed: its own, else its name.
inline PyObject* usage_value(PyObject* item, PyObject* key, PyObject* name_key) {
    if (!PyDict_CheckExact(item)) {
        return item;
    }
    PyObject* value = entry(item, key);
    if (value == nullptr || value == Py_None) {
        value = entry(item, name_key);
    }
    return value == nullptr ? Py_None : value;
}

// Calls `visit(value)` for each usage value of a record until it says false; returns the number
// of items.
template <class Visit>
std::size_t each_usage_value(PyObject* record, const Side& side, PyObject* key,
                             const Visit& visit) {
    const auto walk = [&](PyObject* list) {
        const auto items = items_of(list);
        for (PyObject* item : items) {
            if (!visit(usage_value(item, key, side.name_key))) {
                break;
            }
        }
        return items.size();
    };
    const Owned metadata = attribute_or_none(record, side.metadata);
    if (PyList_CheckExact(metadata.get()) && PyList_GET_SIZE(metadata.get()) > 0) {
        return walk(metadata.get());
    }
    const Owned names = attribute_or_none(record, side.names);
    return names.get() == Py_None ? 0 : walk(names.get());
}

}  // namespace floor_reads
