// The description of a function, and the binding of a call's arguments to its parameters.
#pragma once

#include <array>
#include <source_location>
#include <string_view>

#include "facade/module_state.h"
#include "python/python.h"
#include "python/ref.h"

namespace search_analytics {

class Call;

// A name, and the line of the sources that it is written in.
struct PlacedName {
    // NOLINTNEXTLINE(google-explicit-constructor): it is written as a mere text.
    constexpr PlacedName(const char* name,
                         std::source_location line = std::source_location::current()) noexcept
        : text(name), place(line) {}

    // NOLINTNEXTLINE(google-explicit-constructor)
    constexpr operator std::string_view() const noexcept { return text; }

    // As the interpreter takes it: the name is a literal, after which a null stands.
    const char* c_str() const noexcept { return text.data(); }

    std::string_view text;
    std::source_location place;
};

// A function as its table beside the implementation describes it. Tracebacks show the line that
// gives its name.
struct FunctionDescription {
    PlacedName name;
    std::string_view documentation;
    // The parameters as a `def` statement would list them, in up to five pieces so that shared
    // stretches are written once. A default is None, True, False, a decimal integer, or a dotted
    // name that is looked up in the module when the function is made.
    std::array<std::string_view, 5> parameters;
    // The return annotation, or nothing.
    std::string_view returns;
    Ref (*implementation)(const Call& call);
    bool is_generator = false;
};

// The parameters of a description: their names and the default values of the last of them.
struct Signature {
    Ref names;     // tuple of interned str
    Ref defaults;  // tuple, or None where no parameter has a default
};

// Reads the parameters of `description`, leaving out a leading `self` if told so. Defaults that
// are names are taken from the module's namespace now.
Signature read_signature(const ModuleState& state, const FunctionDescription& description,
                         bool without_self);

}  // namespace search_analytics
