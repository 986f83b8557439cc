// A lazy generator as Python code sees one (`next`, `send`, `throw`, `close`), over steps that
// are worked out in C++ one at a time.
#pragma once

#include <optional>

#include "facade/signature.h"

namespace search_analytics {

// The value that step number `step` yields, or nothing where it yields none.
using GeneratorStep = std::optional<Ref> (*)(ModuleState& state, PyObject* arguments, int step);

// Makes the type of the module's generators, and stores it in the state.
void create_generator_type(ModuleState& state);

// What a call of the generator function `function` returns: it goes through `count` steps, each of
// which is given the tuple `arguments`. The description must outlive it.
Ref make_generator(ModuleState& state, const FunctionDescription& function, Ref arguments,
                   GeneratorStep step, int count);

}  // namespace search_analytics
