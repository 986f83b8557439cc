// What tracebacks show of the module's functions.
#include "facade/traceback.h"

#include <string>

#include "python/containers.h"

namespace search_analytics {

namespace {

// The path of a source file from the folder of the project on, wherever that stood when it was
// built.
std::string path_in_project(std::string_view path) {
    const std::size_t start = path.rfind("search_analytics/");
    return std::string(start == std::string_view::npos ? path : path.substr(start));
}

// The code with the qualified name of a method, where code has one.
Ref with_qualname(const ModuleState& state, Ref code, ShownFunction function) {
    if (!compat::kCodeHasQualname || function.owner.empty()) {
        return code;
    }
    const std::string qualname = std::string(function.owner) + "." + std::string(function.name);
    const Ref changes = Ref::steal(Py_BuildValue("{ss}", "co_qualname", qualname.c_str()));
    const Ref no_arguments = Ref::steal(PyTuple_New(0));
    PyObject* replaced = PyObject_Call(attribute(code, state.words.replace).get(),
                                       no_arguments.get(), changes.get());
    if (replaced == nullptr) {
        // At the recursion limit nothing can be called: better the plain name than no entry.
        forget_error();
        return code;
    }
    return Ref::steal(replaced);
}

// A frame for the entry: it stands on the line that gives the function its name, and has no local
// variables, so that it keeps nothing alive.
Ref frame_of(const ModuleState& state, ShownFunction function) {
    const PlacedName& name = function.name;
    const std::string path = path_in_project(name.place.file_name());
    const Ref code =
        with_qualname(state,
                      Ref::steal(reinterpret_cast<PyObject*>(PyCode_NewEmpty(
                          path.c_str(), name.c_str(), static_cast<int>(name.place.line())))),
                      function);
    const Ref no_locals = new_dict();
    return Ref::steal(reinterpret_cast<PyObject*>(
        PyFrame_New(PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()),
                    state.globals(), no_locals.get())));
}

}  // namespace

void show_in_traceback(const ModuleState& state, ShownFunction function) {
    if (PyErr_Occurred() == nullptr) {
        return;  // without memory the interpreter may fail and not say why
    }
    const Ref error = take_error();
    const bool is_shown = at_boundary(false, [&] {
        const Ref frame = frame_of(state, function);
        compat::restore_raised_exception(error.copy().release());
        check(PyTraceBack_Here(reinterpret_cast<PyFrameObject*>(frame.get())));
        return true;
    });
    if (!is_shown) {
        forget_error();
        compat::restore_raised_exception(error.copy().release());
    }
}

void leave_generator(const ModuleState& state, ShownFunction function) {
    show_in_traceback(state, function);
    replace_stop_iteration();
}

}  // namespace search_analytics
