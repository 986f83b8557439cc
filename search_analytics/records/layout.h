// Where CPython keeps the attributes of an instance and the entries of a dictionary: the one file
// that a new version of CPython has to be taught in.
//
// Instances of a class whose attributes have not been asked for as a dictionary hold them in an
// array that all instances number alike; a dictionary holds its entries in a table. Reading them in
// place is what the interpreter's own specialised instructions do; there is no call for it. The
// structures here are named as CPython names them. Whoever reads an attribute by them has checked
// its class against an ordinary look-up first (Attribute); on versions that are not known nothing
// is found here, and everything is read by ordinary look-ups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "python/containers.h"

#if PY_VERSION_HEX >= 0x030B0000 && PY_VERSION_HEX < 0x030E0000 && !defined(Py_GIL_DISABLED) && \
    SIZEOF_VOID_P == 8
#define SEARCH_ANALYTICS_KNOWS_LAYOUT 1
#else
#define SEARCH_ANALYTICS_KNOWS_LAYOUT 0
#endif

namespace search_analytics {

inline constexpr bool kKnowsLayout = SEARCH_ANALYTICS_KNOWS_LAYOUT == 1;

// Internal/pycore_dict.h: the kinds of tables, an entry of a table all of whose keys are strings,
// and the table. The table of a class, without values, names the attributes that its instances
// number alike.
// NOLINTBEGIN(readability-identifier-naming): CPython's names
enum DictKeysKind : std::uint8_t { DICT_KEYS_GENERAL, DICT_KEYS_UNICODE, DICT_KEYS_SPLIT };

struct DictUnicodeEntry {
    PyObject* me_key;
    PyObject* me_value;
};

struct DictKeys {
    Py_ssize_t dk_refcnt;
    std::uint8_t dk_log2_size;
    std::uint8_t dk_log2_index_bytes;
    std::uint8_t dk_kind;
    std::uint32_t dk_version;
    Py_ssize_t dk_usable;
    Py_ssize_t dk_nentries;
    char dk_indices[1];
};

// From 3.13 on: what stands in front of the array of attributes.
struct DictValuesHead {
    std::uint8_t capacity;
    std::uint8_t size;
    std::uint8_t embedded;
    std::uint8_t valid;
};
// NOLINTEND(readability-identifier-naming)

// The entries of a table, in the order in which they were added. REQUIRES: its kind is not
// DICT_KEYS_GENERAL, whose entries hold a hash besides.
inline std::span<const DictUnicodeEntry> entries_of(const DictKeys& keys) {
    assert(keys.dk_kind != DICT_KEYS_GENERAL);
    const char* end_of_indices = keys.dk_indices + (std::size_t{1} << keys.dk_log2_index_bytes);
    return {reinterpret_cast<const DictUnicodeEntry*>(end_of_indices),
            static_cast<std::size_t>(keys.dk_nentries)};
}

// Where an entry of a table stands if it is a small one, for hints: reads nothing of the table.
inline const void* usual_entry(const DictKeys& keys, std::size_t place) {
    constexpr std::size_t kUsualIndices = 8;
    return keys.dk_indices + kUsualIndices + place * sizeof(DictUnicodeEntry);
}

// The table of a dictionary, whatever its kind. REQUIRES: an exact dictionary.
inline const DictKeys* keys_of(PyObject* dict) {
    assert(is_exact_dict(dict));
    return reinterpret_cast<const DictKeys*>(reinterpret_cast<PyDictObject*>(dict)->ma_keys);
}

// The table of an exact dictionary all of whose keys are strings, with its values; or null, for any
// other object and wherever nothing is known.
inline const DictKeys* str_keys_of(PyObject* object) {
    if constexpr (kKnowsLayout) {
        if (PyDict_CheckExact(object)) {
            const DictKeys* keys = keys_of(object);
            if (reinterpret_cast<PyDictObject*>(object)->ma_values == nullptr &&
                keys->dk_kind == DICT_KEYS_UNICODE) {
                return keys;
            }
        }
    }
    return nullptr;
}

// The hash that a string has at hand, or -1 where it has not been asked for. REQUIRES: an exact
// str.
inline Py_hash_t known_hash(PyObject* text) {
    assert(PyUnicode_CheckExact(text));
    return compat::load(reinterpret_cast<PyASCIIObject*>(text)->hash);
}

// The hash of an exact string, which a string remembers.
inline Py_hash_t text_hash(PyObject* text) {
    const Py_hash_t known = known_hash(text);
    if (known != -1) [[likely]] {
        return known;
    }
    const Py_hash_t hash = PyObject_Hash(text);
    if (hash == -1) {
        throw ErrorSet();
    }
    return hash;
}

// The items of an exact list, in place. REQUIRES: a build with the interpreter's lock.
inline PyObject* const* items_in_place(PyObject* list) {
    assert(compat::kHasLock && is_exact_list(list));
    return reinterpret_cast<PyListObject*>(list)->ob_item;
}

// The names of the attributes that the instances of a class number alike, in the order of their
// numbers; or null.
inline const DictKeys* numbered_names(const PyTypeObject* type) {
#if SEARCH_ANALYTICS_KNOWS_LAYOUT
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
#else
    static_cast<void>(type);
#endif
    return nullptr;
}

// The array of an instance's attributes, or null where it has a dictionary instead. A null entry is
// an attribute that is not set. REQUIRES: numbered_names() knows the instance's class.
inline PyObject** instance_values([[maybe_unused]] PyObject* instance) {
    assert(numbered_names(Py_TYPE(instance)) != nullptr);
#if !SEARCH_ANALYTICS_KNOWS_LAYOUT
    return nullptr;
#elif PY_VERSION_HEX >= 0x030D0000
    // Internal/pycore_object.h, _PyObject_InlineValues: right after the object's head.
    constexpr std::size_t kHeadSize = 8;
    auto* head = reinterpret_cast<DictValuesHead*>(instance + 1);
    char* values = reinterpret_cast<char*>(head) + kHeadSize;
    return head->valid != 0 ? reinterpret_cast<PyObject**>(values) : nullptr;
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

// How many attributes the instances of a class number alike, or -1 where nothing is known. They
// never become fewer.
inline Py_ssize_t numbered_attributes(const PyTypeObject* type) {
    const DictKeys* names = numbered_names(type);
    return names != nullptr ? names->dk_nentries : -1;
}

// The number of an attribute, or -1.
inline Py_ssize_t attribute_number(const PyTypeObject* type, PyObject* name) {
    const DictKeys* names = is_exact_str(name) ? numbered_names(type) : nullptr;
    if (names == nullptr) {
        return -1;
    }
    const auto entries = entries_of(*names);
    const auto found = std::ranges::find_if(
        entries, [&](const DictUnicodeEntry& entry) { return same_text(entry.me_key, name); });
    return found != entries.end() ? found - entries.begin() : -1;
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

// Reads an instance with attributes in an array, an instance with slots and a dictionary in place,
// and raises SystemError where that gives anything but what ordinary look-ups give. For builds that
// check themselves.
void check_layout();

}  // namespace search_analytics
