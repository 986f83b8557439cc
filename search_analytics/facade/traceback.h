// What tracebacks show of the module's functions: an entry for each that an error passes through,
// as for functions in Python. Only errors cost anything.
#pragma once

#include "facade/signature.h"
#include "python/error.h"

namespace search_analytics {

// A function inside of another one, or a generator expression: tracebacks are all that shows it.
struct InnerFunction {
    PlacedName name;
    std::string_view owner;
};

// A function as tracebacks show it: a method also by its class. Refers to a table, and does not
// outlive it.
struct ShownFunction {
    // NOLINTNEXTLINE(google-explicit-constructor): a description says it all of a plain function.
    ShownFunction(const FunctionDescription& described, std::string_view class_name = {})
        : name(described.name), owner(class_name) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    ShownFunction(const InnerFunction& inner) : name(inner.name), owner(inner.owner) {}

    const PlacedName& name;
    std::string_view owner;
};

// Adds an entry for the function to the traceback of the error that is set. Where memory or depth
// do not suffice for that, the error stays as it is.
void show_in_traceback(const ModuleState& state, ShownFunction function);

// Does what a function of the module does, without a call: an error shows the function as if it
// had been called.
template <typename Body>
auto in_place_of(const ModuleState& state, ShownFunction function, Body&& body) {
    try {
        return body();
    } catch (const ErrorSet&) {
        show_in_traceback(state, function);
        throw;
    }
}

// To be called with an error that leaves the body of a generator or generator expression: shows the
// function, and makes a RuntimeError of a StopIteration, which does not show it again.
void leave_generator(const ModuleState& state, ShownFunction function);

// Runs a part of the body of a generator or generator expression.
template <typename Body>
auto in_generator(const ModuleState& state, ShownFunction function, Body&& body) {
    try {
        return body();
    } catch (const ErrorSet&) {
        leave_generator(state, function);
        throw;
    }
}

}  // namespace search_analytics
