// The engine class, and the module-level functions that stand for its operations.
#include "module/functions.h"

#include <string>

#include "analytics/catalogue.h"
#include "analytics/correlation_patterns.h"
#include "analytics/search_patterns.h"
#include "analytics/search_stats.h"
#include "analytics/search_velocity.h"
#include "analytics/suggestions.h"
#include "analytics/yield_analysis.h"
#include "engine/engine.h"
#include "engine/fetch.h"
#include "engine/group_key.h"
#include "engine/statistic.h"
#include "engine/time_window.h"
#include "host/containers.h"
#include "host/statement.h"

namespace search_analytics {

using namespace host;

namespace {

constexpr const FunctionDescription* kFoundations[] = {
    &kInit,          &kValidateEvalType, &kFetchEvaluations,
    &kBuildGroupKey, &kGetStat,          &kFilterByTimeWindow,
};

// Each is a method of the engine and a function of the module.
constexpr const FunctionDescription* kOperations[] = {
    &kGetSearchStats,           &kGetSuggestions,
    &kGetAvailableEras,         &kGetAvailableNamedUniverses,
    &kGetAvailableAggregations, &kGetSearchPatterns,
    &kGetSearchVelocity,        &kGetYieldAnalysis,
    &kGetCorrelationPatterns,
};

// A module-level function asks the shared engine, with every argument by keyword.
Ref ask_shared_engine(const Call& call) {
    const Ref engine = call_global(call.state(), call.names()._get_or_init);
    const Ref name = unicode(call.function_name());
    return call.forward_to(attribute(engine.get(), name.get()).get());
}

Ref key_of(const FunctionDescription& description) {
    return Ref::steal(PyUnicode_InternFromString(std::string(description.name).c_str()));
}

}  // namespace

void bind_engine_class(ModuleState& state) {
    const Ref methods = new_dict();
    const auto add = [&](const FunctionDescription& description) {
        const Ref method = make_method(state, description, "SearchAnalytics");
        set_item(methods, key_of(description).get(), method.get());
    };
    for (const FunctionDescription* description : kFoundations) {
        add(*description);
    }
    for (const FunctionDescription* description : kOperations) {
        add(*description);
    }
    const Ref engine = make_class(state, "SearchAnalytics",
                                  "Analytics engine over search tracking data.", methods);
    state.bound_methods = methods.copy().release();
    bind_global(state, state.names.SearchAnalytics, engine.get());
}

void bind_operations(ModuleState& state) {
    for (const FunctionDescription* description : kOperations) {
        const Ref function = make_forwarder(state, *description, ask_shared_engine);
        bind_global(state, key_of(*description).get(), function.get());
    }
}

}  // namespace search_analytics
