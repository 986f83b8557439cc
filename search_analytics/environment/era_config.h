// Where an era configuration can stand, and how its pools are read from it.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kUnwrapEraConfig;
extern const host::FunctionDescription kCandidateEraConfigs;
extern const host::FunctionDescription kExtractRawPools;

}  // namespace search_analytics
