// Arithmetic by the interpreter's rules, and the short cuts that give the same bits.
#pragma once

#include <cfloat>
#include <cstdint>
#include <optional>
#include <utility>

#include "python/object.h"

namespace search_analytics {

inline Ref new_int(Py_ssize_t value) { return Ref::steal(PyLong_FromSsize_t(value)); }
inline Ref new_float(double value) { return Ref::steal(PyFloat_FromDouble(value)); }
inline Ref new_bool(bool value) { return Ref::share(value ? Py_True : Py_False); }

inline bool is_exact_float(Arg object) { return PyFloat_CheckExact(object.get()); }
inline bool is_exact_int(Arg object) { return PyLong_CheckExact(object.get()); }
inline bool is_bool(Arg object) { return PyBool_Check(object.get()); }

// Whether hashing an object, and comparing it with others of which the same is true, runs no code.
inline bool is_exact_key(Arg object) {
    return is_exact_str(object) || is_exact_int(object) || is_exact_float(object) ||
           is_bool(object) || object.is_none();
}

// float(value)
inline Ref to_float(Arg value) {
    return is_exact_float(value) ? value.share() : Ref::steal(PyNumber_Float(value));
}

// REQUIRES: a float.
inline double as_double(Arg value) {
    assert(PyFloat_Check(value.get()));
    return PyFloat_AS_DOUBLE(value.get());
}

// The value of an int that fits a machine word, or nothing. REQUIRES: an int.
inline std::optional<long long> machine_word(Arg value) {
    assert(PyLong_Check(value.get()));
    int overflow = 0;
    const long long word = PyLong_AsLongLongAndOverflow(value, &overflow);
    return overflow == 0 ? std::optional(word) : std::nullopt;
}

// The value of an int that tells a place in something of `size` places. Python code can reach the
// dictionary that holds it, and is not trusted to leave it alone.
inline std::size_t as_place(Arg value, std::size_t size) {
    const auto place = is_exact_int(value) ? machine_word(value) : std::nullopt;
    if (!place || std::cmp_less(*place, 0) || std::cmp_greater_equal(*place, size)) [[unlikely]] {
        raise(PyExc_RuntimeError, "a private dictionary was changed");
    }
    return static_cast<std::size_t>(*place);
}

// The same for an int that counts something: there is room for one more.
inline Py_ssize_t as_count(Arg value) {
    return static_cast<Py_ssize_t>(as_place(value, PY_SSIZE_T_MAX));
}

inline Ref add_in_place(Arg left, Arg right) {
    return Ref::steal(PyNumber_InPlaceAdd(left, right));
}
inline Ref add(Arg left, Arg right) { return Ref::steal(PyNumber_Add(left, right)); }
inline Ref subtract(Arg left, Arg right) { return Ref::steal(PyNumber_Subtract(left, right)); }
inline Ref multiply(Arg left, Arg right) { return Ref::steal(PyNumber_Multiply(left, right)); }
inline Ref divide(Arg left, Arg right) { return Ref::steal(PyNumber_TrueDivide(left, right)); }
inline Ref negative(Arg value) { return Ref::steal(PyNumber_Negative(value)); }

// Whether a step of a calculation is rounded to a double at once. Some processors (x87) carry more
// digits from step to step; how the interpreter was built for them, only it knows.
inline constexpr bool kRoundsEachStep = FLT_EVAL_METHOD == 0;

// The same for doubles, with the interpreter's digits, so that a formula is written once for both
// kinds of number. REQUIRES for a division: `right` is not 0.
inline double copy_of(double value) { return value; }
inline Ref copy_of(const Ref& value) { return value.copy(); }
inline double add(double left, double right) {
    return kRoundsEachStep ? left + right : as_double(add(new_float(left), new_float(right)));
}
inline double subtract(double left, double right) {
    return kRoundsEachStep ? left - right : as_double(subtract(new_float(left), new_float(right)));
}
inline double multiply(double left, double right) {
    return kRoundsEachStep ? left * right : as_double(multiply(new_float(left), new_float(right)));
}
inline double divide(double left, double right) {
    assert(right != 0.0);
    return kRoundsEachStep ? left / right : as_double(divide(new_float(left), new_float(right)));
}
inline bool is_greater(double left, double right) { return left > right; }
inline bool is_greater(Arg left, Arg right) { return compare(left, right, Py_GT); }

// isinstance(value, (int, float)) and not a bool
inline bool is_number(Arg value) {
    return !is_bool(value) && (PyLong_Check(value.get()) || PyFloat_Check(value.get()));
}

// The double that `0.0 + value` would add: for exact floats, and for ints and bools that fit a
// machine word. Nothing for all else, which has to go through the number protocol.
inline std::optional<double> addend(Arg value) {
    if (is_exact_float(value)) [[likely]] {
        return as_double(value);
    }
    if (is_exact_int(value) || is_bool(value)) {
        if (const auto word = machine_word(value)) {
            return kRoundsEachStep ? static_cast<double>(*word) : as_double(to_float(value));
        }
    }
    return std::nullopt;
}

// part / whole for two counts, as the interpreter divides ints. Up to 2**53 both are exact as
// doubles and one division rounds once, as the interpreter's does; only a history that lies about
// its length counts further. REQUIRES: neither is negative, and `whole` is not 0.
inline double ratio(Py_ssize_t part, Py_ssize_t whole) {
    assert(part >= 0 && whole > 0);
    constexpr std::int64_t kMostExact = 9007199254740992;  // 2**53
    if (std::cmp_greater(part, kMostExact) || std::cmp_greater(whole, kMostExact)) [[unlikely]] {
        return as_double(divide(new_int(part), new_int(whole)));
    }
    return divide(static_cast<double>(part), static_cast<double>(whole));
}

}  // namespace search_analytics
