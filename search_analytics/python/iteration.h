// Iteration over anything, as the `for` statement does it.
#pragma once

#include "python/containers.h"
#include "python/turns.h"

namespace search_analytics {

// for item in iterable: visit(item) -- until `visit` returns false. Keeps a reference to the item
// meanwhile; follows a list that changes under it as the `for` statement does.
template <typename Visit>
void for_each_until(Arg iterable, Visit&& visit) {
    if (is_exact_list(iterable)) {
        const Ref list = iterable.share();
        for (Py_ssize_t i = 0; PyObject* next = compat::list_item(list.get(), i); ++i) {
            const Ref current = Ref::adopt(next);
            if (!visit(current.get())) {
                return;
            }
            take_turns_after(kWorkOfStep);
        }
        return;
    }
    const Ref iterator = Ref::steal(PyObject_GetIter(iterable));
    while (PyObject* next = PyIter_Next(iterator.get())) {
        const Ref current = Ref::steal(next);
        take_turns_after(kWorkOfStep);
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
