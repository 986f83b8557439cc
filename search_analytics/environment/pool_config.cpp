// Signal pools: from what an era configuration holds to checked pool configurations.
#include "environment/helpers.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// "era config signal_pools[2]" and what is wrong there
[[noreturn]] void raise_pool_error(Arg index, const char* problem) {
    raise(PyExc_ValueError, format("era config signal_pools[%U]%s", text(index), problem));
}

Ref normalize_pool_config(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* pool = call[names.pool];
    PyObject* index = call[names.index];
    if (!is_dict(pool) && !optional_attribute(pool, names.is_correlation_threshold)) {
        raise(PyExc_ValueError, "era pool configs must expose name and is_correlation_threshold.");
    }
    const Ref name = attr_or_item(state, pool, names.name);
    if (!is_str(name) || !truth(name)) {
        raise_pool_error(index, " must expose non-empty name.");
    }
    const Ref threshold = attr_or_item(state, pool, names.is_correlation_threshold);
    if (threshold.is_none()) {
        raise_pool_error(index, " missing required is_correlation_threshold.");
    }
    if (!is_number(threshold)) {
        raise_pool_error(index, ".is_correlation_threshold must be numeric.");
    }
    const Ref make = load_global(state, names.SimpleNamespace);
    Keywords fields(3);
    fields.add(names.name, name.copy());
    fields.add(names.is_correlation_threshold, threshold.copy());
    fields.add(names.os_correlation_threshold,
               attr_or_item(state, pool, names.os_correlation_threshold));
    return fields.call(make);
}

// A mapping of pools counts by its values: its keys are labels.
Ref iter_pool_configs(const Call& call) {
    PyObject* raw_pools = call[call.names().raw_pools];
    if (is_dict(raw_pools)) {
        return list_of(call_method(raw_pools, call.names().values));
    }
    return list_of(raw_pools);
}

Ref normalized_pools(const ModuleState& state, Arg raw_pools) {
    const Ref pools = call_global(state, state.names()._iter_pool_configs, raw_pools);
    if (!truth(pools)) {
        raise(PyExc_ValueError,
              "era config must contain non-empty pool configs under 'signal_pools'.");
    }
    Ref normalized = new_list();
    Py_ssize_t index = 0;
    for_each(pools, [&](PyObject* pool) {
        const Ref position = new_int(index++);
        append(normalized,
               call_global(state, state.names()._normalize_pool_config, pool, position));
    });
    return normalized;
}

// The first candidate that has any pools decides, even when they turn out to be none or wrong.
Ref resolve_pool_configs(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    const Ref candidates =
        call_global(state, names._candidate_era_configs, call[names.onboarding_config],
                    call[names.active_handle], call[names.runtime]);
    Ref resolved;
    for_each_until(candidates, [&](PyObject* era_config) {
        const Ref raw_pools = call_global(state, names._extract_raw_pools, era_config);
        if (raw_pools.is_none()) {
            return true;
        }
        resolved = normalized_pools(state, raw_pools);
        return false;
    });
    if (resolved.empty()) {
        raise(PyExc_ValueError,
              "era config must contain non-empty pool configs under 'signal_pools'. Run register() "
              "or login(private_key) so the SDK runtime can bootstrap the active era config before "
              "calling analytics.");
    }
    return resolved;
}

}  // namespace

const FunctionDescription kNormalizePoolConfig = {
    "_normalize_pool_config", "Check one raw pool entry and return it as a pool config.",
    {"pool, index"},          {},
    normalize_pool_config,
};

const FunctionDescription kIterPoolConfigs = {
    "_iter_pool_configs", "Return the raw pool entries of a mapping or an iterable as a new list.",
    {"raw_pools"},        {},
    iter_pool_configs,
};

const FunctionDescription kResolvePoolConfigs = {
    "_resolve_pool_configs",
    "Return the checked pool configs of the first era configuration that has any.",
    {"onboarding_config, active_handle=None, runtime=None"},
    {},
    resolve_pool_configs,
};

}  // namespace search_analytics
