// The engine that the module-level functions share.
#include "facade/statement.h"
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// The login is checked on every call; the engine is built once and kept for good. What fails on
// the way leaves nothing behind, and the next call starts over.
Ref get_or_init(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    const Ref onboarding_module = import_statement(
        state, "import kestrune.agent_onboarding as onboarding_mod", names.onboarding_mod);
    call_global(state, names._require_registered_or_logged_in, onboarding_module);
    Ref engine = load_global(state, names._singleton);
    if (!engine.is_none()) {
        return engine;
    }
    const Ref resolved = call_global(state, names._resolve_tracker_and_pools, onboarding_module);
    const auto [tracker, pool_configs] = unpack_pair(state, resolved);
    const Ref made = call_global(state, names.SearchAnalytics, tracker, pool_configs);
    bind_global(state, names._singleton, made);
    return load_global(state, names._singleton);
}

}  // namespace

const FunctionDescription kGetOrInit = {
    "_get_or_init",
    "Return the module-level analytics singleton, initializing lazily.",
    {},
    "SearchAnalytics",
    get_or_init,
};

}  // namespace search_analytics
