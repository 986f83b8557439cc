// What statements do in a Python module: class, enumeration, data class and import.
#include "facade/statement.h"

namespace search_analytics {

namespace {

// What every class body begins with.
void begin_class(const ModuleState& state, const Ref& body, const Ref& name,
                 std::string_view documentation) {
    const Words& words = state.words;
    assign_item(body, words.dunder_module, load_global(state, words.dunder_name));
    assign_item(body, words.dunder_qualname, name);
    assign_item(body, words.dunder_doc, new_str(documentation));
}

// The compiled form of a statement, which is kept, by the very text.
Ref compiled(CompiledStatements& statements, const char* text) {
    for (std::size_t i = 0; i < statements.count; ++i) {
        if (statements.list[i].text == text) {
            return Ref::share(statements.list[i].code);
        }
    }
    Ref code = Ref::steal(Py_CompileString(text, "<kestrune.search_analytics>", Py_file_input));
    if (statements.count < statements.list.size()) {
        statements.list[statements.count++] = {text, code.copy().release()};
    }
    return code;
}

// Runs a statement in a namespace of its own. Its text lives as long as the module. Tracebacks do
// not show the statement, but the function that it is part of.
void run_statement(ModuleState& state, const char* statement, const Ref& scope) {
    const Ref code = compiled(state.statements, statement);
    set_item(scope, state.words.dunder_builtins, state.builtins);
    PyObject* result = PyEval_EvalCode(code.get(), scope.get(), scope.get());
    if (result == nullptr) {
        hide_in_traceback(code);
    }
    Ref::steal(result);
}

}  // namespace

Ref make_class(const ModuleState& state, std::string_view name, std::string_view documentation,
               const Ref& body) {
    const Ref class_name = new_str(name);
    const Ref members = new_dict();
    begin_class(state, members, class_name, documentation);
    check(PyDict_Update(members.get(), body.get()));
    const Ref bases = Ref::steal(PyTuple_New(0));
    return call(reinterpret_cast<PyObject*>(&PyType_Type), class_name, bases, members);
}

Ref make_enumeration(const ModuleState& state, std::string_view name,
                     std::string_view documentation,
                     const std::vector<std::pair<std::string_view, Ref>>& members) {
    const Ref base = load_global(state, state.words.Enum);
    const Ref metaclass = Ref::share(reinterpret_cast<PyObject*>(Py_TYPE(base.get())));
    const Ref class_name = new_str(name);
    const Ref bases = tuple_of(base);
    const Ref body = call_method(metaclass, state.words.dunder_prepare, class_name, bases);
    begin_class(state, body, class_name, documentation);
    for (const auto& [member, value] : members) {
        assign_item(body, new_str(member), value);
    }
    return call(metaclass, class_name, bases, body);
}

Ref make_data_class(const ModuleState& state, std::string_view name, std::string_view documentation,
                    const std::vector<Field>& fields) {
    const Words& words = state.words;
    const Ref body = new_dict();
    const Ref annotations = new_dict();
    set_item(body, words.dunder_annotations, annotations);
    for (const Field& field : fields) {
        const Ref field_name = Ref::steal(PyUnicode_InternFromString(field.name));
        set_item(annotations, field_name, new_str(field.annotation));
        if (field.is_factory) {
            Keywords arguments(1);
            arguments.add(words.default_factory, field.default_value.copy());
            const Ref made = arguments.call(load_global(state, words.field));
            set_item(body, field_name, made);
        } else {
            set_item(body, field_name, field.default_value);
        }
    }
    const Ref plain = make_class(state, name, documentation, body);
    return call_global(state, words.dataclass, plain);
}

std::pair<Ref, Ref> unpack_pair(ModuleState& state, Arg value) {
    if (PyTuple_CheckExact(value.get()) && PyTuple_GET_SIZE(value.get()) == 2) {
        return {Ref::share(tuple_item(value, 0)), Ref::share(tuple_item(value, 1))};
    }
    const Words& words = state.words;
    const Ref scope = new_dict();
    set_item(scope, words.value, value);
    run_statement(state, "first, second = value", scope);
    return {item(scope, words.first), item(scope, words.second)};
}

Ref import_statement(ModuleState& state, const char* statement, Arg name) {
    const Ref scope = new_dict();
    set_item(scope, state.words.dunder_name, load_global(state, state.words.dunder_name));
    run_statement(state, statement, scope);
    return item(scope, name);
}

}  // namespace search_analytics
