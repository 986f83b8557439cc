// Attributes, truth, comparison and calls: the operations that any object may carry out by
// running Python code. Hold a reference to whatever is used across one of them.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "host/compat.h"
#include "host/error.h"
#include "host/plain_text.h"
#include "host/python.h"
#include "host/ref.h"

namespace search_analytics::host {

// Returns the value of `name` on `object`; a missing attribute is an AttributeError.
inline Ref attribute(PyObject* object, PyObject* name) {
    return Ref::steal(PyObject_GetAttr(object, name));
}

// Returns the value of `name` on `object`, or nothing if there is no such attribute.
// Only AttributeError means "no such attribute"; whatever else the look-up raises is thrown.
inline std::optional<Ref> optional_attribute(PyObject* object, PyObject* name) {
    PyObject* value = nullptr;
    if (!check_truth(compat::get_optional_attribute(object, name, &value))) {
        return std::nullopt;
    }
    return Ref::steal(value);
}

// The same with None standing for a missing attribute.
inline Ref attribute_or_none(PyObject* object, PyObject* name) {
    PyObject* value = nullptr;
    if (!check_truth(compat::get_optional_attribute(object, name, &value))) {
        return Ref::none();
    }
    return Ref::steal(value);
}

inline void set_attribute(PyObject* object, PyObject* name, PyObject* value) {
    check(PyObject_SetAttr(object, name, value));
}

inline bool truth(PyObject* object) {
    return PyBool_Check(object) ? object == Py_True : check_truth(PyObject_IsTrue(object));
}

// What a comparison such as `left < right` gives; `operation` is Py_LT, Py_EQ and so on. Two
// identical objects are not taken for equal: a NaN does not equal itself.
inline Ref comparison(PyObject* left, PyObject* right, int operation) {
    if (PyUnicode_CheckExact(left) && PyUnicode_CheckExact(right)) {
        return Ref::steal(PyUnicode_RichCompare(left, right, operation));
    }
    return Ref::steal(PyObject_RichCompare(left, right, operation));
}

// The truth of a comparison.
inline bool compare(PyObject* left, PyObject* right, int operation) {
    return truth(comparison(left, right, operation).get());
}

inline bool equal(PyObject* left, PyObject* right) {
    if (is_plain_text(right)) {
        if (left == Py_None) {
            return false;
        }
        if (is_plain_text(left)) {
            return same_text(left, right);
        }
    }
    return compare(left, right, Py_EQ);
}

// str(object)
inline Ref text(PyObject* object) { return Ref::steal(PyObject_Str(object)); }

inline Ref unicode(std::string_view text) {
    return Ref::steal(
        PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

// A text from a printf-like pattern, as PyUnicode_FromFormat understands it.
template <typename... Values>
Ref format(const char* pattern, Values... values) {
    return Ref::steal(PyUnicode_FromFormat(pattern, values...));
}

template <typename... Arguments>
Ref call(PyObject* callable, Arguments... arguments) {
    const std::array<PyObject*, sizeof...(Arguments) + 1> stack = {nullptr, arguments...};
    return Ref::steal(PyObject_Vectorcall(callable, stack.data() + 1,
                                          sizeof...(Arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                          nullptr));
}

template <typename... Arguments>
Ref call_method(PyObject* object, PyObject* name, Arguments... arguments) {
    const std::array<PyObject*, sizeof...(Arguments) + 1> stack = {object, arguments...};
    return Ref::steal(
        PyObject_VectorcallMethod(name, stack.data(), sizeof...(Arguments) + 1, nullptr));
}

// Named values in order: the keyword arguments of a call, or the fields of a record.
class Keywords {
   public:
    explicit Keywords(std::size_t expected) {
        names_.reserve(expected);
        values_.reserve(expected);
    }

    // REQUIRES: `name` is interned and outlives the call.
    void add(PyObject* name, Ref value) {
        names_.push_back(name);
        values_.push_back(std::move(value));
    }
    void add(PyObject* name, PyObject* value) { add(name, Ref::share(value)); }

    std::size_t size() const { return names_.size(); }
    PyObject* name(std::size_t i) const { return names_[i]; }
    PyObject* value(std::size_t i) const { return values_[i].get(); }

    // Calls `callable` with these and no other arguments.
    Ref call(PyObject* callable) const;

   private:
    std::vector<PyObject*> names_;
    std::vector<Ref> values_;
};

}  // namespace search_analytics::host
