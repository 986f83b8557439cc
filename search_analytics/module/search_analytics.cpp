// The extension module's entry point and slots.
#include "host/compat.h"
#include "host/containers.h"
#include "host/function.h"
#include "host/generator.h"
#include "host/shutdown.h"
#include "host/statement.h"
#include "module/body.h"

namespace search_analytics {

using namespace host;

namespace {

int execute(PyObject* module) {
    return at_boundary(-1, [&] {
        ModuleState& state = state_of(module);
        state.module = module;
        state.names.create();
        state.statements = new_dict().release();
        create_function_type(state);
        create_generator_type(state);
        run_body(state);
        watch_for_interpreter_end(state);
        return 0;
    });
}

int traverse(PyObject* module, visitproc visit, void* arg) noexcept {
    return state_of(module).visit([&](PyObject*& field) {
        Py_VISIT(field);
        return 0;
    });
}

int clear(PyObject* module) noexcept {
    return state_of(module).visit([](PyObject*& field) {
        Py_CLEAR(field);
        return 0;
    });
}

void release(void* module) noexcept {
    auto* object = static_cast<PyObject*>(module);
    clear(object);
    state_of(object).names.destroy();
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(execute)},
    SEARCH_ANALYTICS_INTERPRETER_SLOTS{0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "search_analytics",
    "Search analytics subcomponent \xE2\x80\x94 aggregated statistics, suggestions, patterns.",
    sizeof(ModuleState),
    nullptr,
    slots,
    traverse,
    clear,
    release,
};

}  // namespace

}  // namespace search_analytics

PyMODINIT_FUNC PyInit_search_analytics() { return PyModuleDef_Init(&search_analytics::definition); }
