// Attributes, truth, comparison and calls: the operations that any object may carry out by
// running Python code. Hold a reference to whatever is used across one of them.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "python/compat.h"
#include "python/error.h"
#include "python/ref.h"
#include "python/text.h"

namespace search_analytics {

// type(object), borrowed
inline PyObject* type_of(Arg object) { return reinterpret_cast<PyObject*>(Py_TYPE(object.get())); }

// What stands under `name` in the class of an object or in one that it derives from, borrowed; or
// null. Runs no code, unless a class holds keys that do.
inline PyObject* class_member(Arg object, PyObject* name) {
    return _PyType_Lookup(Py_TYPE(object.get()), name);
}

// Whether an object is a class of Python code, or made like one: its own members can change.
inline bool is_python_class(Arg object) {
    return PyType_Check(object.get()) &&
           PyType_HasFeature(reinterpret_cast<PyTypeObject*>(object.get()), Py_TPFLAGS_HEAPTYPE);
}

// The code that a function of Python code runs, borrowed; null for any other object.
inline PyObject* code_of_function(Arg object) {
    return PyFunction_Check(object.get()) ? PyFunction_GET_CODE(object.get()) : nullptr;
}

// The version of a class, which is another one after each change of it; 0 where none is known.
// REQUIRES: a class.
inline unsigned int class_version(Arg type) {
    assert(PyType_Check(type.get()));
    return compat::class_version(reinterpret_cast<PyTypeObject*>(type.get()));
}

// The members of a class itself, as the interpreter keeps them. REQUIRES: a class.
inline PyObject* members_of_class(Arg type) {
    assert(PyType_Check(type.get()));
    return reinterpret_cast<PyTypeObject*>(type.get())->tp_dict;
}

// Returns the value of `name` on `object`; a missing attribute is an AttributeError.
inline Ref attribute(Arg object, Arg name) { return Ref::steal(PyObject_GetAttr(object, name)); }

// Returns the value of `name` on `object`, or nothing if there is no such attribute.
// Only AttributeError means "no such attribute"; whatever else the look-up raises is thrown.
inline std::optional<Ref> optional_attribute(Arg object, Arg name) {
    PyObject* value = nullptr;
    if (!check_truth(compat::get_optional_attribute(object, name, &value))) {
        return std::nullopt;
    }
    return Ref::steal(value);
}

// The same with None standing for a missing attribute.
inline Ref attribute_or_none(Arg object, Arg name) {
    PyObject* value = nullptr;
    if (!check_truth(compat::get_optional_attribute(object, name, &value))) {
        return Ref::none();
    }
    return Ref::steal(value);
}

// Whether the names of an object's own attributes are few and all of them texts, so that looking
// one up there runs no code. May make the dictionary that holds them.
inline bool names_are_texts(Arg object) {
    constexpr Py_ssize_t kMost = 64;
    if constexpr (!compat::kHasLock) {
        return false;  // Another thread may exchange them meanwhile.
    }
    PyObject** place = _PyObject_GetDictPtr(object);
    if (place == nullptr || *place == nullptr) {
        return true;
    }
    bool are_texts = PyDict_GET_SIZE(*place) <= kMost;
    PyObject* name = nullptr;
    for (Py_ssize_t at = 0; are_texts && PyDict_Next(*place, &at, &name, nullptr) != 0;) {
        are_texts = is_exact_str(name);
    }
    return are_texts;
}

// The value of `name` as object.__getattribute__ finds it, or an empty Ref. Runs code only for a
// descriptor of that name, and for names that are no texts.
inline Ref own_attribute(Arg object, Arg name) {
    PyObject* value = PyObject_GenericGetAttr(object, name);
    if (value == nullptr) {
        if (!error_is(PyExc_AttributeError)) {
            throw ErrorSet();
        }
        forget_error();
        return {};
    }
    return Ref::steal(value);
}

inline void set_attribute(Arg object, Arg name, Arg value) {
    check(PyObject_SetAttr(object, name, value));
}

inline bool truth(Arg object) {
    return PyBool_Check(object.get()) ? object == Py_True : check_truth(PyObject_IsTrue(object));
}

inline bool is_callable(Arg object) { return PyCallable_Check(object) != 0; }

// What a comparison such as `left < right` gives; `operation` is Py_LT, Py_EQ and so on. Two
// identical objects are not taken for equal: a NaN does not equal itself.
inline Ref comparison(Arg left, Arg right, int operation) {
    if (is_exact_str(left) && is_exact_str(right)) {
        return Ref::steal(PyUnicode_RichCompare(left, right, operation));
    }
    return Ref::steal(PyObject_RichCompare(left, right, operation));
}

// The truth of a comparison.
inline bool compare(Arg left, Arg right, int operation) {
    return truth(comparison(left, right, operation));
}

inline bool equal(Arg left, Arg right) {
    if (is_exact_str(right)) {
        if (left.is_none()) {
            return false;
        }
        if (is_exact_str(left)) {
            return same_text(left, right);
        }
    }
    return compare(left, right, Py_EQ);
}

// str(object), and format(object, "")
inline Ref formatted(Arg object) { return Ref::steal(PyObject_Format(object, nullptr)); }
inline Ref text(Arg object) { return Ref::steal(PyObject_Str(object)); }

inline Ref new_str(std::string_view text) {
    return Ref::steal(
        PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

// separator.join(list)
inline Ref joined(std::string_view separator, Arg list) {
    return Ref::steal(PyUnicode_Join(new_str(separator).get(), list));
}

// A string that all of the same text share.
inline Ref interned_str(std::string_view text) {
    PyObject* made = new_str(text).release();
    PyUnicode_InternInPlace(&made);
    return Ref::steal(made);
}

// A text from a printf-like pattern, as PyUnicode_FromFormat understands it.
template <typename... Values>
Ref format(const char* pattern, const Values&... values) {
    const auto plain = [](const auto& value) {
        if constexpr (std::is_convertible_v<decltype(value), Arg>) {
            return Arg(value).get();
        } else {
            return value;
        }
    };
    return Ref::steal(PyUnicode_FromFormat(pattern, plain(values)...));
}

template <typename... Arguments>
Ref call(Arg callable, const Arguments&... arguments) {
    const std::array<PyObject*, sizeof...(Arguments) + 1> stack = {nullptr, Arg(arguments)...};
    return Ref::steal(PyObject_Vectorcall(callable, stack.data() + 1,
                                          sizeof...(Arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                          nullptr));
}

template <typename... Arguments>
Ref call_method(Arg object, Arg name, const Arguments&... arguments) {
    const std::array<PyObject*, sizeof...(Arguments) + 1> stack = {object, Arg(arguments)...};
    return Ref::steal(
        PyObject_VectorcallMethod(name, stack.data(), sizeof...(Arguments) + 1, nullptr));
}

// Named values in order: the keyword arguments of a call.
class Keywords {
   public:
    explicit Keywords(std::size_t expected) {
        names_.reserve(expected);
        values_.reserve(expected);
    }

    // REQUIRES: `name` is a string that outlives the call.
    void add(PyObject* name, Ref value) {
        assert(PyUnicode_Check(name));
        names_.push_back(name);
        values_.push_back(std::move(value));
    }
    void add(PyObject* name, PyObject* value) { add(name, Ref::share(value)); }

    // Calls `callable` with these and no other arguments.
    Ref call(Arg callable) const;

   private:
    std::vector<PyObject*> names_;
    std::vector<Ref> values_;
};

}  // namespace search_analytics
