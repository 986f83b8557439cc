// What statements do in a Python module: class, enumeration, data class and import.
#include "host/statement.h"

#include "host/containers.h"

namespace search_analytics::host {

namespace {

// object[key] = value, for whatever kind of namespace a metaclass prepares
void set_member(const Ref& body, PyObject* name, PyObject* value) {
    check(PyObject_SetItem(body.get(), name, value));
}

// What every class body begins with.
void begin_class(const ModuleState& state, const Ref& body, const Ref& name,
                 std::string_view documentation) {
    const Names& names = state.names;
    set_member(body, names.dunder_module, load_global(state, names.dunder_name).get());
    set_member(body, names.dunder_qualname, name.get());
    set_member(body, names.dunder_doc, unicode(documentation).get());
}

// Runs a statement in a namespace of its own; its compiled form is kept.
void run_statement(ModuleState& state, const char* statement, const Ref& scope) {
    const Ref text = unicode(statement);
    Ref code;
    if (auto compiled = dict_entry(state.statements, text.get())) {
        code = std::move(*compiled);
    } else {
        code =
            Ref::steal(Py_CompileString(statement, "<kestrune.search_analytics>", Py_file_input));
        check(PyDict_SetItem(state.statements, text.get(), code.get()));
    }
    Ref::steal(PyEval_EvalCode(code.get(), scope.get(), scope.get()));
}

}  // namespace

Ref make_class(const ModuleState& state, std::string_view name, std::string_view documentation,
               const Ref& body) {
    const Ref class_name = unicode(name);
    const Ref members = new_dict();
    begin_class(state, members, class_name, documentation);
    check(PyDict_Update(members.get(), body.get()));
    const Ref bases = Ref::steal(PyTuple_New(0));
    return call(reinterpret_cast<PyObject*>(&PyType_Type), class_name.get(), bases.get(),
                members.get());
}

Ref make_enumeration(const ModuleState& state, std::string_view name,
                     std::string_view documentation,
                     const std::vector<std::pair<std::string_view, Ref>>& members) {
    const Ref base = load_global(state, state.names.Enum);
    const Ref metaclass = Ref::share(reinterpret_cast<PyObject*>(Py_TYPE(base.get())));
    const Ref class_name = unicode(name);
    const Ref bases = tuple_of(base);
    const Ref body =
        call_method(metaclass.get(), state.names.dunder_prepare, class_name.get(), bases.get());
    begin_class(state, body, class_name, documentation);
    for (const auto& [member, value] : members) {
        set_member(body, unicode(member).get(), value.get());
    }
    return call(metaclass.get(), class_name.get(), bases.get(), body.get());
}

Ref make_data_class(const ModuleState& state, std::string_view name, std::string_view documentation,
                    const std::vector<Field>& fields) {
    const Names& names = state.names;
    const Ref body = new_dict();
    const Ref annotations = new_dict();
    set_item(body, names.dunder_annotations, annotations.get());
    for (const Field& field : fields) {
        const Ref field_name = Ref::steal(PyUnicode_InternFromString(field.name));
        set_item(annotations, field_name.get(), unicode(field.annotation).get());
        if (field.is_factory) {
            Keywords arguments(1);
            arguments.add(names.default_factory, field.default_value.get());
            const Ref made = arguments.call(load_global(state, names.field).get());
            set_item(body, field_name.get(), made.get());
        } else {
            set_item(body, field_name.get(), field.default_value.get());
        }
    }
    const Ref plain = make_class(state, name, documentation, body);
    return call_global(state, names.dataclass, plain.get());
}

std::pair<Ref, Ref> unpack_pair(ModuleState& state, PyObject* value) {
    if (PyTuple_CheckExact(value) && PyTuple_GET_SIZE(value) == 2) {
        return {Ref::share(PyTuple_GET_ITEM(value, 0)), Ref::share(PyTuple_GET_ITEM(value, 1))};
    }
    const Names& names = state.names;
    const Ref scope = new_dict();
    set_item(scope, names.value, value);
    run_statement(state, "first, second = value", scope);
    return {item(scope.get(), names.first), item(scope.get(), names.second)};
}

Ref import_statement(ModuleState& state, const char* statement, PyObject* name) {
    const Ref scope = new_dict();
    set_item(scope, state.names.dunder_name, load_global(state, state.names.dunder_name).get());
    run_statement(state, statement, scope);
    return item(scope.get(), name);
}

}  // namespace search_analytics::host
