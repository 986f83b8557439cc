// How well the search runs: yield, usefulness and tampering.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetYieldAnalysis;

}  // namespace search_analytics
