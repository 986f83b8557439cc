// What one module object keeps for its code.
#include "host/module_state.h"

#include "host/containers.h"

namespace search_analytics::host {

Ref load_global(const ModuleState& state, PyObject* name) {
    if (auto value = dict_entry(state.globals(), name)) {
        return std::move(*value);
    }
    if (auto value = dict_entry(PyEval_GetBuiltins(), name)) {
        return std::move(*value);
    }
    raise(PyExc_NameError, format("name '%U' is not defined", name));
}

void bind_global(const ModuleState& state, PyObject* name, PyObject* value) {
    check(PyDict_SetItem(state.globals(), name, value));
}

bool is_bound(const ModuleState& state, PyObject* name, PyObject* object) {
    if (state.bound == nullptr) {
        return false;
    }
    const auto bound = dict_entry(state.bound, name);
    return bound && bound->get() == object;
}

bool is_original(const ModuleState& state, PyObject* name) {
    const auto now = dict_entry(state.globals(), name);
    return now && is_bound(state, name, now->get());
}

bool is_original_method(const ModuleState& state, PyObject* engine, PyObject* name) {
    if (state.bound_methods == nullptr) {
        return false;
    }
    const auto method = optional_attribute(engine, name);
    const auto original = dict_entry(state.bound_methods, name);
    return method && original && PyMethod_Check(method->get()) &&
           PyMethod_GET_SELF(method->get()) == engine &&
           PyMethod_GET_FUNCTION(method->get()) == original->get();
}

void sort_by(const ModuleState& state, const Ref& list, PyObject* key) {
    Keywords arguments(1);
    arguments.add(state.names.key, key);
    arguments.call(attribute(list.get(), state.names.sort).get());
}

}  // namespace search_analytics::host
