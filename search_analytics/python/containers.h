// Lists, tuples, dictionaries and sets.
#pragma once

#include "python/number.h"

namespace search_analytics {

// Whether the type of an object derives from dict. An object that only says so by its `__class__`
// is none.
inline bool is_dict(Arg object) { return PyDict_Check(object.get()); }
inline bool is_exact_dict(Arg object) { return PyDict_CheckExact(object.get()); }
inline bool is_exact_list(Arg object) { return PyList_CheckExact(object.get()); }

inline Ref new_list() { return Ref::steal(PyList_New(0)); }
inline Ref new_dict() { return Ref::steal(PyDict_New()); }
inline Ref new_set() { return Ref::steal(PySet_New(nullptr)); }
inline Ref new_frozenset() { return Ref::steal(PyFrozenSet_New(nullptr)); }

// list(iterable), set(iterable)
inline Ref list_of(Arg iterable) { return Ref::steal(PySequence_List(iterable)); }
inline Ref set_of(Arg iterable) { return Ref::steal(PySet_New(iterable)); }

// REQUIRES: an exact list.
inline Py_ssize_t list_size(Arg list) {
    assert(is_exact_list(list));
    return PyList_GET_SIZE(list.get());
}

// REQUIRES: a list of our own making.
inline void append(const Ref& list, Arg item) {
    assert(is_exact_list(list));
    check(PyList_Append(list.get(), item));
}

// list[place], and list[place] = item: IndexError where the list has become shorter. REQUIRES: an
// exact list.
inline Ref list_item(Arg list, Py_ssize_t place) {
    PyObject* item = compat::list_item(list, place);
    if (item == nullptr) [[unlikely]] {
        raise(PyExc_IndexError, "list index out of range");
    }
    return Ref::adopt(item);
}
inline void set_list_item(Arg list, Py_ssize_t place, Ref item) {
    check(PyList_SetItem(list, place, item.release()));
}

// list.sort() and sorted(iterable)
inline void sort(const Ref& list) { check(PyList_Sort(list.get())); }
inline Ref sorted(Arg iterable) {
    Ref list = list_of(iterable);
    sort(list);
    return list;
}

// len(object)
inline Py_ssize_t length(Arg object) { return check_size(PyObject_Size(object)); }

template <typename... Items>
Ref tuple_of(const Items&... items) {
    return Ref::steal(PyTuple_Pack(sizeof...(Items), Arg(items).get()...));
}

inline bool is_exact_tuple(Arg object) { return PyTuple_CheckExact(object.get()); }

// REQUIRES: a tuple.
inline Py_ssize_t tuple_size(Arg tuple) {
    assert(PyTuple_Check(tuple.get()));
    return PyTuple_GET_SIZE(tuple.get());
}

// REQUIRES: a tuple that has such a place.
inline PyObject* tuple_item(Arg tuple, Py_ssize_t place) {
    assert(PyTuple_Check(tuple.get()) && place < PyTuple_GET_SIZE(tuple.get()));
    return PyTuple_GET_ITEM(tuple.get(), place);
}

// The two items of a pair. Python code can reach the dictionary or the list that holds it, and is
// not trusted to leave that alone.
inline std::pair<Ref, Ref> as_pair(Arg value) {
    if (!is_exact_tuple(value) || tuple_size(value) != 2) [[unlikely]] {
        raise(PyExc_RuntimeError, "a private dictionary was changed");
    }
    return {Ref::share(tuple_item(value, 0)), Ref::share(tuple_item(value, 1))};
}

// object[key], by whatever the object's type makes of it
inline Ref item(Arg object, Arg key) { return Ref::steal(PyObject_GetItem(object, key)); }
inline Ref item(Arg object, Py_ssize_t index) { return item(object, new_int(index)); }

// sequence[:count]
inline Ref first_items(Arg sequence, Arg count) {
    return item(sequence, Ref::steal(PySlice_New(nullptr, count, nullptr)));
}

// key in object
inline bool contains(Arg object, Arg key) { return check_truth(PySequence_Contains(object, key)); }

// object[key] = value
inline void assign_item(Arg object, Arg key, Arg value) {
    check(PyObject_SetItem(object, key, value));
}

// del object[key]
inline void delete_item(Arg object, Arg key) { check(PyObject_DelItem(object, key)); }

// object[key] = value, for an exact dict. REQUIRES: a dictionary of our own making, or one whose
// keys may run code.
inline void set_item(Arg dict, Arg key, Arg value) {
    assert(is_exact_dict(dict));
    check(PyDict_SetItem(dict, key, value));
}

// The entry under `key` of an exact dict, or nothing. May run code: the keys are compared.
// REQUIRES: an exact dict.
inline std::optional<Ref> dict_entry(Arg dict, Arg key) {
    assert(PyDict_Check(dict.get()));
    PyObject* value = compat::dict_entry(dict, key);
    if (value == nullptr) {
        if (PyErr_Occurred() != nullptr) {
            throw ErrorSet();
        }
        return std::nullopt;
    }
    return Ref::adopt(value);
}

// mapping.get(key): a direct look-up for an exact dict, the method of anything else.
inline Ref get_or_none(Arg mapping, Arg key, PyObject* name_get) {
    if (is_exact_dict(mapping)) {
        auto entry = dict_entry(mapping, key);
        return entry ? std::move(*entry) : Ref::none();
    }
    return call_method(mapping, name_get, key);
}

// REQUIRES: a dict.
inline std::size_t dict_size(Arg dict) {
    assert(is_dict(dict));
    return static_cast<std::size_t>(PyDict_GET_SIZE(dict.get()));
}

inline Ref copy_of_dict(Arg dict) { return Ref::steal(PyDict_Copy(dict)); }
inline Ref items_of_dict(Arg dict) { return Ref::steal(PyDict_Items(dict)); }

inline void add_to_set(const Ref& set, Arg item) { check(PySet_Add(set.get(), item)); }

// An empty set to be filled and made a frozenset: out of sight of the collector, and of everybody
// who asks it for all objects. A frozenset that somebody else has found takes nothing more, and
// from 3.15 on comes into sight by what is added to it; a set does neither.
inline Ref new_hidden_set() {
    Ref set = Ref::steal(PySet_New(nullptr));
    PyObject_GC_UnTrack(set.get());
    return set;
}

// Makes that set a frozenset, which is in sight. The two are alike but for their type.
inline void show_frozen(const Ref& set) {
    assert(PySet_CheckExact(set.get()));
    Py_SET_TYPE(set.get(), &PyFrozenSet_Type);
    PyObject_GC_Track(set.get());
}

}  // namespace search_analytics
