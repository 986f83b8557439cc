// Differences between the CPython versions that we build for, under one name each.
#pragma once

#include <cassert>
#include <cstdint>

#include "python/error.h"

#if PY_VERSION_HEX < 0x030C0000
#include <structmember.h>
#define Py_T_OBJECT_EX T_OBJECT_EX
#define Py_T_OBJECT T_OBJECT
#define Py_T_PYSSIZET T_PYSSIZET
#define Py_READONLY READONLY
#else
#define Py_T_OBJECT 6
#endif

// Declares what a module may say of itself from a given version on; nothing before it.
#if PY_VERSION_HEX >= 0x030C0000
#define SEARCH_ANALYTICS_INTERPRETER_SLOTS \
    {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
#else
#define SEARCH_ANALYTICS_INTERPRETER_SLOTS
#endif

namespace search_analytics::compat {

// Whether code knows the qualified name of the function that it is of.
inline constexpr bool kCodeHasQualname = PY_VERSION_HEX >= 0x030B0000;

// Whether functions and classes know their type parameters; and how to work out annotations.
inline constexpr bool kHasTypeParameters = PY_VERSION_HEX >= 0x030C0000;
inline constexpr bool kHasAnnotate = PY_VERSION_HEX >= 0x030E0000;

// Whether one thread at a time works with objects. Then what is borrowed stays as long as no code
// runs. Free-threaded builds are taken not to have a lock: a user may have switched it off.
#ifdef Py_GIL_DISABLED
inline constexpr bool kHasLock = false;
#else
inline constexpr bool kHasLock = true;
#endif

// Whether a collection that is due waits until code runs, or an object is made.
inline constexpr bool kCollectsLate = PY_VERSION_HEX >= 0x030C0000;

// While it lives, no other thread is in a section of the same object.
class CriticalSection {
   public:
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
#ifdef Py_GIL_DISABLED
    explicit CriticalSection(PyObject* object) { PyCriticalSection_Begin(&section_, object); }
    ~CriticalSection() { PyCriticalSection_End(&section_); }

   private:
    PyCriticalSection section_;
#else
    explicit CriticalSection(PyObject*) {}
#endif
};

// A field of the interpreter's that other threads may write meanwhile.
template <typename Field>
Field load(const Field& field) {
#ifdef Py_GIL_DISABLED
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
#else
    return field;
#endif
}

// A new reference to an item of a list, or null and no error where the list ends before it.
inline PyObject* list_item(PyObject* list, Py_ssize_t place) {
    if (place >= PyList_GET_SIZE(list)) {
        return nullptr;
    }
#ifdef Py_GIL_DISABLED
    PyObject* item = PyList_GetItemRef(list, place);
    if (item == nullptr) {  // It has become shorter since.
        forget_error();
    }
    return item;
#else
    return Py_NewRef(PyList_GET_ITEM(list, place));
#endif
}

// Looks a key up in a dictionary. Returns a new reference, or null: with the error set where the
// look-up failed.
inline PyObject* dict_entry(PyObject* dict, PyObject* key) {
#ifdef Py_GIL_DISABLED
    PyObject* value = nullptr;
    PyDict_GetItemRef(dict, key, &value);
    return value;
#else
    return Py_XNewRef(PyDict_GetItemWithError(dict, key));
#endif
}

// The version of a class, which is another one after each change of it; 0 where none is known.
inline unsigned int class_version(const PyTypeObject* type) {
#if PY_VERSION_HEX < 0x030D0000
    if ((type->tp_flags & Py_TPFLAGS_VALID_VERSION_TAG) == 0) {
        return 0;
    }
#endif
    return load(type->tp_version_tag);
}

// The version of a dictionary, which is another one after each change of it; 0 where the
// interpreter keeps none that can be relied on.
inline std::uint64_t dict_version([[maybe_unused]] PyObject* dict) {
#if PY_VERSION_HEX < 0x030E0000 && !defined(Py_GIL_DISABLED)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return reinterpret_cast<PyDictObject*>(dict)->ma_version_tag;
#pragma GCC diagnostic pop
#else
    return 0;
#endif
}

// Whether a string can be read in place: only versions that are gone know strings that cannot.
inline bool is_ready_text([[maybe_unused]] PyObject* text) {
#if PY_VERSION_HEX < 0x030C0000
    return PyUnicode_IS_READY(text) != 0;
#else
    return true;
#endif
}

// Whether this thread, which is inside of a call, holds its interpreter's lock still, or has been
// refused it because the process ends.
inline bool holds_lock() {
#if PY_VERSION_HEX >= 0x030D0000
    const PyThreadState* current = PyThreadState_GetUnchecked();
#else
    const PyThreadState* current = _PyThreadState_UncheckedGet();
#endif
#if PY_VERSION_HEX >= 0x030C0000
    // Each thread knows its own state, and has none while it waits for the lock.
    return current != nullptr;
#else
    // There is one current state in the process: that of the thread which holds the lock. Once the
    // interpreter refuses it to all others, no other state of this thread can be current.
    return _Py_IsFinalizing() == 0 ||
           (current != nullptr && current == PyGILState_GetThisThreadState());
#endif
}

// Looks `name` up on `object`. Returns 1 and a new reference, 0 and null when there is no such
// attribute, or -1 with the error set; a missing attribute builds no exception.
inline int get_optional_attribute(PyObject* object, PyObject* name, PyObject** result) {
#if PY_VERSION_HEX >= 0x030D0000
    return PyObject_GetOptionalAttr(object, name, result);
#else
    return _PyObject_LookupAttr(object, name, result);
#endif
}

// Whether an error that is thrown into a generator that has not begun is raised inside of it, or
// before it.
inline constexpr bool kThrowsIntoFreshGenerators = PY_VERSION_HEX < 0x030C0000;

// What a weak reference refers to, as a new reference, or None. REQUIRES: a weak reference.
inline PyObject* referent(PyObject* reference) {
    assert(PyWeakref_Check(reference));
#if PY_VERSION_HEX >= 0x030D0000
    PyObject* object = nullptr;
    PyWeakref_GetRef(reference, &object);
    return object == nullptr ? Py_NewRef(Py_None) : object;
#else
    return Py_NewRef(PyWeakref_GetObject(reference));
#endif
}

// Takes the raised exception out of the error indicator, as one normalised object that carries
// its traceback. REQUIRES: the error indicator is set.
inline PyObject* take_raised_exception() {
    assert(PyErr_Occurred() != nullptr);
#if PY_VERSION_HEX >= 0x030C0000
    return PyErr_GetRaisedException();
#else
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    if (traceback != nullptr) {
        PyException_SetTraceback(value, traceback);
    }
    Py_XDECREF(type);
    Py_XDECREF(traceback);
    return value;
#endif
}

// An exception as it is once it has been raised with a traceback, or with null. Takes over what it
// is given. REQUIRES: they are normalised.
inline PyObject* exception_with_traceback(PyObject* type, PyObject* value, PyObject* traceback) {
    assert(PyExceptionInstance_Check(value));
#if PY_VERSION_HEX >= 0x030C0000
    // Late releases of 3.14 keep the exception's own traceback where there is no other.
    PyErr_Restore(type, value, traceback);
    return PyErr_GetRaisedException();
#else
    PyException_SetTraceback(value, traceback != nullptr ? traceback : Py_None);
    Py_DECREF(type);
    Py_XDECREF(traceback);
    return value;
#endif
}

// Puts `exception` (a new reference, which is taken over) back into the error indicator.
inline void restore_raised_exception(PyObject* exception) {
#if PY_VERSION_HEX >= 0x030C0000
    PyErr_SetRaisedException(exception);
#else
    PyErr_Restore(Py_NewRef(reinterpret_cast<PyObject*>(Py_TYPE(exception))), exception,
                  PyException_GetTraceback(exception));
#endif
}

// Whether a profiler listens to this thread, and is not running itself.
inline bool is_profiled() {
    const PyThreadState* thread = PyThreadState_Get();
    return thread->c_profilefunc != nullptr && thread->tracing == 0;
}

// From here on until resume_tracing(), this thread's tracers and profilers see nothing.
inline void pause_tracing() {
    PyThreadState* thread = PyThreadState_Get();
#if PY_VERSION_HEX >= 0x030B0000
    PyThreadState_EnterTracing(thread);
#else
    ++thread->tracing;
    thread->cframe->use_tracing = 0;
#endif
}

inline void resume_tracing() {
    PyThreadState* thread = PyThreadState_Get();
#if PY_VERSION_HEX >= 0x030B0000
    PyThreadState_LeaveTracing(thread);
#else
    --thread->tracing;
    thread->cframe->use_tracing =
        thread->c_tracefunc != nullptr || thread->c_profilefunc != nullptr ? 1 : 0;
#endif
}

}  // namespace search_analytics::compat
