// What a profiler hears of the module's functions: calls, returns and errors, as of built-in ones.
#pragma once

#include "facade/function_object.h"

namespace search_analytics {

// Runs `call`, which returns a new reference, or null with the error set, and tells this thread's
// profiler of it. An error of the profiler goes before what the call gave.
PyObject* call_profiled(FunctionObject* function, PyObject* (*call)(void* context), void* context);

}  // namespace search_analytics
