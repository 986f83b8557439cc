// What statements do in a Python module: class, enumeration, data class and import.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "facade/function.h"

namespace search_analytics {

// class name: ... with the members of the dictionary `body`.
Ref make_class(const ModuleState& state, std::string_view name, std::string_view documentation,
               const Ref& body);

// class name(Enum): ... with the members given in order.
Ref make_enumeration(const ModuleState& state, std::string_view name,
                     std::string_view documentation,
                     const std::vector<std::pair<std::string_view, Ref>>& members);

// One field of a data class. Its default is a plain value or made by a factory.
struct Field {
    const char* name;
    const char* annotation;
    Ref default_value;
    bool is_factory = false;
};

// @dataclass class name: ... with the fields given in order, their annotations kept as text.
Ref make_data_class(const ModuleState& state, std::string_view name, std::string_view documentation,
                    const std::vector<Field>& fields);

// The statement `first, second = value`, with the interpreter's own errors where it does not fit.
std::pair<Ref, Ref> unpack_pair(ModuleState& state, Arg value);

// Runs an import statement and returns what it binds to `name`. The statement is the
// interpreter's own: import hooks, submodules and the texts of errors are those of Python code. Its
// text lives as long as the module.
Ref import_statement(ModuleState& state, const char* statement, Arg name);

}  // namespace search_analytics
