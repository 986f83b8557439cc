// The extension module's entry point and slots.
#include "facade/function.h"
#include "facade/generator.h"
#include "facade/shutdown.h"
#include "layout/instance.h"
#include "module/steps.h"
#include "names/names.h"
#include "records/walk_counts.h"
#include "tables/slots.h"

namespace search_analytics {

namespace {

// All that a module object keeps. What is common comes first, where state_of() finds it.
struct WholeState {
    ModuleState common;
    Names names;
};

WholeState& whole_state_of(PyObject* module) {
    return *static_cast<WholeState*>(PyModule_GetState(module));
}

// How many records were peeked at and how many were asked, since the process began.
PyObject* report_walks(PyObject*, PyObject*) {
    return Py_BuildValue("nn", walk_counts.peeked.load(), walk_counts.asked.load());
}

// How many slots of tables were looked at.
PyObject* report_steps(PyObject*, PyObject*) {
    return PyLong_FromSsize_t(step_counts.steps.load());
}

PyMethodDef reports[] = {
    {"walk_counts", report_walks, METH_NOARGS, nullptr},
    {"table_steps", report_steps, METH_NOARGS, nullptr},
};

// Tests of a build with assertions find the counts on the type of the module's functions.
void show_counts(const ModuleState& state) {
    if (kCountsWalks) {
        for (PyMethodDef& report : reports) {
            set_attribute(state.function_type, interned_str(report.ml_name),
                          Ref::steal(PyCFunction_New(&report, nullptr)));
        }
    }
}

int execute(PyObject* module) {
    return at_boundary(-1, [&] {
        check_layout();
        WholeState& whole = whole_state_of(module);
        ModuleState& state = whole.common;
        state.module = module;
        state.module_dict = Py_NewRef(PyModule_GetDict(module));
        state.builtins = Py_XNewRef(PyEval_GetBuiltins());
        state.words.create();
        whole.names.create();
        state.vocabulary = &whole.names;
        create_function_type(state);
        create_generator_type(state);
        show_counts(state);
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

void release(void* module) {
    WholeState& whole = whole_state_of(static_cast<PyObject*>(module));
    whole.common.visit([](PyObject*& field) {
        Py_CLEAR(field);
        return 0;
    });
    whole.common.statements.destroy();
    whole.names.destroy();
    whole.common.words.destroy();
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(execute)},
    SEARCH_ANALYTICS_INTERPRETER_SLOTS{0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT,
    "search_analytics",
    "Search analytics subcomponent \xE2\x80\x94 aggregated statistics, suggestions, patterns.",
    sizeof(WholeState),
    nullptr,
    slots,
    traverse,
    nullptr,
    release,
};

}  // namespace

}  // namespace search_analytics

PyMODINIT_FUNC PyInit_search_analytics() { return PyModuleDef_Init(&search_analytics::definition); }
