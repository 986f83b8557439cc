// The end of the interpreter.
#pragma once

#include "facade/module_state.h"

namespace search_analytics {

// Has `ending_thread` set when the main interpreter begins to end.
void watch_for_interpreter_end(ModuleState& state);

}  // namespace search_analytics
