// Where CPython keeps the attributes of an instance.
//
// Instances of a class whose attributes have not been asked for as a dictionary hold them in an
// array that all instances number alike; others hold them in a dictionary of their own, in slots or
// as the items of a tuple. Reading them in place is what the interpreter's own specialised
// instructions do; there is no call for it. Whoever reads an attribute so has checked its class
// against an ordinary look-up first (Attribute); on versions that are not known nothing is found
// here, and everything is read by ordinary look-ups.
#pragma once

#include "layout/table.h"

namespace search_analytics {

// Internal/pycore_dict.h, from 3.13 on: what stands in front of the array of attributes.
// NOLINTBEGIN(readability-identifier-naming): CPython's names
struct DictValuesHead {
    std::uint8_t capacity;
    std::uint8_t size;
    std::uint8_t embedded;
    std::uint8_t valid;
};
// NOLINTEND(readability-identifier-naming)

// The names of the attributes that the instances of a class number alike, in the order of their
// numbers; or null.
inline const DictKeys* numbered_names([[maybe_unused]] const PyTypeObject* type) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT && PY_VERSION_HEX >= 0x030B0000
#if PY_VERSION_HEX >= 0x030D0000
    constexpr unsigned long kNeeded =
        Py_TPFLAGS_HEAPTYPE | Py_TPFLAGS_MANAGED_DICT | Py_TPFLAGS_INLINE_VALUES;
#else
    constexpr unsigned long kNeeded = Py_TPFLAGS_HEAPTYPE | Py_TPFLAGS_MANAGED_DICT;
#endif
    if ((type->tp_flags & kNeeded) == kNeeded) {
        return reinterpret_cast<const DictKeys*>(
            reinterpret_cast<const PyHeapTypeObject*>(type)->ht_cached_keys);
    }
#endif
    return nullptr;
}

// The array of an instance's attributes, or null where it has a dictionary instead. A null entry is
// an attribute that is not set. REQUIRES: numbered_names() knows the instance's class.
inline PyObject** instance_values([[maybe_unused]] PyObject* instance) {
    assert(numbered_names(Py_TYPE(instance)) != nullptr);
#if !SEARCH_ANALYTICS_KNOWS_LAYOUT || PY_VERSION_HEX < 0x030B0000
    return nullptr;
#elif PY_VERSION_HEX >= 0x030D0000
    // Internal/pycore_object.h, _PyObject_InlineValues: right after the object's head, from 3.14 on
    // after what the class says that an instance takes.
#if PY_VERSION_HEX >= 0x030E0000
    char* end = reinterpret_cast<char*>(instance) + Py_TYPE(instance)->tp_basicsize;
#else
    char* end = reinterpret_cast<char*>(instance + 1);
#endif
    constexpr std::size_t kHeadSize = 8;
    const bool is_valid = reinterpret_cast<DictValuesHead*>(end)->valid != 0;
    return is_valid ? reinterpret_cast<PyObject**>(end + kHeadSize) : nullptr;
#elif PY_VERSION_HEX >= 0x030C0000
    // Internal/pycore_object.h, _PyObject_DictOrValuesPointer: a pointer with its last bit set, one
    // less than that of the values.
    char* tagged = reinterpret_cast<char**>(instance)[-3];
    const bool is_values = (reinterpret_cast<std::uintptr_t>(tagged) & 1U) != 0;
    return is_values ? reinterpret_cast<PyObject**>(tagged + 1) : nullptr;
#else
    // Internal/pycore_object.h, _PyObject_ValuesPointer.
    return reinterpret_cast<PyObject***>(instance)[-4];
#endif
}

// Where an instance of a class has the pointer to its dictionary, from its beginning; 0 where that
// is not known, or it has none. From 3.11 on the interpreter itself puts it in front of the
// object's head (Internal/pycore_object.h, _PyObject_ManagedDictPointer).
inline Py_ssize_t dictionary_offset([[maybe_unused]] const PyTypeObject* type) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT
#if PY_VERSION_HEX >= 0x030B0000
    if ((type->tp_flags & Py_TPFLAGS_MANAGED_DICT) != 0) {
        return -3 * static_cast<Py_ssize_t>(sizeof(PyObject*));
    }
#endif
    return type->tp_dictoffset > 0 ? type->tp_dictoffset : 0;
#else
    return 0;
#endif
}

// Where an instance has the pointer to the dictionary that holds its attributes; null there where
// it has none. REQUIRES: the offset is what dictionary_offset() gives for its class, and not 0; the
// instance has no array.
inline PyObject** dictionary_place(PyObject* instance, Py_ssize_t offset) {
    assert(offset != 0 && offset == dictionary_offset(Py_TYPE(instance)));
    return reinterpret_cast<PyObject**>(reinterpret_cast<char*>(instance) + offset);
}

// How many attributes the instances of a class number alike, or -1 where nothing is known. They
// never become fewer.
inline Py_ssize_t numbered_attributes(const PyTypeObject* type) {
    const DictKeys* names = numbered_names(type);
    return names != nullptr ? names->dk_nentries : -1;
}

// The number of an attribute, or -1.
inline Py_ssize_t attribute_number(const PyTypeObject* type, PyObject* name) {
    const DictKeys* keys = is_exact_str(name) ? numbered_names(type) : nullptr;
    if (keys == nullptr) {
        return -1;
    }
    const Table names = table_of_keys(*keys);
    for (std::size_t number = 0; number < names.size(); ++number) {
        if (same_text(names.key(number), name)) {
            return static_cast<Py_ssize_t>(number);
        }
    }
    return -1;
}

// The offset of the slot (`__slots__`) that a class's attribute describes, or -1.
inline Py_ssize_t slot_offset(PyTypeObject* type, PyObject* in_class) {
    if (in_class == nullptr || Py_TYPE(in_class) != &PyMemberDescr_Type ||
        PyType_IsSubtype(type, PyDescr_TYPE(in_class)) == 0) {
        return -1;
    }
    const PyMemberDef* member = reinterpret_cast<PyMemberDescrObject*>(in_class)->d_member;
    return member->type == Py_T_OBJECT_EX && member->flags == 0 ? member->offset : -1;
}

// The place of the item that an attribute of a named tuple's class describes, or -1. In
// Modules/_collectionsmodule.c, _tuplegetterobject, the place follows the object's head.
inline Py_ssize_t tuple_place([[maybe_unused]] PyTypeObject* type,
                              [[maybe_unused]] PyObject* in_class) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT
    if (in_class != nullptr && PyType_FastSubclass(type, Py_TPFLAGS_TUPLE_SUBCLASS) != 0) {
        const PyTypeObject* getter = Py_TYPE(in_class);
        if ((getter->tp_flags & Py_TPFLAGS_IMMUTABLETYPE) != 0 &&
            std::string_view(getter->tp_name).ends_with("collections._tuplegetter")) {
            return *reinterpret_cast<Py_ssize_t*>(in_class + 1);
        }
    }
#endif
    return -1;
}

// Reads instances of all kinds in place, and raises SystemError where that gives anything but what
// ordinary look-ups give. For builds that check themselves.
void check_layout();

}  // namespace search_analytics
