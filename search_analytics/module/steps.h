// The steps of the module body, each in a file of its own.
#pragma once

#include "facade/function.h"

namespace search_analytics {

// Runs them all, in the order of the body.
void run_body(ModuleState& state);

// The path of an adjacent source text, under which the module shows itself.
extern const FunctionDescription kAliasSourceFile;

// The three enumerations; the key maps that go with them.
void bind_enumerations(const ModuleState& state);
void bind_key_maps(const ModuleState& state);

// The result records of all questions.
void bind_records(ModuleState& state);

// SearchAnalytics; and the functions that ask the shared engine, which `_get_or_init` makes.
void bind_engine_class(ModuleState& state);
extern const FunctionDescription kGetOrInit;
void bind_operations(ModuleState& state);

}  // namespace search_analytics
