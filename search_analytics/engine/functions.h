// What the engine adds to the module: methods of SearchAnalytics and helpers beside it, each
// described by a table beside its implementation.
#pragma once

#include "facade/function.h"

namespace search_analytics {

extern const FunctionDescription kInit;
extern const FunctionDescription kValidateEvalType;
extern const FunctionDescription kFetchEvaluations;
extern const FunctionDescription kBuildGroupKey;
extern const FunctionDescription kGetStat;
extern const FunctionDescription kFilterByTimeWindow;

inline constexpr const FunctionDescription* kEngineMethods[] = {
    &kInit,          &kValidateEvalType, &kFetchEvaluations,
    &kBuildGroupKey, &kGetStat,          &kFilterByTimeWindow,
};

extern const FunctionDescription kTrackerTableExists;
extern const FunctionDescription kSubmissionStatusTableAndSignalColumn;
extern const FunctionDescription kPnlMiTamperDelta;
extern const FunctionDescription kUsageItems;
extern const FunctionDescription kFunctionItems;
extern const FunctionDescription kFeatureItems;
extern const FunctionDescription kUsageValue;

// _pnl_mi_tamper_delta(agent_value, server_value)
Ref pnl_mi_tamper_delta(const ModuleState& state, Arg agent_value, Arg server_value);

}  // namespace search_analytics
