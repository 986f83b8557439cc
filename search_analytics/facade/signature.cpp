// The description of a function: its parameters, read from the text of its table.
#include "facade/signature.h"

#include <string>

#include "python/containers.h"

namespace search_analytics {

namespace {

// The object that a dotted name such as "AggregateBy.NONE" means in the module's namespace.
Ref named_object(const ModuleState& state, std::string_view dotted) {
    Ref object;
    for (;;) {
        const std::size_t dot = dotted.find('.');
        const Ref name = new_str(dotted.substr(0, dot));
        object = object.empty() ? load_global(state, name) : attribute(object, name);
        if (dot == std::string_view::npos) {
            return object;
        }
        dotted.remove_prefix(dot + 1);
    }
}

Ref default_value(const ModuleState& state, std::string_view text) {
    if (text == "None") {
        return Ref::none();
    }
    if (text == "True" || text == "False") {
        return new_bool(text == "True");
    }
    if (text.front() >= '0' && text.front() <= '9') {
        return Ref::steal(PyLong_FromString(std::string(text).c_str(), nullptr, 10));
    }
    return named_object(state, text);
}

constexpr std::string_view kSeparator = ", ";

// Takes the first parameter off `list`.
std::string_view take_parameter(std::string_view& list) {
    const std::size_t end = list.find(kSeparator);
    const std::string_view parameter = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + kSeparator.size());
    return parameter;
}

}  // namespace

Signature read_signature(const ModuleState& state, const FunctionDescription& description,
                         bool without_self) {
    const Ref names = new_list();
    const Ref defaults = new_list();
    for (std::string_view piece : description.parameters) {
        while (!piece.empty()) {
            const std::string_view parameter = take_parameter(piece);
            const std::size_t equals = parameter.find('=');
            const std::string name(parameter.substr(0, equals));
            if (without_self && name == "self") {
                continue;
            }
            append(names, Ref::steal(PyUnicode_InternFromString(name.c_str())));
            if (equals != std::string_view::npos) {
                append(defaults, default_value(state, parameter.substr(equals + 1)));
            }
        }
    }
    Signature signature;
    signature.names = Ref::steal(PyList_AsTuple(names.get()));
    signature.defaults =
        list_size(defaults) == 0 ? Ref::none() : Ref::steal(PyList_AsTuple(defaults.get()));
    return signature;
}

}  // namespace search_analytics
