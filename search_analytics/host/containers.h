// Lists, tuples, dictionaries, and iteration over anything.
#pragma once

#include <span>

#include "host/number.h"
#include "host/object.h"

namespace search_analytics::host {

// isinstance(object, dict)
inline bool is_dict(PyObject* object) { return PyDict_Check(object) != 0; }

inline Ref new_list() { return Ref::steal(PyList_New(0)); }
inline Ref new_dict() { return Ref::steal(PyDict_New()); }
inline Ref new_set() { return Ref::steal(PySet_New(nullptr)); }

// list(iterable)
inline Ref list_of(PyObject* iterable) { return Ref::steal(PySequence_List(iterable)); }

// REQUIRES: `list` is a list of our own making.
inline void append(const Ref& list, PyObject* item) { check(PyList_Append(list.get(), item)); }
// The items of an exact list, borrowed, until code runs.
inline std::span<PyObject* const> items_of(PyObject* list) {
    return {reinterpret_cast<PyListObject*>(list)->ob_item,
            static_cast<std::size_t>(PyList_GET_SIZE(list))};
}

inline Py_ssize_t list_size(const Ref& list) { return PyList_GET_SIZE(list.get()); }

// len(object)
inline Py_ssize_t length(PyObject* object) { return check_size(PyObject_Size(object)); }

template <typename... Items>
Ref tuple_of(const Items&... items) {
    return Ref::steal(PyTuple_Pack(sizeof...(Items), items.get()...));
}

// object[key], by whatever the object's type makes of it
inline Ref item(PyObject* object, PyObject* key) {
    return Ref::steal(PyObject_GetItem(object, key));
}
inline Ref item(PyObject* object, Py_ssize_t index) { return item(object, integer(index).get()); }

// sequence[:count]
inline Ref first_items(PyObject* sequence, PyObject* count) {
    return item(sequence, Ref::steal(PySlice_New(nullptr, count, nullptr)).get());
}

// key in object
inline bool contains(PyObject* object, PyObject* key) {
    return check_truth(PySequence_Contains(object, key));
}

// object[key] = value, for an exact dict
inline void set_item(const Ref& dict, PyObject* key, PyObject* value) {
    check(PyDict_SetItem(dict.get(), key, value));
}

// The entry under `key` of an exact dict, or nothing. May run code: the keys are compared.
inline std::optional<Ref> dict_entry(PyObject* dict, PyObject* key) {
    PyObject* value = PyDict_GetItemWithError(dict, key);
    if (value == nullptr) {
        if (PyErr_Occurred() != nullptr) {
            throw ErrorSet();
        }
        return std::nullopt;
    }
    return Ref::share(value);
}

// mapping.get(key): a direct look-up for an exact dict, the method of anything else.
inline Ref get_or_none(PyObject* mapping, PyObject* key, PyObject* name_get) {
    if (PyDict_CheckExact(mapping)) {
        auto entry = dict_entry(mapping, key);
        return entry ? std::move(*entry) : Ref::none();
    }
    return call_method(mapping, name_get, key);
}

// How many items a long loop handles between two looks for signals (Ctrl-C).
inline constexpr Py_ssize_t kSignalInterval = 1024;

// Looks for signals in loops whose items are far cheaper than records.
class SignalWatch {
   public:
    // Counts `units` steps of some nanoseconds each, and looks for signals every millisecond or
    // so. May run code.
    void work(std::size_t units) {
        done_ += units;
        if (done_ >= kInterval) {
            done_ = 0;
            check(PyErr_CheckSignals());
        }
    }

   private:
    static constexpr std::size_t kInterval = 32768;

    std::size_t done_ = 0;
};

// Calls `visit` with each place of an exact list and the item there, borrowed, until it returns
// false. Follows a list that changes under it as the `for` statement does.
template <typename Visit>
void for_each_place_until(PyObject* list, Visit&& visit) {
    const Ref owned = Ref::share(list);
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        if (i % kSignalInterval == kSignalInterval - 1) {
            check(PyErr_CheckSignals());
            if (i >= PyList_GET_SIZE(list)) {
                return;
            }
        }
        if (!visit(i, PyList_GET_ITEM(list, i))) {
            return;
        }
    }
}

// for item in iterable: visit(item) -- until `visit` returns false. Keeps a reference to the item
// meanwhile.
template <typename Visit>
void for_each_until(PyObject* iterable, Visit&& visit) {
    if (PyList_CheckExact(iterable)) {
        for_each_place_until(iterable, [&](Py_ssize_t, PyObject* item) {
            const Ref current = Ref::share(item);
            return visit(current.get());
        });
        return;
    }
    const Ref iterator = Ref::steal(PyObject_GetIter(iterable));
    for (Py_ssize_t i = 1; PyObject* next = PyIter_Next(iterator.get()); ++i) {
        const Ref current = Ref::steal(next);
        if (i % kSignalInterval == 0) {
            check(PyErr_CheckSignals());
        }
        if (!visit(current.get())) {
            return;
        }
    }
    if (PyErr_Occurred() != nullptr) {
        throw ErrorSet();
    }
}

template <typename Visit>
void for_each(PyObject* iterable, Visit&& visit) {
    for_each_until(iterable, [&](PyObject* current) {
        visit(current);
        return true;
    });
}

}  // namespace search_analytics::host
