// Errors: how the interpreter's error indicator and C++ exceptions meet.
#include "python/error.h"

#include <unistd.h>

#include "python/compat.h"
#include "python/object.h"
#include "python/ref.h"

namespace search_analytics {

namespace {

// The statement `raise exception`, with a cause that is an exception or null. A class is called;
// where what it gives is not of that class, the interpreter makes an instance of it once more.
[[noreturn]] void raise_by_statement(Arg exception, PyObject* cause) {
    const bool is_class = PyExceptionClass_Check(exception.get());
    const Ref instance = is_class ? Ref::steal(PyObject_CallNoArgs(exception)) : exception.share();
    PyObject* const given = type_of(instance);
    if (!PyExceptionInstance_Check(instance.get())) {
        if (!is_class) {
            raise(PyExc_TypeError, "exceptions must derive from BaseException");
        }
        PyErr_Format(PyExc_TypeError,
                     "calling %R should have returned an instance of BaseException, not %R",
                     exception.get(), given);
        throw ErrorSet();
    }
    if (cause != nullptr) {
        PyException_SetCause(instance.get(), Py_NewRef(cause));
    }
    PyErr_SetObject(is_class ? exception.get() : given, instance.get());
    throw ErrorSet();
}

}  // namespace

void raise(PyObject* type, const char* text) {
    PyErr_SetString(type, text);
    throw ErrorSet();
}

void raise(PyObject* type, const Ref& text) {
    PyErr_SetObject(type, text.get());
    throw ErrorSet();
}

void raise_name_error(Arg name) {
    PyErr_Format(PyExc_NameError, "name '%U' is not defined", name.get());
    const Ref error = take_error();
    check(PyObject_SetAttrString(error.get(), "name", name.get()));
    compat::restore_raised_exception(error.copy().release());
    throw ErrorSet();
}

void raise_object(Arg exception) { raise_by_statement(exception, nullptr); }

void raise_object_from(Arg exception, Arg cause) { raise_by_statement(exception, cause.get()); }

bool error_is(PyObject* type) { return PyErr_ExceptionMatches(type) != 0; }

void forget_error() { PyErr_Clear(); }

Ref take_error() { return Ref::steal(compat::take_raised_exception()); }

bool hide_in_traceback(Arg code) {
    if (PyErr_Occurred() == nullptr) {
        return false;  // without memory the interpreter may fail and not say why
    }
    Ref error = take_error();
    bool is_outermost = false;
    if (PyObject* traceback = PyException_GetTraceback(error.get()); traceback != nullptr) {
        const Ref keep = Ref::adopt(traceback);
        const auto* entry = reinterpret_cast<PyTracebackObject*>(traceback);
        const Ref shown = Ref::steal(reinterpret_cast<PyObject*>(PyFrame_GetCode(entry->tb_frame)));
        is_outermost = shown.get() == code.get();
        if (is_outermost) {
            auto* next = reinterpret_cast<PyObject*>(entry->tb_next);
            check(PyException_SetTraceback(error.get(), next == nullptr ? Py_None : next));
        }
    }
    compat::restore_raised_exception(error.release());
    return is_outermost;
}

SetAside::SetAside()
    : error_(PyErr_Occurred() != nullptr ? compat::take_raised_exception() : nullptr) {}

SetAside::~SetAside() {
    if (error_ != nullptr && !thread_is_ending()) {
        without_unwinding([&] { compat::restore_raised_exception(error_); });
    }
}

HandledException::HandledException(Arg exception) noexcept {
    PyErr_GetExcInfo(&type_, &value_, &traceback_);
    PyErr_SetExcInfo(Py_NewRef(reinterpret_cast<PyObject*>(Py_TYPE(exception.get()))),
                     Py_NewRef(exception.get()), PyException_GetTraceback(exception));
}

HandledException::~HandledException() {
    if (!thread_is_ending()) {
        without_unwinding([&] { PyErr_SetExcInfo(type_, value_, traceback_); });
    }
}

void replace_stop_iteration() {
    if (!error_is(PyExc_StopIteration)) {
        return;
    }
    const Ref stop = take_error();
    const Ref error = Ref::steal(
        PyObject_CallFunction(PyExc_RuntimeError, "s", "generator raised StopIteration"));
    const HandledException handled(stop);
    PyException_SetCause(error.get(), stop.copy().release());
    PyErr_SetObject(PyExc_RuntimeError, error.get());
}

void stop_thread() {
    for (;;) {
        pause();
    }
}

}  // namespace search_analytics
