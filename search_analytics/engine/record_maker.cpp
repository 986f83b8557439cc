// Making result records.
#include "engine/record_maker.h"

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// Whether making an instance comes down to setting its fields: the class that the module made,
// with the constructor that it was made with, and nothing in the way of an assignment.
bool is_plain_record_class(const ModuleState& state, PyObject* class_name, PyObject* record) {
    if (!is_original(state, class_name) || !PyType_Check(record)) {
        return false;
    }
    const auto* type = reinterpret_cast<PyTypeObject*>(record);
    const auto constructor = dict_entry(state.bound, record);
    return constructor && type->tp_new == PyBaseObject_Type.tp_new &&
           type->tp_setattro == PyObject_GenericSetAttr &&
           attribute(record, state.names.dunder_init).get() == constructor->get();
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
