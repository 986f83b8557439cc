// Iteration over anything, as the `for` statement does it.
#pragma once

#include "python/containers.h"

namespace search_analytics {

// How many items a long loop handles between two looks for signals (Ctrl-C).
inline constexpr Py_ssize_t kSignalInterval = 1024;

// Handles signals that have arrived, if it is time to. May run code.
inline bool look_for_signals(Py_ssize_t items_done) {
    if (items_done % kSignalInterval != 0) {
        return false;
    }
    check(PyErr_CheckSignals());
    return true;
}

// Looks for signals in loops whose items are far cheaper than records.
class SignalWatch {
   public:
    // Counts `units` steps of some nanoseconds each, and looks for signals every millisecond or
    // so: then it may run code, and returns true.
    bool work(std::size_t units) {
        done_ += units;
        if (done_ < kInterval) {
            return false;
        }
        done_ = 0;
        check(PyErr_CheckSignals());
        return true;
    }

   private:
    static constexpr std::size_t kInterval = 32768;

    std::size_t done_ = 0;
};

// for item in iterable: visit(item) -- until `visit` returns false. Keeps a reference to the item
// meanwhile; follows a list that changes under it as the `for` statement does.
template <typename Visit>
void for_each_until(Arg iterable, Visit&& visit) {
    if (is_exact_list(iterable)) {
        const Ref list = iterable.share();
        for (Py_ssize_t i = 0; i < list_size(list); ++i) {
            const Ref current = list_item(list, i);
            if (!visit(current.get())) {
                return;
            }
            look_for_signals(i + 1);
        }
        return;
    }
    const Ref iterator = Ref::steal(PyObject_GetIter(iterable));
    for (Py_ssize_t i = 1; PyObject* next = PyIter_Next(iterator.get()); ++i) {
        const Ref current = Ref::steal(next);
        look_for_signals(i);
        if (!visit(current.get())) {
            return;
        }
    }
    if (PyErr_Occurred() != nullptr) {
        throw ErrorSet();
    }
}

template <typename Visit>
void for_each(Arg iterable, Visit&& visit) {
    for_each_until(iterable, [&](PyObject* current) {
        visit(current);
        return true;
    });
}

}  // namespace search_analytics
