// What one module object keeps for its code: the names, its own types, and the objects that the
// module body bound, by which a caller's replacement is recognised.
//
// All of it is kept until the state itself is gone. Functions can still be called while the
// collector takes their module apart, and own it; what stands in a cycle is a type or a dictionary,
// which the collector empties by itself.
#pragma once

#include <array>

#include "facade/words.h"
#include "python/iteration.h"

namespace search_analytics {

// The names that the analysis looks up. Nothing here knows one of them.
struct Names;

// Compiled statements by their texts. No container of Python's: whoever found one could put
// anything in the place of a statement that is going to run.
struct CompiledStatements {
    struct Statement {
        const char* text;
        PyObject* code;
    };

    // More than the module has.
    std::array<Statement, 32> list;
    std::size_t count;

    void destroy() {
        for (Statement& statement : list) {
            Py_CLEAR(statement.code);
        }
    }
};

struct ModuleState {
    Words words;
    const Names* vocabulary = nullptr;
    PyObject* function_type = nullptr;
    PyObject* generator_type = nullptr;
    // The module's namespace as its body left it, and the same of the engine class.
    PyObject* bound = nullptr;
    PyObject* bound_methods = nullptr;
    // The statements that have run, compiled.
    CompiledStatements statements;
    // What stands for the functions in profiles, by their full names; null until it is needed.
    PyObject* stand_ins = nullptr;
    // What is built in for its functions: fixed when the body runs, as a `def` fixes it.
    PyObject* builtins = nullptr;
    // The module itself, borrowed: it owns this state.
    PyObject* module = nullptr;
    // The module's namespace, which its functions see as their globals.
    PyObject* module_dict = nullptr;

    const Names& names() const { return *vocabulary; }

    // Calls `each` with every owned object that can stand in a reference cycle: the one list of
    // them, for the collector's traversal and for the end.
    template <typename Each>
    int visit(Each&& each) {
        for (PyObject** field : {&function_type, &generator_type, &bound, &bound_methods,
                                 &stand_ins, &builtins, &module_dict}) {
            if (const int stop = each(*field); stop != 0) {
                return stop;
            }
        }
        return 0;
    }

    PyObject* globals() const { return module_dict; }
};

// The state of a module made from our definition. REQUIRES: `module` is one.
inline ModuleState& state_of(PyObject* module) {
    assert(PyModule_Check(module) && PyModule_GetState(module) != nullptr);
    return *static_cast<ModuleState*>(PyModule_GetState(module));
}

// The value of a global name as a function of the module sees it: the module's namespace first,
// then the builtins, then NameError.
Ref load_global(const ModuleState& state, Arg name);

// What is built in under a name for the module's functions, or nothing: found as they find it, in
// a dictionary or in any other mapping that stands for one.
std::optional<Ref> builtin(const ModuleState& state, Arg name);

// Binds a global name, as an assignment at module level does.
void bind_global(const ModuleState& state, Arg name, Arg value);

// Whether the global `name` is still the object that the module body bound.
bool is_original(const ModuleState& state, PyObject* name);

// Whether `object` is what the module body bound, or found, under `name`.
bool is_bound(const ModuleState& state, PyObject* name, Arg object);

// Whether a global is what the module body bound, for whoever asks again and again: an answer holds
// until the module's namespace changes.
class WatchedGlobal {
   public:
    WatchedGlobal(const ModuleState& state, PyObject* name)
        : state_(state), globals_(state.globals()), name_(name) {}

    PyObject* name() const { return name_; }

    bool is_original() {
        if (compat::dict_version(globals_) != version_ || version_ == 0) [[unlikely]] {
            ask();
        }
        return is_original_;
    }

   private:
    void ask();

    const ModuleState& state_;
    PyObject* globals_;
    PyObject* name_;
    std::uint64_t version_ = 0;
    bool is_original_ = false;
};

// Whether `member` of the module under the global `module_name` is what the body found there.
// Runs no code.
bool is_original_member(const ModuleState& state, PyObject* module_name, PyObject* member);

// Whether a class, and every class of Python code that it derives from, holds what it held when the
// module body ended, and nothing more; false where the body kept nothing of one of them.
bool is_as_made(const ModuleState& state, Arg type);

// Whether a class of the module holds what it was made with, and nothing new but names of the
// interpreter's own kind (pickling leaves one behind), which are looked at where they count.
bool is_record_class_as_made(const ModuleState& state, Arg type);

// Whether `function` is what the module's body put into the engine class under `name`.
bool is_original_function(const ModuleState& state, PyObject* name, Arg function);

// Whether `method`, which was looked up on `engine` under `name`, is the engine class's own; an
// empty one is not.
bool is_original_method(const ModuleState& state, Arg engine, PyObject* name, Arg method);

// Calls the global `name` with the arguments given, whatever stands there now.
template <typename... Arguments>
Ref call_global(const ModuleState& state, Arg name, const Arguments&... arguments) {
    const Ref function = load_global(state, name);
    return call(function, arguments...);
}

// list.sort(key=key)
void sort_by(const ModuleState& state, const Ref& list, Arg key);

}  // namespace search_analytics
