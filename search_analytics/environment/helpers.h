// What finding the environment adds to the module: helpers, each described by a table beside its
// implementation.
#pragma once

#include "facade/function.h"

namespace search_analytics {

extern const FunctionDescription kGetAttrOrItem;
extern const FunctionDescription kUnwrapEraConfig;
extern const FunctionDescription kCandidateEraConfigs;
extern const FunctionDescription kExtractRawPools;
extern const FunctionDescription kNormalizePoolConfig;
extern const FunctionDescription kIterPoolConfigs;
extern const FunctionDescription kResolvePoolConfigs;
extern const FunctionDescription kAuthFromOnboardingOrSearch;
extern const FunctionDescription kRequireRegisteredOrLoggedIn;
extern const FunctionDescription kActiveSearchHandle;
extern const FunctionDescription kRuntimeFromOnboarding;
extern const FunctionDescription kTrackerFromConfig;
extern const FunctionDescription kResolveTrackerAndPools;

// _get_attr_or_item(value, key, None), as it stands in the module now.
Ref attr_or_item(const ModuleState& state, Arg value, Arg key);

}  // namespace search_analytics
