// What one module object keeps for its code.
#include "facade/module_state.h"

namespace search_analytics {

namespace {

// Whether a class's own members are those that were kept. `may_add` decides on names that are new.
template <typename MayAdd>
bool has_kept_members(const ModuleState& state, Arg type, MayAdd&& may_add) {
    const auto kept = dict_entry(state.bound, type);
    if (!kept) {
        return false;
    }
    Py_ssize_t same = 0;
    bool is_foreign = false;
    for_each_until(items_of_dict(members_of_class(type)), [&](PyObject* entry) {
        const auto original = dict_entry(*kept, tuple_item(entry, 0));
        if (original) {
            same += original->get() == tuple_item(entry, 1) ? 1 : 0;
        } else {
            is_foreign = !may_add(tuple_item(entry, 0));
        }
        return !is_foreign;
    });
    return !is_foreign && same == PyDict_GET_SIZE(kept->get());
}

}  // namespace

Ref load_global(const ModuleState& state, Arg name) {
    if (auto value = dict_entry(state.globals(), name)) {
        return std::move(*value);
    }
    if (auto value = builtin(name)) {
        return std::move(*value);
    }
    raise_name_error(name);
}

void bind_global(const ModuleState& state, Arg name, Arg value) {
    check(PyDict_SetItem(state.globals(), name, value));
}

bool is_bound(const ModuleState& state, PyObject* name, Arg object) {
    if (state.bound == nullptr) {
        return false;
    }
    const auto bound = dict_entry(state.bound, name);
    return bound && bound->get() == object;
}

bool is_original(const ModuleState& state, PyObject* name) {
    const auto now = dict_entry(state.globals(), name);
    return now && is_bound(state, name, *now);
}

void WatchedGlobal::ask() {
    is_original_ = search_analytics::is_original(state_, name_);
    version_ = compat::dict_version(globals_);
}

bool is_original_member(const ModuleState& state, PyObject* module_name, PyObject* member) {
    const auto module = dict_entry(state.globals(), module_name);
    if (!module || !PyModule_CheckExact(module->get())) {
        return false;
    }
    const auto now = dict_entry(PyModule_GetDict(module->get()), member);
    return now && is_bound(state, member, *now);
}

bool is_as_made(const ModuleState& state, Arg type) {
    PyObject* order = reinterpret_cast<PyTypeObject*>(type.get())->tp_mro;
    for (Py_ssize_t i = 0; i < tuple_size(order); ++i) {
        PyObject* base = tuple_item(order, i);
        if (is_python_class(base) &&
            !has_kept_members(state, base, [](PyObject*) { return false; })) {
            return false;
        }
    }
    return true;
}

bool is_record_class_as_made(const ModuleState& state, Arg type) {
    const Ref dunder = new_str("__");
    return has_kept_members(state, type, [&](PyObject* name) {
        return is_str(name) && check_size(PyUnicode_Tailmatch(name, dunder.get(), 0, 2, -1)) == 1;
    });
}

bool is_original_function(const ModuleState& state, PyObject* name, Arg function) {
    if (state.bound_methods == nullptr) {
        return false;
    }
    const auto original = dict_entry(state.bound_methods, name);
    return original && original->get() == function.get();
}

bool is_original_method(const ModuleState& state, Arg engine, PyObject* name, Arg method) {
    return method != nullptr && PyMethod_Check(method.get()) &&
           PyMethod_GET_SELF(method.get()) == engine.get() &&
           is_original_function(state, name, PyMethod_GET_FUNCTION(method.get()));
}

void sort_by(const ModuleState& state, const Ref& list, Arg key) {
    Keywords arguments(1);
    arguments.add(state.words.key, key.share());
    arguments.call(attribute(list, state.words.sort));
}

}  // namespace search_analytics
