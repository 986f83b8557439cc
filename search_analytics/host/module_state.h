// What one module object keeps for its code: the names, its own types, and the objects that the
// module body bound, by which a caller's replacement is recognised.
#pragma once

#include "host/names.h"
#include "host/object.h"
#include "host/python.h"
#include "host/ref.h"

namespace search_analytics::host {

struct ModuleState {
    Names names;
    PyObject* function_type = nullptr;
    PyObject* generator_type = nullptr;
    // The module's namespace as its body left it, and the same of the engine class.
    PyObject* bound = nullptr;
    PyObject* bound_methods = nullptr;
    // Import statements by their text, compiled.
    PyObject* statements = nullptr;
    // The module itself, borrowed: it owns this state.
    PyObject* module = nullptr;

    // Calls `each` with every owned object that can stand in a reference cycle: the one list of
    // them, for the collector's traversal and for clearing.
    template <typename Each>
    int visit(Each&& each) {
        for (PyObject** field :
             {&function_type, &generator_type, &bound, &bound_methods, &statements}) {
            if (const int stop = each(*field); stop != 0) {
                return stop;
            }
        }
        return 0;
    }

    // The module's namespace: what its functions see as their globals.
    PyObject* globals() const { return PyModule_GetDict(module); }
};

// The state of a module made from our definition. REQUIRES: `module` is one.
inline ModuleState& state_of(PyObject* module) {
    return *static_cast<ModuleState*>(PyModule_GetState(module));
}

// The value of a global name as a function of the module sees it: the module's namespace first,
// then the builtins, then NameError.
Ref load_global(const ModuleState& state, PyObject* name);

// Binds a global name, as an assignment at module level does.
void bind_global(const ModuleState& state, PyObject* name, PyObject* value);

// Whether the global `name` is still the object that the module body bound.
bool is_original(const ModuleState& state, PyObject* name);

// Whether `object` is what the module body bound, or found, under `name`.
bool is_bound(const ModuleState& state, PyObject* name, PyObject* object);

// Whether `name` looked up on `engine` is the engine class's own method, so that no subclass,
// instance or patch stands in its way. Looks the attribute up as a call would.
bool is_original_method(const ModuleState& state, PyObject* engine, PyObject* name);

// Calls the global `name` with the arguments given, whatever stands there now.
template <typename... Arguments>
Ref call_global(const ModuleState& state, PyObject* name, Arguments... arguments) {
    const Ref function = load_global(state, name);
    return call(function.get(), arguments...);
}

// list.sort(key=key)
void sort_by(const ModuleState& state, const Ref& list, PyObject* key);

}  // namespace search_analytics::host
