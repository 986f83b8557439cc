// What a profiler hears of the module's functions.
#include "facade/profile.h"

#include <memory>
#include <string>

#include "python/containers.h"

namespace search_analytics {

namespace {

// The definition of a built-in function, and the name that it points to.
struct Definition {
    std::string name;
    PyMethodDef method;
};

PyObject* refuse_call(PyObject*, PyObject*) noexcept {
    PyErr_SetString(PyExc_TypeError, "stands for a function in profiles only");
    return nullptr;
}

void destroy_definition(PyObject* capsule) noexcept {
    const std::unique_ptr<Definition> owned(
        static_cast<Definition*>(PyCapsule_GetPointer(capsule, nullptr)));
}

// A built-in function of that name. It owns its definition through its `__self__`.
Ref make_builtin(std::string name) {
    auto definition = std::make_unique<Definition>();
    definition->name = std::move(name);
    definition->method = {definition->name.c_str(), refuse_call, METH_VARARGS, nullptr};
    const Ref owner = Ref::steal(PyCapsule_New(definition.get(), nullptr, destroy_definition));
    PyMethodDef& method = definition.release()->method;
    return Ref::steal(PyCFunction_New(&method, owner.get()));
}

// Profilers in C count built-in functions only, by the address of their definition: each function
// has one to stand for it, the same for good.
Ref stand_in(const FunctionObject* function) {
    ModuleState& state = state_of(function->module);
    if (state.stand_ins == nullptr) {
        state.stand_ins = new_dict().release();
    }
    std::string name("kestrune.search_analytics");
    for (const std::string_view part : {function->owner, function->description->name.text}) {
        if (!part.empty()) {
            name.append(".").append(part);
        }
    }
    const Ref key = new_str(name);
    auto known = dict_entry(state.stand_ins, key);
    if (!known) {
        known = make_builtin(std::move(name));
        check(PyDict_SetItem(state.stand_ins, key.get(), known->get()));
    }
    return std::move(*known);
}

// Tells the profiler, if there still is one and a frame that it can be told of. The error that is
// set, if any, is so afterwards.
void tell(FunctionObject* function, int event) {
    PyThreadState* thread = PyThreadState_Get();
    PyFrameObject* frame = PyEval_GetFrame();
    if (thread->c_profilefunc == nullptr || frame == nullptr) {
        return;
    }
    const Ref error = PyErr_Occurred() == nullptr ? Ref() : take_error();
    const Ref keep_frame = Ref::share(reinterpret_cast<PyObject*>(frame));
    PyObject* argument = thread->c_profileobj;
    const Ref profiler = argument == nullptr ? Ref() : Ref::share(argument);
    const bool is_python = argument != nullptr && PyCallable_Check(argument) != 0;
    const Ref told =
        is_python ? Ref::share(reinterpret_cast<PyObject*>(function)) : stand_in(function);
    compat::pause_tracing();
    const int failed = thread->c_profilefunc(argument, frame, event, told.get());
    compat::resume_tracing();
    check(failed);
    if (!error.empty()) {
        compat::restore_raised_exception(error.copy().release());
    }
}

}  // namespace

PyObject* call_profiled(FunctionObject* function, PyObject* (*call)(void* context), void* context) {
    return at_boundary<PyObject*>(nullptr, [&] {
        const Ref keep = Ref::share(reinterpret_cast<PyObject*>(function));
        tell(function, PyTrace_C_CALL);
        PyObject* result = call(context);
        Ref kept = result == nullptr ? Ref() : Ref::adopt(result);
        tell(function, result == nullptr ? PyTrace_C_EXCEPTION : PyTrace_C_RETURN);
        return kept.release();
    });
}

}  // namespace search_analytics
