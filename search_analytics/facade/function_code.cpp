// The code objects of the module's functions, which introspection looks at, and which others run:
// whoever makes a function of one, and the interpreter where it binds the arguments of a call.
#include <string>

#include "facade/function_object.h"
#include "python/containers.h"

namespace search_analytics {

namespace {

// What the code calls: the compiled function, with every parameter in its place. Known by a weak
// reference, since the collector does not look into code.
PyObject* run_compiled(PyObject* reference, PyObject* const* arguments, Py_ssize_t count) {
    return at_boundary<PyObject*>(nullptr, [&] {
        const Ref function = Ref::steal(compat::referent(reference));
        if (function.is_none()) {
            raise(PyExc_RuntimeError, "the compiled function that this code calls is gone");
        }
        return PyObject_Vectorcall(function.get(), arguments, static_cast<std::size_t>(count),
                                   nullptr);
    });
}

PyMethodDef run_method = {"run_compiled",
                          reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(run_compiled)),
                          METH_FASTCALL, nullptr};

// Stands for the compiled function in the text of the code.
constexpr std::string_view kStandIn = "compiled function";

// def name(first, second): return <compiled function>.__call__(first, second)
Ref source_of(FunctionObject* function) {
    const Ref parameters = joined(", ", list_of(function->parameter_names));
    const char* statement = function->description->is_generator
                                ? "def function(%U): return (yield from '%s'.__call__(%U))"
                                : "def function(%U): return '%s'.__call__(%U)";
    return format(statement, parameters.get(), kStandIn.data(), parameters.get());
}

// The code of the only function in a compiled text.
Ref inner_code(Arg outer) {
    const Ref constants = attribute(outer, interned_str("co_consts"));
    for (Py_ssize_t i = 0; i < tuple_size(constants); ++i) {
        if (PyCode_Check(tuple_item(constants, i))) {
            return Ref::share(tuple_item(constants, i));
        }
    }
    raise(PyExc_SystemError, "a function was compiled to no code");
}

// The constants of the code with the compiled function itself among them.
Ref constants_with(Arg code, const Ref& callable) {
    const Ref constants = list_of(attribute(code, interned_str("co_consts")));
    const Ref stand_in = new_str(kStandIn);
    for (Py_ssize_t i = 0; i < list_size(constants); ++i) {
        const Ref constant = list_item(constants, i);
        if (is_exact_str(constant) && same_text(constant.get(), stand_in.get())) {
            set_list_item(constants, i, callable.copy());
        }
    }
    return Ref::steal(PyList_AsTuple(constants.get()));
}

Ref make_code(FunctionObject* function) {
    const ModuleState& state = state_of(function->module);
    const Ref source = source_of(function);
    const char* text = PyUnicode_AsUTF8(source.get());
    if (text == nullptr) {
        throw ErrorSet();
    }
    const Ref code = inner_code(
        Ref::steal(Py_CompileString(text, "<kestrune.search_analytics>", Py_file_input)).get());
    const Ref reference =
        Ref::steal(PyWeakref_NewRef(reinterpret_cast<PyObject*>(function), nullptr));
    const Ref callable = Ref::steal(PyCFunction_New(&run_method, reference.get()));
    Keywords changes(3);
    const Ref co_consts = interned_str("co_consts");
    const Ref co_name = interned_str("co_name");
    const Ref co_qualname = interned_str("co_qualname");
    changes.add(co_consts.get(), constants_with(code, callable));
    changes.add(co_name.get(), new_str(function->description->name));
    if (optional_attribute(code, co_qualname)) {
        changes.add(co_qualname.get(), field_of(function, &FunctionObject::qualname));
    }
    return changes.call(attribute(code, state.words.replace));
}

}  // namespace

Ref function_code(FunctionObject* function) {
    if (Ref code = field_of(function, &FunctionObject::code); !code.empty()) {
        return code;
    }
    Ref code = make_code(function);
    // Whoever was first meanwhile has made the one that all see.
    const compat::CriticalSection section(&function->ob_base);
    if (function->code == nullptr) {
        function->code = code.release();
    }
    return Ref::share(function->code);
}

}  // namespace search_analytics
