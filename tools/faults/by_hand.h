// Calls that no linker can put a wrapper in front of: functions whose address is compared, too, and
// those that a class holds. Included before everything else; a call is then a macro's, while the
// name alone stays what it was.
#pragma once

#include "controller.h"
#include "python/python.h"

#define FAULTS_BY_HAND(name, parameters, call)               \
    extern "C" inline PyObject* __wrap_##name parameters {   \
        if (faults::is_chosen(__builtin_frame_address(0))) { \
            faults::set_error();                             \
            return nullptr;                                  \
        }                                                    \
        return call;                                         \
    }

FAULTS_BY_HAND(PyObject_GenericGetAttr, (PyObject * object, PyObject* name),
               PyObject_GenericGetAttr(object, name))
FAULTS_BY_HAND(tp_alloc, (PyTypeObject * type, Py_ssize_t count), type->tp_alloc(type, count))
FAULTS_BY_HAND(tp_new, (PyTypeObject * type, PyObject* arguments, PyObject* keywords),
               type->tp_new(type, arguments, keywords))

#define PyObject_GenericGetAttr(...) __wrap_PyObject_GenericGetAttr(__VA_ARGS__)
// They stand behind `type->`: of every class that has a name, and so of all.
#define tp_alloc(...) tp_name != nullptr ? __wrap_tp_alloc(__VA_ARGS__) : nullptr
#define tp_new(...) tp_name != nullptr ? __wrap_tp_new(__VA_ARGS__) : nullptr
