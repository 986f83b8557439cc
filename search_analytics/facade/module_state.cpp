// What one module object keeps for its code.
#include "facade/module_state.h"

namespace search_analytics {

namespace {

// What the body kept under a key, or nothing: it may have failed before.
std::optional<Ref> kept_by_body(const ModuleState& state, Arg key) {
    return state.bound == nullptr ? std::nullopt : dict_entry(state.bound, key);
}

// Whether a function of Python code runs the code that it ran when the body ended. All else does.
bool has_kept_code(const ModuleState& state, Arg member) {
    PyObject* code = code_of_function(member);
    return code == nullptr || is_bound(state, member, code);
}

// Whether a class's own members are those that were kept. `may_add` decides on names that are new.
template <typename MayAdd>
bool has_kept_members(const ModuleState& state, Arg type, MayAdd&& may_add) {
    const auto kept = kept_by_body(state, type);
    if (!kept || !is_exact_dict(*kept)) {
        return false;
    }
    Py_ssize_t same = 0;
    bool is_foreign = false;
    for_each_until(items_of_dict(members_of_class(type)), [&](PyObject* entry) {
        const auto [name, member] = as_pair(entry);
        const auto original = dict_entry(*kept, name);
        if (original) {
            same += original->get() == member.get() && has_kept_code(state, member) ? 1 : 0;
        } else {
            is_foreign = !may_add(name.get());
        }
        return !is_foreign;
    });
    return !is_foreign && same == PyDict_GET_SIZE(kept->get());
}

}  // namespace

std::optional<Ref> builtin(const ModuleState& state, Arg name) {
    if (is_exact_dict(state.builtins)) {
        return dict_entry(state.builtins, name);
    }
    PyObject* value = PyObject_GetItem(state.builtins, name);
    if (value == nullptr && error_is(PyExc_KeyError)) {
        forget_error();
        return std::nullopt;
    }
    return Ref::steal(value);
}

Ref load_global(const ModuleState& state, Arg name) {
    if (auto value = dict_entry(state.globals(), name)) {
        return std::move(*value);
    }
    if (auto value = builtin(state, name)) {
        return std::move(*value);
    }
    raise_name_error(name);
}

void bind_global(const ModuleState& state, Arg name, Arg value) {
    check(PyDict_SetItem(state.globals(), name, value));
}

bool is_bound(const ModuleState& state, PyObject* name, Arg object) {
    const auto bound = kept_by_body(state, name);
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
    // A module that the collector has taken apart has no namespace.
    PyObject* members = PyModule_GetDict(module->get());
    const auto now = members == nullptr ? std::nullopt : dict_entry(members, member);
    return now && is_bound(state, member, *now);
}

bool is_as_made(const ModuleState& state, Arg type) {
    if (!compat::kHasLock) {
        return false;  // Another thread may give the class other bases while they are walked.
    }
    PyObject* order = reinterpret_cast<PyTypeObject*>(type.get())->tp_mro;
    if (order == nullptr) {  // the collector has taken the class apart
        return false;
    }
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
