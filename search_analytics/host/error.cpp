// Errors: how the interpreter's error indicator and C++ exceptions meet.
#include "host/error.h"

#include "host/compat.h"
#include "host/ref.h"

namespace search_analytics::host {

void raise(PyObject* type, const char* text) {
    PyErr_SetString(type, text);
    throw ErrorSet();
}

void raise(PyObject* type, const Ref& text) {
    PyErr_SetObject(type, text.get());
    throw ErrorSet();
}

void raise_object(PyObject* exception) {
    Ref instance = Ref::share(exception);
    if (PyExceptionClass_Check(exception)) {
        instance = Ref::steal(PyObject_CallNoArgs(exception));
    }
    if (!PyExceptionInstance_Check(instance.get())) {
        raise(PyExc_TypeError, "exceptions must derive from BaseException");
    }
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(instance.get())), instance.get());
    throw ErrorSet();
}

void raise_object_from(PyObject* exception, PyObject* cause) {
    Ref instance = Ref::share(exception);
    if (PyExceptionClass_Check(exception)) {
        instance = Ref::steal(PyObject_CallNoArgs(exception));
    }
    if (PyExceptionInstance_Check(instance.get())) {
        PyException_SetCause(instance.get(), Py_NewRef(cause));
    }
    raise_object(instance.get());
}

bool error_is(PyObject* type) { return PyErr_ExceptionMatches(type) != 0; }

void forget_error() { PyErr_Clear(); }

Ref take_error() { return Ref::steal(compat::take_raised_exception()); }

void restore_error(Ref exception) { compat::restore_raised_exception(exception.release()); }

HandledException::HandledException(PyObject* exception) noexcept {
    PyErr_GetExcInfo(&type_, &value_, &traceback_);
    PyErr_SetExcInfo(Py_NewRef(reinterpret_cast<PyObject*>(Py_TYPE(exception))),
                     Py_NewRef(exception), PyException_GetTraceback(exception));
}

HandledException::~HandledException() {
    if (!thread_is_ending()) {
        PyErr_SetExcInfo(type_, value_, traceback_);
    }
}

void rethrow_from_generator() {
    if (!error_is(PyExc_StopIteration)) {
        throw ErrorSet();
    }
    const Ref stop = take_error();
    const Ref error = Ref::steal(
        PyObject_CallFunction(PyExc_RuntimeError, "s", "generator raised StopIteration"));
    const HandledException handled(stop.get());
    raise_object_from(error.get(), stop.get());
}

}  // namespace search_analytics::host
