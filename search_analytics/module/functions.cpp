// The engine class, and the module-level functions that stand for its operations.
#include "engine/functions.h"
#include "analytics/questions.h"
#include "facade/statement.h"
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// A module-level function asks the shared engine, with every argument by keyword.
Ref ask_shared_engine(const Call& call) {
    const Ref engine = call_global(call.state(), call.names()._get_or_init);
    const Ref name = new_str(call.function_name());
    return call.forward_to(attribute(engine, name));
}

Ref key_of(const FunctionDescription& description) { return interned_str(description.name); }

}  // namespace

void bind_engine_class(ModuleState& state) {
    const Ref methods = new_dict();
    const auto add = [&](const FunctionDescription& description) {
        const Ref method = make_method(state, description, "SearchAnalytics");
        set_item(methods, key_of(description), method);
    };
    for (const FunctionDescription* description : kEngineMethods) {
        add(*description);
    }
    for (const FunctionDescription* description : kQuestions) {
        add(*description);
    }
    const Ref engine = make_class(state, "SearchAnalytics",
                                  "Analytics engine over search tracking data.", methods);
    state.bound_methods = methods.copy().release();
    bind_global(state, state.names().SearchAnalytics, engine);
}

void bind_operations(ModuleState& state) {
    for (const FunctionDescription* description : kQuestions) {
        const Ref function = make_forwarder(state, *description, ask_shared_engine);
        bind_global(state, key_of(*description), function);
    }
}

}  // namespace search_analytics
