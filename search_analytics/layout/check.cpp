// Whether CPython's structures are what the layout says: at compile time where the interpreter's
// own header can be read from C++ (3.12's and those from 3.14 on cannot), and by trying it out.
// Only in builds that check themselves.
#include "layout/instance.h"

#if !defined(NDEBUG) && SEARCH_ANALYTICS_KNOWS_LAYOUT
#if (PY_VERSION_HEX >= 0x030B0000 && PY_VERSION_HEX < 0x030C0000) || \
    (PY_VERSION_HEX >= 0x030D0000 && PY_VERSION_HEX < 0x030E0000)
#define Py_BUILD_CORE 1
#include <internal/pycore_dict.h>
#define SEARCH_ANALYTICS_SEES_STRUCTURES 1
#endif
#endif

namespace search_analytics {

#ifdef SEARCH_ANALYTICS_SEES_STRUCTURES
using Theirs = _dictkeysobject;
static_assert(offsetof(DictKeys, dk_log2_size) == offsetof(Theirs, dk_log2_size));
static_assert(offsetof(DictKeys, dk_log2_index_bytes) == offsetof(Theirs, dk_log2_index_bytes));
static_assert(offsetof(DictKeys, dk_kind) == offsetof(Theirs, dk_kind));
static_assert(offsetof(DictKeys, dk_nentries) == offsetof(Theirs, dk_nentries));
static_assert(offsetof(DictKeys, dk_indices) == offsetof(Theirs, dk_indices));
static_assert(sizeof(PyDictUnicodeEntry) == 2 * sizeof(PyObject*));
static_assert(offsetof(PyDictUnicodeEntry, me_value) == sizeof(PyObject*));
static_assert(sizeof(PyDictKeyEntry) == 3 * sizeof(PyObject*));
static_assert(offsetof(PyDictKeyEntry, me_key) == sizeof(PyObject*));
#if PY_VERSION_HEX >= 0x030D0000
static_assert(offsetof(DictValuesHead, valid) == offsetof(_dictvalues, valid));
static_assert(offsetof(_dictvalues, values) == 8);
#endif
#endif

#ifndef NDEBUG
namespace {

void require(bool holds, const char* what) {
    if (!holds) {
        raise(PyExc_SystemError, format("CPython keeps %s elsewhere than expected", what));
    }
}

// What the checks read: two attributes of each instance, or entries of each dictionary.
struct Names {
    Ref first = interned_str("first");
    Ref second = interned_str("second");
};

// An instance of a new class that has the members of `body`.
Ref instance_of_class(const Ref& body, const Names& names) {
    const Ref bases = Ref::steal(PyTuple_New(0));
    const Ref type =
        call(reinterpret_cast<PyObject*>(&PyType_Type), new_str("Checked"), bases, body);
    Ref instance = call(type);
    set_attribute(instance, names.first, new_str("one"));
    set_attribute(instance, names.second, new_str("two"));
    return instance;
}

bool shows(const Table& table, std::size_t place, PyObject* key, PyObject* value) {
    return place < table.size() && table.key(place) == key && table.value(place) == value;
}

void check_tables(const Names& names) {
    const Ref dict = new_dict();
    set_item(dict, names.first, names.second);
    set_item(dict, names.second, names.first);
    require(shows(table_of(dict.get()), 1, names.second.get(), names.first.get()),
            "the entries of dictionaries");
    const Ref key = new_int(5);
    set_item(dict, key, names.second);
    const Table general = table_of(dict.get());
    require(shows(general, 2, key.get(), names.second.get()) && !general.has_only_text() &&
                general.hash(2) == 5,
            "the entries of dictionaries with any keys");
}

// An instance with its attributes in an array, and once its dictionary was asked for.
void check_attributes(const Names& names) {
    const Ref instance = instance_of_class(new_dict(), names);
    PyTypeObject* type = Py_TYPE(instance.get());
    const Ref second = attribute(instance, names.second);
    if (numbered_names(type) != nullptr) {
        PyObject** values = instance_values(instance.get());
        require(attribute_number(type, names.second.get()) == 1 && numbered_attributes(type) == 2 &&
                    values != nullptr && values[1] == second.get(),
                "attributes");
    }
    const Ref dict = attribute(instance, interned_str("__dict__"));
    PyObject* found = *dictionary_place(instance.get(), dictionary_offset(type));
    require(found == dict.get() && shows(table_of(found), 1, names.second.get(), second.get()),
            "the dictionaries of instances");
}

void check_slots(const Names& names) {
    const Ref body = new_dict();
    set_item(body, new_str("__slots__"), tuple_of(names.first, names.second));
    const Ref instance = instance_of_class(body, names);
    const Ref slot = attribute(type_of(instance), names.second);
    const Py_ssize_t offset = slot_offset(Py_TYPE(instance.get()), slot.get());
    require(offset > 0 &&
                *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(instance.get()) + offset) ==
                    attribute(instance, names.second).get(),
            "slots");
}

void check_named_tuples(const Names& names) {
    const Ref make =
        attribute(Ref::steal(PyImport_ImportModule("collections")), interned_str("namedtuple"));
    const Ref type = call(make, new_str("Checked"), tuple_of(names.first, names.second));
    const Ref getter = attribute(type, names.second);
    require(tuple_place(reinterpret_cast<PyTypeObject*>(type.get()), getter.get()) == 1,
            "the items of named tuples");
}

}  // namespace

void check_layout() {
    if constexpr (!kKnowsLayout) {
        PySys_WriteStderr("kestrune.search_analytics reads no record in place on this CPython\n");
        return;
    }
    const Names names;
    if (PyUnicode_CHECK_INTERNED(names.first.get()) == 0 ||
        PyUnicode_CHECK_INTERNED(names.second.get()) == 0) {
        throw std::bad_alloc();  // classes keep others, and the interpreter sets no error
    }
    check_tables(names);
    check_attributes(names);
    check_slots(names);
    check_named_tuples(names);
}
#else
void check_layout() {}
#endif

}  // namespace search_analytics
