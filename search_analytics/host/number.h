// Arithmetic by the interpreter's rules, and the short cuts that give the same bits.
#pragma once

#include <optional>

#include "host/error.h"
#include "host/python.h"
#include "host/ref.h"

namespace search_analytics::host {

inline Ref integer(Py_ssize_t value) { return Ref::steal(PyLong_FromSsize_t(value)); }
inline Ref real(double value) { return Ref::steal(PyFloat_FromDouble(value)); }
inline Ref boolean(bool value) { return Ref::share(value ? Py_True : Py_False); }

inline Ref add_in_place(PyObject* left, PyObject* right) {
    return Ref::steal(PyNumber_InPlaceAdd(left, right));
}
inline Ref subtract(PyObject* left, PyObject* right) {
    return Ref::steal(PyNumber_Subtract(left, right));
}
inline Ref multiply(PyObject* left, PyObject* right) {
    return Ref::steal(PyNumber_Multiply(left, right));
}
inline Ref divide(PyObject* left, PyObject* right) {
    return Ref::steal(PyNumber_TrueDivide(left, right));
}
inline Ref negative(PyObject* value) { return Ref::steal(PyNumber_Negative(value)); }

// isinstance(value, (int, float)) and not a bool
inline bool is_plain_number(PyObject* value) {
    return !PyBool_Check(value) && (PyLong_Check(value) || PyFloat_Check(value));
}

// The double that `0.0 + value` would add: for exact floats, and for ints and bools that fit a
// machine word. Nothing for all else, which has to go through the number protocol.
inline std::optional<double> addend(PyObject* value) {
    if (PyFloat_CheckExact(value)) [[likely]] {
        return PyFloat_AS_DOUBLE(value);
    }
    if (PyLong_CheckExact(value) || PyBool_Check(value)) {
        int overflow = 0;
        const long long word = PyLong_AsLongLongAndOverflow(value, &overflow);
        if (overflow == 0) {
            return static_cast<double>(word);
        }
    }
    return std::nullopt;
}

// part / whole for two counts, as the interpreter divides ints. Counts stay far below 2**53, so
// that both are exact as doubles and one division rounds once, as the interpreter's does.
// REQUIRES: `whole` is not 0.
inline double ratio(Py_ssize_t part, Py_ssize_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
}

}  // namespace search_analytics::host
