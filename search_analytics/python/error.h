// Errors: how the interpreter's error indicator and C++ exceptions meet.
#pragma once

#include <new>
#include <stdexcept>

#include "python/python.h"

namespace search_analytics {

class Arg;
class Ref;

// Thrown when the interpreter's error indicator is set, and only then. Carries nothing: what
// went wrong stands in the indicator.
struct ErrorSet {};

// Throws on the -1 by which most of the interpreter's calls report failure.
inline void check(int result) {
    if (result < 0) [[unlikely]] {
        throw ErrorSet();
    }
}

// The same for calls whose answer is a truth value, a size or a position.
inline bool check_truth(int result) {
    check(result);
    return result != 0;
}

inline Py_ssize_t check_size(Py_ssize_t result) {
    if (result < 0) [[unlikely]] {
        throw ErrorSet();
    }
    return result;
}

// Sets an error of the interpreter's class `type` with a fixed text, or with a text object.
[[noreturn]] void raise(PyObject* type, const char* text);
[[noreturn]] void raise(PyObject* type, const Ref& text);

// NameError: the global `name` is not defined.
[[noreturn]] void raise_name_error(Arg name);

// The statement `raise exception from cause`. The cause is given when the statement stands
// where `cause` is being handled; it becomes the context, too.
[[noreturn]] void raise_object(Arg exception);
[[noreturn]] void raise_object_from(Arg exception, Arg cause);

// Whether the error that is set is of the class `type` (or of a subclass).
bool error_is(PyObject* type);

// Drops the error that is set: for what the caller is promised to tolerate, nothing else.
void forget_error();

// Takes the error that is set out of the indicator, as the exception object.
Ref take_error();

// Takes the outermost entry off the traceback of the error that is set, if it is one of `code`.
// Returns whether it was.
bool hide_in_traceback(Arg code);

// While it lives, the error that is set, if any, is out of the indicator, for code that has to run
// in between.
class SetAside {
   public:
    SetAside();
    ~SetAside();
    SetAside(const SetAside&) = delete;
    SetAside& operator=(const SetAside&) = delete;

   private:
    PyObject* error_ = nullptr;
};

// While it lives, `exception` is the one being handled, as inside an `except` block: whatever
// is raised meanwhile has it as its context.
class HandledException {
   public:
    explicit HandledException(Arg exception) noexcept;
    ~HandledException();
    HandledException(const HandledException&) = delete;
    HandledException& operator=(const HandledException&) = delete;

   private:
    PyObject* type_ = nullptr;
    PyObject* value_ = nullptr;
    PyObject* traceback_ = nullptr;
};

// Makes a RuntimeError of the error that is set, if it is a StopIteration: no generator may let one
// out unseen, since its consumer would take it for the end.
void replace_stop_iteration();

// Stops this thread for as long as the process lives.
[[noreturn]] void stop_thread();

// Runs what may run Python code inside of a destructor. When the process ends, the interpreter ends
// a daemon thread by unwinding its stack, which gets through no destructor of the C++ library: such
// a thread stops where it stands, as newer interpreters let all of them. It does not hold the
// interpreter's lock then, and nobody waits for it.
template <typename Action>
[[gnu::always_inline]] inline void without_unwinding(Action&& action) noexcept {
    try {
        action();
    } catch (...) {
        stop_thread();
    }
}

// The boundary between C++ and the interpreter: runs `body`, and turns what it throws into the
// interpreter's error and `failed`. No C++ exception passes it. Not `noexcept`, though: when the
// process ends, the interpreter ends a daemon thread that stands in a call by unwinding its
// stack, which has to get through.
template <typename Result, typename Body>
Result at_boundary(Result failed, Body&& body) {
    try {
        return body();
    } catch (const ErrorSet&) {
        return failed;
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        return failed;
    } catch (const std::length_error&) {
        PyErr_NoMemory();
        return failed;
    }
}

}  // namespace search_analytics
