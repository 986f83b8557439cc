// The filters that every analytics operation shares.
#include "engine/filters.h"

#include <utility>

#include "host/containers.h"

namespace search_analytics {

using namespace host;

Filters::Filters(const Call& call)
    : era_id(call[call.names().era_id]),
      eval_type(call[call.names().eval_type]),
      named_universe(call[call.names().named_universe]),
      metaparameters(call[call.names().metaparameters]),
      function_family(call[call.names().function_family]),
      function_subfamily(call[call.names().function_subfamily]),
      feature_family(call[call.names().feature_family]),
      feature_subfamily(call[call.names().feature_subfamily]),
      strategy_pool_id(call[call.names().strategy_pool_id]),
      signal_pool_id(call[call.names().signal_pool_id]),
      strategy_signal_pool(call[call.names().strategy_signal_pool]) {}

void Filters::validate_eval_type(const ModuleState& state, PyObject* engine) const {
    call_method(engine, state.names._validate_eval_type, eval_type);
}

Ref Filters::fetch(const ModuleState& state, PyObject* engine, PyObject* eval_pool) const {
    const Names& names = state.names;
    Keywords arguments(12);
    arguments.add(names.era_id, era_id);
    arguments.add(names.eval_type, eval_type);
    arguments.add(names.named_universe, named_universe);
    arguments.add(names.metaparameters, metaparameters);
    if (eval_pool != nullptr) {
        arguments.add(names.eval_pool, eval_pool);
    }
    arguments.add(names.function_family, function_family);
    arguments.add(names.function_subfamily, function_subfamily);
    arguments.add(names.feature_family, feature_family);
    arguments.add(names.feature_subfamily, feature_subfamily);
    arguments.add(names.strategy_pool_id, strategy_pool_id);
    arguments.add(names.signal_pool_id, signal_pool_id);
    arguments.add(names.strategy_signal_pool, strategy_signal_pool);
    return arguments.call(attribute(engine, names._fetch_evaluations).get());
}

Ref Filters::applied(const ModuleState& state) const {
    const Names& names = state.names;
    const std::pair<PyObject*, PyObject*> filters[] = {
        {names.era_id, era_id},
        {names.eval_type, eval_type},
        {names.named_universe, named_universe},
        {names.metaparameters, metaparameters},
        {names.strategy_pool_id, strategy_pool_id},
        {names.signal_pool_id, signal_pool_id},
        {names.strategy_signal_pool, strategy_signal_pool},
        {names.function_family, function_family},
        {names.function_subfamily, function_subfamily},
        {names.feature_family, feature_family},
        {names.feature_subfamily, feature_subfamily},
    };
    Ref applied = new_dict();
    for (const auto& [name, value] : filters) {
        if (value != Py_None) {
            set_item(applied, name, value);
        }
    }
    return applied;
}

}  // namespace search_analytics
