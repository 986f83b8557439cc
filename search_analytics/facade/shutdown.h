// The end of the interpreter.
#pragma once

#include "facade/module_state.h"

namespace search_analytics {

// Has `threads_may_be_ended` set when the main interpreter begins to end, if not before.
void watch_for_interpreter_end(ModuleState& state);

}  // namespace search_analytics
