// The layout of a function object, for the two files that implement it. Several threads may call
// and change one function at a time.
#pragma once

#include <utility>

#include "facade/function.h"

namespace search_analytics {

using Implementation = Ref (*)(const Call& call);

struct FunctionObject {
    PyObject ob_base;
    vectorcallfunc vectorcall;
    const FunctionDescription* description;
    // The class that it was made for as a method, by its name; or nothing.
    std::string_view owner;
    Implementation implementation;
    // Kept until the function is gone, so that it can be called as long as it exists.
    PyObject* module;
    PyObject* globals;
    PyObject* parameter_names;
    // What Python code sees, and may replace. A deleted value is null or None.
    PyObject* name;
    PyObject* qualname;
    PyObject* module_name;
    PyObject* documentation;
    PyObject* defaults;
    PyObject* keyword_defaults;
    PyObject* annotations;
    // How to work the annotations out: null for as the function was made, or what was assigned.
    PyObject* annotate;
    PyObject* type_parameters;
    PyObject* code;
    PyObject* dict;
    PyObject* weak_references;
};

using FunctionField = PyObject* FunctionObject::*;

// What stands in a field that Python code may replace, or an empty Ref for null.
inline Ref field_of(FunctionObject* function, FunctionField field) {
    const compat::CriticalSection section(&function->ob_base);
    PyObject* value = function->*field;
    return value != nullptr ? Ref::share(value) : Ref();
}

// Puts another value there; an empty Ref for null.
inline void put_field(FunctionObject* function, FunctionField field, Ref value) {
    PyObject* old = value.release();
    {
        const compat::CriticalSection section(&function->ob_base);
        std::swap(function->*field, old);
    }
    drop(old);
}

// The function's code object, made when it is first asked for.
Ref function_code(FunctionObject* function);

}  // namespace search_analytics
