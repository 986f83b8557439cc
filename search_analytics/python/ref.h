// Ownership of interpreter objects. A `PyObject*` is always borrowed; a `Ref` always owns.
#pragma once

#include <atomic>
#include <cassert>
#include <utility>

#include "python/compat.h"
#include "python/error.h"
#include "python/python.h"

namespace search_analytics {

// Whether the interpreter may be ending threads already: never false again once it may. Whoever
// drops a reference asks this first, since it costs nothing.
inline std::atomic<bool> threads_may_be_ended = false;

// Whether this thread is being unwound because another one ends the interpreter. It does not hold
// the interpreter's lock then: no destructor may call into the interpreter, and what the thread
// owns is left to the end of the process.
inline bool thread_is_ending() {
    return threads_may_be_ended.load(std::memory_order_relaxed) && !compat::holds_lock();
}

// Drops a reference, unless this thread is being ended.
[[gnu::always_inline]] inline void drop(PyObject* object) {
    if (object == nullptr || thread_is_ending()) {
        return;
    }
    without_unwinding([&] { Py_DECREF(object); });
}

// Owns one reference. Move-only, so that every new reference is written out as `share`.
// A Ref is empty only when default-constructed or moved from; functions never return one so, unless
// they say it.
class Ref {
   public:
    Ref() noexcept = default;
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        // The old object goes last: its finaliser may run code that looks at this Ref.
        PyObject* old = std::exchange(object_, std::exchange(other.object_, nullptr));
        drop(old);
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    [[gnu::always_inline]] ~Ref() { drop(object_); }

    // Takes over a new reference as the interpreter's calls return it; null means that the call
    // failed, and is thrown on as ErrorSet.
    static Ref steal(PyObject* object) {
        if (object == nullptr) [[unlikely]] {
            throw ErrorSet();
        }
        return Ref(object);
    }

    // Adds a reference to a borrowed object. REQUIRES: `object` is not null.
    static Ref share(PyObject* object) noexcept {
        assert(object != nullptr);
        return Ref(Py_NewRef(object));
    }

    // Takes over a reference that is known to exist. REQUIRES: `object` is not null.
    static Ref adopt(PyObject* object) noexcept {
        assert(object != nullptr);
        return Ref(object);
    }

    static Ref none() noexcept { return share(Py_None); }

    PyObject* get() const noexcept { return object_; }
    PyObject* release() noexcept { return std::exchange(object_, nullptr); }
    Ref copy() const noexcept { return share(object_); }
    bool empty() const noexcept { return object_ == nullptr; }
    bool is_none() const noexcept { return object_ == Py_None; }

   private:
    explicit Ref(PyObject* object) noexcept : object_(object) {}

    PyObject* object_ = nullptr;
};

// A borrowed parameter: a function that takes one is given a Ref or a bare pointer, whichever its
// caller has, and keeps neither. For parameters only: nothing holds what a variable would borrow.
class Arg {
   public:
    // NOLINTNEXTLINE(google-explicit-constructor): taking either silently is what it is for.
    Arg(PyObject* object) noexcept : object_(object) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Arg(const Ref& object) noexcept : object_(object.get()) {}

    // NOLINTNEXTLINE(google-explicit-constructor)
    operator PyObject*() const noexcept { return object_; }

    PyObject* get() const noexcept { return object_; }
    Ref share() const noexcept { return Ref::share(object_); }
    bool is_none() const noexcept { return object_ == Py_None; }

   private:
    PyObject* object_;
};

}  // namespace search_analytics
