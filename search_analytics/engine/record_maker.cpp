// Making result records.
#include "engine/record_maker.h"

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// Whether a class holds what it was made with, and nothing new but names of the interpreter's own
// kind (pickling leaves one behind), which are looked at where they count.
bool is_unchanged(const PyTypeObject* type, const Ref& made_with) {
    Py_ssize_t same = 0;
    bool is_foreign = false;
    const Ref entries = Ref::steal(PyDict_Items(type->tp_dict));
    for_each_until(entries.get(), [&](PyObject* entry) {
        PyObject* name = PyTuple_GET_ITEM(entry, 0);
        const auto original = dict_entry(made_with.get(), name);
        if (original) {
            same += original->get() == PyTuple_GET_ITEM(entry, 1) ? 1 : 0;
        } else {
            is_foreign = PyUnicode_Tailmatch(name, unicode("__").get(), 0, 2, -1) != 1;
        }
        return !is_foreign;
    });
    return !is_foreign && same == PyDict_GET_SIZE(made_with.get());
}

// Whether making an instance comes down to setting its fields: the class that the module made, as
// it was made, and nothing in the way of setting and reading a field.
bool is_plain_record_class(const ModuleState& state, PyObject* class_name, PyObject* record) {
    if (!is_original(state, class_name) || !PyType_Check(record)) {
        return false;
    }
    const auto* type = reinterpret_cast<PyTypeObject*>(record);
    const auto made_with = dict_entry(state.bound, record);
    return made_with && type->tp_new == PyBaseObject_Type.tp_new &&
           type->tp_setattro == PyObject_GenericSetAttr &&
           type->tp_getattro == PyObject_GenericGetAttr && is_unchanged(type, *made_with);
}

}  // namespace

RecordMaker::RecordMaker(const ModuleState& state, PyObject* class_name)
    : class_(load_global(state, class_name)),
      no_arguments_(Ref::steal(PyTuple_New(0))),
      is_original_(is_plain_record_class(state, class_name, class_.get())) {}

Ref RecordMaker::make(std::initializer_list<Field> fields) const {
    if (!is_original_) {
        Keywords arguments(fields.size());
        for (const Field& field : fields) {
            arguments.add(field.name, field.value);
        }
        return arguments.call(class_.get());
    }
    auto* type = reinterpret_cast<PyTypeObject*>(class_.get());
    // object.__new__ prepares the compact form of an instance's attributes, which a bare
    // allocation does not.
    Ref record = Ref::steal(type->tp_new(type, no_arguments_.get(), nullptr));
    for (const Field& field : fields) {
        set_attribute(record.get(), field.name, field.value);
    }
    return record;
}

}  // namespace search_analytics
