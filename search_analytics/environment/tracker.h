// The search tracker: from a running search, from the package's runtime, or from the data folder.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kRuntimeFromOnboarding;
extern const host::FunctionDescription kTrackerFromConfig;
extern const host::FunctionDescription kResolveTrackerAndPools;

}  // namespace search_analytics
