// The functions of the module: how they are called and made. What introspection reads and
// writes on them is described in function_attributes.cpp.
#include "facade/function.h"

#include <algorithm>
#include <string>

#include "facade/function_object.h"
#include "facade/profile.h"
#include "facade/traceback.h"
#include "python/containers.h"
#include "python/turns.h"

namespace search_analytics {

namespace {

// Counts a call towards the interpreter's recursion limit, as every Python function does.
class RecursionGuard {
   public:
    RecursionGuard() {
        if (Py_EnterRecursiveCall("") != 0) {
            throw ErrorSet();
        }
    }
    ~RecursionGuard() {
        if (!thread_is_ending()) {
            Py_LeaveRecursiveCall();
        }
    }
    RecursionGuard(const RecursionGuard&) = delete;
    RecursionGuard& operator=(const RecursionGuard&) = delete;
};

// The longest parameter list of the module has 18 names.
constexpr Py_ssize_t kMaximumParameters = 24;

// A tuple, or None.
Ref defaults_of(FunctionObject* function) {
    Ref defaults = field_of(function, &FunctionObject::defaults);
    return defaults.empty() ? Ref::none() : std::move(defaults);
}

// Lets the interpreter bind the arguments of a call: an ordinary function of the same name and
// parameters is called with them. It fails in its own words where they do not fit, and else calls
// the function.
Ref call_through_twin(FunctionObject* function, PyObject* const* arguments,
                      std::size_t flagged_count, PyObject* keywords) {
    const Ref code = function_code(function);
    const Ref qualname = field_of(function, &FunctionObject::qualname);
    const Ref twin =
        Ref::steal(PyFunction_NewWithQualName(code.get(), function->globals, qualname.get()));
    check(PyFunction_SetDefaults(twin.get(), defaults_of(function).get()));
    return Ref::steal(PyObject_Vectorcall(twin.get(), arguments, flagged_count, keywords));
}

// The position of the parameter that a keyword means, or -1 where none is surely meant: comparing
// anything but strings runs code, which is left to the interpreter.
Py_ssize_t parameter_position(PyObject* names, PyObject* keyword) {
    const Py_ssize_t count = PyTuple_GET_SIZE(names);
    for (Py_ssize_t i = 0; i < count; ++i) {
        if (PyTuple_GET_ITEM(names, i) == keyword) {
            return i;
        }
    }
    for (Py_ssize_t i = 0; is_exact_str(keyword) && i < count; ++i) {
        if (same_text(keyword, PyTuple_GET_ITEM(names, i))) {
            return i;
        }
    }
    return -1;
}

// Puts every argument into its parameter's place. Returns false where the call does not fit, or
// cannot be told to without running code.
bool bind_arguments(PyObject* names, PyObject* defaults, PyObject* const* arguments,
                    Py_ssize_t positional, PyObject* keywords, PyObject** bound) {
    const Py_ssize_t count = PyTuple_GET_SIZE(names);
    if (positional > count) {
        return false;
    }
    std::copy(arguments, arguments + positional, bound);
    std::fill(bound + positional, bound + count, nullptr);
    const Py_ssize_t keyword_count = keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
    for (Py_ssize_t i = 0; i < keyword_count; ++i) {
        const Py_ssize_t position = parameter_position(names, PyTuple_GET_ITEM(keywords, i));
        if (position < 0 || bound[position] != nullptr) {
            return false;
        }
        bound[position] = arguments[positional + i];
    }
    const Py_ssize_t default_count = defaults == Py_None ? 0 : PyTuple_GET_SIZE(defaults);
    for (Py_ssize_t i = 0; i < count; ++i) {
        if (bound[i] == nullptr) {
            const Py_ssize_t position = i - (count - default_count);
            if (position < 0) {
                return false;
            }
            bound[i] = PyTuple_GET_ITEM(defaults, position);
        }
    }
    return true;
}

// Runs the implementation, and shows the function in the traceback of an error.
Ref run(const FunctionObject* function, const Call& call) {
    const RecursionGuard guard;
    auto* result = at_boundary<PyObject*>(nullptr, [&] {
        // As every function in Python does, for those who call it in a loop: a sort its key, say.
        take_turns_after(kWorkOfStep);
        return function->implementation(call).release();
    });
    if (result == nullptr) [[unlikely]] {
        show_in_traceback(call.state(), {*function->description, function->owner});
    }
    return Ref::steal(result);
}

Ref call_bound(FunctionObject* function, PyObject* const* arguments, std::size_t flagged_count,
               PyObject* keywords) {
    const Py_ssize_t positional = PyVectorcall_NARGS(flagged_count);
    // The call may run code that replaces the defaults or drops the function.
    const Ref keep = Ref::share(reinterpret_cast<PyObject*>(function));
    const Ref defaults = defaults_of(function);
    PyObject* bound[kMaximumParameters];
    if (!bind_arguments(function->parameter_names, defaults.get(), arguments, positional, keywords,
                        bound)) {
        return call_through_twin(function, arguments, flagged_count, keywords);
    }
    const Call call(state_of(function->module), function->parameter_names, bound,
                    function->description->name);
    return run(function, call);
}

PyObject* function_vectorcall(PyObject* callable, PyObject* const* arguments,
                              std::size_t flagged_count, PyObject* keywords) {
    auto* function = reinterpret_cast<FunctionObject*>(callable);
    auto call = [=] {
        return at_boundary<PyObject*>(nullptr, [&] {
            return call_bound(function, arguments, flagged_count, keywords).release();
        });
    };
    if (compat::is_profiled()) [[unlikely]] {
        return call_profiled(
            function, [](void* context) { return (*static_cast<decltype(call)*>(context))(); },
            &call);
    }
    return call();
}

Ref make(ModuleState& state, const FunctionDescription& description, std::string_view owner,
         Implementation implementation, bool without_self) {
    Signature signature = read_signature(state, description, without_self);
    if (PyTuple_GET_SIZE(signature.names.get()) > kMaximumParameters) {
        raise(PyExc_SystemError, "a function has too many parameters");
    }
    const Ref annotations = new_dict();
    if (!description.returns.empty()) {
        const Ref name = Ref::steal(PyUnicode_InternFromString("return"));
        set_item(annotations, name, new_str(description.returns));
    }
    const Ref name = new_str(description.name);
    const Ref qualified = owner.empty() ? name.copy() : format("%U.%U", new_str(owner), name);
    const Ref documentation =
        description.documentation.empty() ? Ref::none() : new_str(description.documentation);
    const Ref module_name = load_global(state, state.words.dunder_name);
    Ref no_type_parameters = Ref::steal(PyTuple_New(0));

    auto* type = reinterpret_cast<PyTypeObject*>(state.function_type);
    Ref made = Ref::steal(type->tp_alloc(type, 0));
    auto* function = reinterpret_cast<FunctionObject*>(made.get());
    function->vectorcall = function_vectorcall;
    function->description = &description;
    function->owner = owner;
    function->implementation = implementation;
    function->module = Py_NewRef(state.module);
    function->globals = Py_NewRef(state.globals());
    function->parameter_names = signature.names.release();
    function->name = name.copy().release();
    function->qualname = qualified.copy().release();
    function->module_name = module_name.copy().release();
    function->documentation = documentation.copy().release();
    function->defaults = signature.defaults.release();
    function->annotations = annotations.copy().release();
    function->type_parameters = no_type_parameters.release();
    return made;
}

}  // namespace

PyObject* Call::operator[](PyObject* name) const {
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(names_); ++i) {
        if (PyTuple_GET_ITEM(names_, i) == name) {
            return arguments_[i];
        }
    }
    raise(PyExc_SystemError, format("no parameter is called %R", name));
}

Ref Call::forward_to(Arg callable) const {
    return Ref::steal(PyObject_Vectorcall(callable, arguments_, 0, names_));
}

Ref make_function(ModuleState& state, const FunctionDescription& description) {
    return make(state, description, {}, description.implementation, false);
}

Ref make_method(ModuleState& state, const FunctionDescription& description,
                std::string_view class_name) {
    return make(state, description, class_name, description.implementation, false);
}

Ref make_forwarder(ModuleState& state, const FunctionDescription& method,
                   Ref (*implementation)(const Call& call)) {
    return make(state, method, {}, implementation, true);
}

}  // namespace search_analytics
