// Where an era configuration can stand, and how its pools are read from it.
#include "environment/helpers.h"
#include "facade/generator.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// A wrapper mapping gives what it wraps, an object its own dictionary form.
Ref unwrap_era_config(const Call& call) {
    const Names& names = call.names();
    PyObject* value = call[names.value];
    if (value == Py_None) {
        return Ref::none();
    }
    if (is_dict(value) && is_dict(call_method(value, names.get, names.era_config))) {
        return item(value, names.era_config);
    }
    const Ref to_dict = attribute_or_none(value, names.to_dict);
    if (is_callable(to_dict)) {
        return search_analytics::call(to_dict);
    }
    return Ref::share(value);
}

// `_unwrap_era_config(value())`: the function is looked up before its argument is worked out.
template <typename Value>
Ref unwrapped(const ModuleState& state, Value&& value) {
    const Ref unwrap = load_global(state, state.names()._unwrap_era_config);
    return call(unwrap, value());
}

// The places in their order of precedence: four keys of the onboarding configuration, that
// configuration itself, the active search handle, the runtime. A place is looked at only when the
// consumer gets that far.
constexpr int kKeyCount = 4;
enum Place : int { kOnboardingConfig = kKeyCount, kActiveHandle, kRuntime, kPlaceCount };

std::optional<Ref> candidate(ModuleState& state, PyObject* arguments, int step) {
    const Names& names = state.names();
    PyObject* onboarding_config = tuple_item(arguments, 0);
    PyObject* active_handle = tuple_item(arguments, 1);
    PyObject* runtime = tuple_item(arguments, 2);
    if (step < kKeyCount) {
        PyObject* const keys[kKeyCount] = {names.era_config, names.current_era_config,
                                           names.synced_era_config, names.era};
        PyObject* key = keys[step];
        if (!is_dict(onboarding_config) || !contains(onboarding_config, key)) {
            return std::nullopt;
        }
        return unwrapped(state, [&] { return call_method(onboarding_config, names.get, key); });
    }
    if (step == kOnboardingConfig && is_dict(onboarding_config)) {
        return unwrapped(state, [&] { return Arg(onboarding_config); });
    }
    if (step == kActiveHandle && active_handle != Py_None) {
        return unwrapped(state,
                         [&] { return attribute_or_none(active_handle, names._era_config); });
    }
    if (step == kRuntime && runtime != Py_None) {
        return unwrapped(state, [&] { return attribute_or_none(runtime, names.era_config); });
    }
    return std::nullopt;
}

Ref candidate_era_configs(const Call& call) {
    const Names& names = call.names();
    Ref arguments =
        tuple_of(call[names.onboarding_config], call[names.active_handle], call[names.runtime]);
    return make_generator(call.state(), kCandidateEraConfigs, std::move(arguments), candidate,
                          kPlaceCount);
}

Ref extract_raw_pools(const Call& call) {
    const Ref era_config =
        call_global(call.state(), call.names()._unwrap_era_config, call[call.names().era_config]);
    if (era_config.is_none()) {
        return Ref::none();
    }
    return attr_or_item(call.state(), era_config, call.names().signal_pools);
}

}  // namespace

const FunctionDescription kUnwrapEraConfig = {
    "_unwrap_era_config",
    "Return the readable era configuration behind a value, or None.",
    {"value"},
    {},
    unwrap_era_config,
};

const FunctionDescription kCandidateEraConfigs = {
    "_candidate_era_configs",
    "Yield the era configurations that could be in force, the most specific first.",
    {"onboarding_config, active_handle=None, runtime=None"},
    {},
    candidate_era_configs,
    true,
};

const FunctionDescription kExtractRawPools = {
    "_extract_raw_pools",
    "Return the signal pools of an era configuration as they stand there, or None.",
    {"era_config"},
    {},
    extract_raw_pools,
};

}  // namespace search_analytics
