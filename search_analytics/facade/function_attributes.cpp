// The functions of the module: their type, and what introspection reads and writes on them.
#include <cstddef>

#include "facade/function_object.h"
#include "python/compat.h"
#include "python/containers.h"

namespace search_analytics {

namespace {

FunctionObject* as_function(PyObject* object) { return reinterpret_cast<FunctionObject*>(object); }

// A value that may be read, and replaced by an object of one type only.
struct TypedField {
    FunctionField field;
    bool (*accepts)(PyObject* value);
    bool may_be_deleted;
    const char* refusal;
};

bool is_anything(PyObject*) { return true; }
bool is_text(PyObject* value) { return PyUnicode_Check(value) != 0; }
bool is_tuple(PyObject* value) { return PyTuple_Check(value) != 0; }
bool is_dictionary(PyObject* value) { return PyDict_Check(value) != 0; }

constexpr TypedField kName = {&FunctionObject::name, is_text, false,
                              "__name__ must be set to a string object"};
constexpr TypedField kQualname = {&FunctionObject::qualname, is_text, false,
                                  "__qualname__ must be set to a string object"};
constexpr TypedField kDefaults = {&FunctionObject::defaults, is_tuple, true,
                                  "__defaults__ must be set to a tuple object"};
constexpr TypedField kKeywordDefaults = {&FunctionObject::keyword_defaults, is_dictionary, true,
                                         "__kwdefaults__ must be set to a dict object"};
constexpr TypedField kTypeParameters = {&FunctionObject::type_parameters, is_tuple, false,
                                        "__type_params__ must be set to a tuple"};
constexpr TypedField kAnnotations = {&FunctionObject::annotations, is_dictionary, true,
                                     "__annotations__ must be set to a dict object"};
constexpr TypedField kModuleName = {&FunctionObject::module_name, is_anything, true, ""};
constexpr TypedField kDocumentation = {&FunctionObject::documentation, is_anything, true, ""};

PyObject* get_typed(PyObject* self, void* closure) noexcept {
    const auto* typed = static_cast<const TypedField*>(closure);
    Ref value = field_of(as_function(self), typed->field);
    return value.empty() ? Py_NewRef(Py_None) : value.release();
}

int set_typed(PyObject* self, PyObject* value, void* closure) noexcept {
    const auto* typed = static_cast<const TypedField*>(closure);
    if (value == Py_None && typed->may_be_deleted) {
        value = nullptr;
    }
    if (value == nullptr ? !typed->may_be_deleted : !typed->accepts(value)) {
        PyErr_SetString(PyExc_TypeError, typed->refusal);
        return -1;
    }
    put_field(as_function(self), typed->field, value != nullptr ? Ref::share(value) : Ref());
    return 0;
}

// What `__annotate__` was assigned, called for the values themselves.
Ref worked_out_annotations(Arg annotate) {
    Ref annotations = call(annotate, new_int(1));
    if (!PyDict_Check(annotations.get())) {
#if PY_VERSION_HEX >= 0x030F0000
        raise(PyExc_TypeError,
              format("__annotate__() must return a dict, not %T", annotations.get()));
#else
        raise(PyExc_TypeError, format("__annotate__ returned non-dict of type '%s'",
                                      Py_TYPE(annotations.get())->tp_name));
#endif
    }
    return annotations;
}

// A function always has annotations: they are made anew when they were deleted.
PyObject* get_annotations(PyObject* self, void*) {
    return at_boundary<PyObject*>(nullptr, [&] {
        FunctionObject* function = as_function(self);
        Ref annotations = field_of(function, &FunctionObject::annotations);
        if (annotations.empty()) {
            const Ref annotate = field_of(function, &FunctionObject::annotate);
            const bool may_ask = !annotate.empty() && is_callable(annotate);
            annotations = may_ask ? worked_out_annotations(annotate) : new_dict();
            put_field(function, &FunctionObject::annotations, annotations.copy());
        }
        return annotations.release();
    });
}

// Annotations that are assigned have no `__annotate__` any more.
int set_annotations(PyObject* self, PyObject* value, void* closure) noexcept {
    const int result = set_typed(self, value, closure);
    if (result == 0) {
        put_field(as_function(self), &FunctionObject::annotate, Ref::none());
    }
    return result;
}

// The interpreter's own function that works out the annotations of such a `def` statement.
Ref make_annotate(FunctionObject* function) {
    const FunctionDescription& description = *function->description;
    if (description.returns.empty()) {
        return Ref::none();
    }
    const std::string statement =
        "def function() -> '" + std::string(description.returns) + "': ...";
    const Ref scope = new_dict();
    const Ref code = Ref::steal(
        Py_CompileString(statement.c_str(), "<kestrune.search_analytics>", Py_file_input));
    Ref::steal(PyEval_EvalCode(code.get(), function->globals, scope.get()));
    Ref annotate = attribute(item(scope, new_str("function")), new_str("__annotate__"));
    const Ref qualname = field_of(function, &FunctionObject::qualname);
    set_attribute(annotate, new_str("__qualname__"), format("%U.__annotate__", qualname));
    return annotate;
}

PyObject* get_annotate(PyObject* self, void*) {
    return at_boundary<PyObject*>(nullptr, [&] {
        FunctionObject* function = as_function(self);
        Ref annotate = field_of(function, &FunctionObject::annotate);
        if (annotate.empty()) {
            annotate = make_annotate(function);
            put_field(function, &FunctionObject::annotate, annotate.copy());
        }
        return annotate.release();
    });
}

int set_annotate(PyObject* self, PyObject* value, void*) noexcept {
    if (value == nullptr || PyCallable_Check(value) == 0) {
        if (value != Py_None) {
            PyErr_SetString(PyExc_TypeError, value == nullptr
                                                 ? "__annotate__ cannot be deleted"
                                                 : "__annotate__ must be callable or None");
            return -1;
        }
    } else {
        put_field(as_function(self), &FunctionObject::annotations, Ref());
    }
    put_field(as_function(self), &FunctionObject::annotate, Ref::share(value));
    return 0;
}

PyObject* get_code(PyObject* self, void*) {
    return at_boundary<PyObject*>(nullptr,
                                  [&] { return function_code(as_function(self)).release(); });
}

// The code keeps the name that the function was made with, so it has to be there before.
int set_qualname(PyObject* self, PyObject* value, void* closure) {
    return at_boundary(-1, [&] {
        function_code(as_function(self));
        return set_typed(self, value, closure);
    });
}

// A compiled function has no other code to run: any replacement is refused.
int set_code(PyObject*, PyObject* value, void*) noexcept {
    if (value == nullptr || !PyCode_Check(value)) {
        PyErr_SetString(PyExc_TypeError, "__code__ must be set to a code object");
    } else {
        PyErr_SetString(PyExc_AttributeError, "the code of a compiled function is fixed");
    }
    return -1;
}

PyObject* get_closure(PyObject*, void*) noexcept { return Py_NewRef(Py_None); }

int refuse_assignment(PyObject*, PyObject*, void*) noexcept {
    PyErr_SetString(PyExc_AttributeError, "readonly attribute");
    return -1;
}

PyObject* get_builtins(PyObject* self, void*) noexcept {
    return Py_NewRef(state_of(as_function(self)->module).builtins);
}

// isinstance(f, types.FunctionType) holds, since introspection and mocking go by it.
PyObject* get_class(PyObject*, void*) noexcept {
    return Py_NewRef(reinterpret_cast<PyObject*>(&PyFunction_Type));
}

// Pickled and copied by name, as functions are.
PyObject* reduce(PyObject* self, PyObject*) noexcept {
    return field_of(as_function(self), &FunctionObject::qualname).release();
}

PyObject* represent(PyObject* self) noexcept {
    const Ref qualname = field_of(as_function(self), &FunctionObject::qualname);
    return PyUnicode_FromFormat("<function %U at %p>", qualname.get(), self);
}

PyObject* bind(PyObject* self, PyObject* instance, PyObject*) noexcept {
    if (instance == nullptr || instance == Py_None) {
        return Py_NewRef(self);
    }
    return PyMethod_New(self, instance);
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    const FunctionObject* function = as_function(self);
    Py_VISIT(Py_TYPE(self));
    for (PyObject* field : {function->module, function->globals, function->name, function->qualname,
                            function->module_name, function->documentation, function->defaults,
                            function->keyword_defaults, function->annotations, function->annotate,
                            function->type_parameters, function->code, function->dict}) {
        Py_VISIT(field);
    }
    return 0;
}

// Breaks the cycles through what Python code put here. The module and its namespace break their
// own, so that a function which outlives a collection can still be called.
int clear(PyObject* self) {
    FunctionObject* function = as_function(self);
    Py_CLEAR(function->module_name);
    Py_CLEAR(function->documentation);
    Py_CLEAR(function->defaults);
    Py_CLEAR(function->keyword_defaults);
    Py_CLEAR(function->annotations);
    Py_CLEAR(function->annotate);
    Py_CLEAR(function->type_parameters);
    Py_CLEAR(function->dict);
    return 0;
}

void deallocate(PyObject* self) {
    FunctionObject* function = as_function(self);
    const Ref type = Ref::adopt(reinterpret_cast<PyObject*>(Py_TYPE(self)));
    PyObject_GC_UnTrack(self);
    PyObject_ClearWeakRefs(self);
    clear(self);
    Py_CLEAR(function->name);
    Py_CLEAR(function->qualname);
    Py_CLEAR(function->code);
    Py_CLEAR(function->parameter_names);
    Py_CLEAR(function->globals);
    Py_CLEAR(function->module);
    Py_TYPE(self)->tp_free(self);
}

constexpr void* closure_of(const TypedField& typed) noexcept {
    return const_cast<TypedField*>(&typed);
}

PyGetSetDef module_name_attribute = {"__module__", get_typed, set_typed, nullptr,
                                     closure_of(kModuleName)};

constexpr PyGetSetDef kNoMore = {nullptr, nullptr, nullptr, nullptr, nullptr};

PyGetSetDef attributes[] = {
    {"__name__", get_typed, set_typed, nullptr, closure_of(kName)},
    {"__qualname__", get_typed, set_qualname, nullptr, closure_of(kQualname)},
    {"__defaults__", get_typed, set_typed, nullptr, closure_of(kDefaults)},
    {"__kwdefaults__", get_typed, set_typed, nullptr, closure_of(kKeywordDefaults)},
    {"__doc__", get_typed, set_typed, nullptr, closure_of(kDocumentation)},
    {"__annotations__", get_annotations, set_annotations, nullptr, closure_of(kAnnotations)},
    {"__code__", get_code, set_code, nullptr, nullptr},
    {"__closure__", get_closure, refuse_assignment, nullptr, nullptr},
    {"__builtins__", get_builtins, refuse_assignment, nullptr, nullptr},
    {"__class__", get_class, nullptr, nullptr, nullptr},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
    // These came with later versions: an earlier one takes the list to end here.
    compat::kHasTypeParameters
        ? PyGetSetDef{"__type_params__", get_typed, set_typed, nullptr, closure_of(kTypeParameters)}
        : kNoMore,
    compat::kHasAnnotate ? PyGetSetDef{"__annotate__", get_annotate, set_annotate, nullptr, nullptr}
                         : kNoMore,
    kNoMore,
};

PyMemberDef members[] = {
    {"__globals__", Py_T_OBJECT, offsetof(FunctionObject, globals), Py_READONLY, nullptr},
    {"__vectorcalloffset__", Py_T_PYSSIZET, offsetof(FunctionObject, vectorcall), Py_READONLY,
     nullptr},
    {"__dictoffset__", Py_T_PYSSIZET, offsetof(FunctionObject, dict), Py_READONLY, nullptr},
    {"__weaklistoffset__", Py_T_PYSSIZET, offsetof(FunctionObject, weak_references), Py_READONLY,
     nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyMethodDef methods[] = {
    {"__reduce__", reduce, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(deallocate)},
    {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(clear)},
    {Py_tp_repr, reinterpret_cast<void*>(represent)},
    {Py_tp_call, reinterpret_cast<void*>(PyVectorcall_Call)},
    {Py_tp_descr_get, reinterpret_cast<void*>(bind)},
    {Py_tp_getset, attributes},
    {Py_tp_members, members},
    {Py_tp_methods, methods},
    {0, nullptr},
};

PyType_Spec spec = {
    "kestrune.search_analytics.function",
    sizeof(FunctionObject),
    0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL |
        Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    slots,
};

}  // namespace

void create_function_type(ModuleState& state) {
    Ref type = Ref::steal(PyType_FromModuleAndSpec(state.module, &spec, nullptr));
    // The name of the type's own module hides a `__module__` among the attributes above.
    const Ref module_name = Ref::steal(
        PyDescr_NewGetSet(reinterpret_cast<PyTypeObject*>(type.get()), &module_name_attribute));
    set_attribute(type, state.words.dunder_module, module_name);
    // Errors speak of a 'function' object.
    set_attribute(type, state.words.dunder_name, state.words.function);
    state.function_type = type.release();
}

}  // namespace search_analytics
