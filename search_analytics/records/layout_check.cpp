// Whether CPython's structures are what the layout says: at compile time where the interpreter's
// own header can be read from C++ (3.12's cannot), and by trying it out. Only in builds that check
// themselves.
#include "records/layout.h"

#if !defined(NDEBUG) && SEARCH_ANALYTICS_KNOWS_LAYOUT
#if PY_VERSION_HEX < 0x030C0000 || (PY_VERSION_HEX >= 0x030D0000 && PY_VERSION_HEX < 0x030E0000)
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
static_assert(sizeof(DictUnicodeEntry) == sizeof(PyDictUnicodeEntry));
static_assert(offsetof(DictUnicodeEntry, me_value) == offsetof(PyDictUnicodeEntry, me_value));
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

// An instance, with two attributes, of a new class that has the members of `body`.
Ref instance_of_class(const Ref& body, const Ref& first, const Ref& second) {
    const Ref bases = Ref::steal(PyTuple_New(0));
    const Ref type =
        call(reinterpret_cast<PyObject*>(&PyType_Type), new_str("Checked"), bases, body);
    Ref instance = call(type);
    set_attribute(instance, first, new_str("one"));
    set_attribute(instance, second, new_str("two"));
    return instance;
}

}  // namespace

void check_layout() {
    if (!kKnowsLayout) {
        return;
    }
    const Ref first = interned_str("first");
    const Ref second = interned_str("second");

    const Ref table = new_dict();
    set_item(table, first, second);
    set_item(table, second, first);
    const DictKeys* keys = str_keys_of(table.get());
    require(keys != nullptr && keys->dk_nentries == 2 &&
                entries_of(*keys)[1].me_key == second.get() &&
                entries_of(*keys)[1].me_value == first.get(),
            "the entries of dictionaries");

    const Ref array = instance_of_class(new_dict(), first, second);
    const Py_ssize_t number = attribute_number(Py_TYPE(array.get()), second.get());
    require(number == 1 && numbered_attributes(Py_TYPE(array.get())) == 2 &&
                instance_values(array.get()) != nullptr &&
                instance_values(array.get())[number] == attribute(array, second).get(),
            "attributes");

    const Ref body = new_dict();
    set_item(body, new_str("__slots__"), tuple_of(first, second));
    const Ref slots = instance_of_class(body, first, second);
    const Ref slot = attribute(type_of(slots), second);
    const Py_ssize_t offset = slot_offset(Py_TYPE(slots.get()), slot.get());
    require(offset > 0 && *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(slots.get()) +
                                                        offset) == attribute(slots, second).get(),
            "slots");
}
#else
void check_layout() {}
#endif

}  // namespace search_analytics
