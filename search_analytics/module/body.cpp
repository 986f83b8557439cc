// What running the module's body does: every name is bound, in a fixed order.
#include "engine/functions.h"
#include "environment/helpers.h"
#include "facade/statement.h"
#include "facade/traceback.h"
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

constexpr long kHistoryLimit = 10000;
constexpr std::string_view kAuthRequiredMessage =
    "No wallet initialized. Call register() or login() first.";

void bind_imports(ModuleState& state) {
    const Names& names = state.names();
    const std::pair<const char*, PyObject*> imports[] = {
        {"import os as _os", names._os},
        {"import sys as _sys", names._sys},
        {"import time", names.time},
        {"import math", names.math},
        {"from dataclasses import dataclass", names.dataclass},
        {"from dataclasses import field", names.field},
        {"from enum import Enum", names.Enum},
        {"from types import SimpleNamespace", names.SimpleNamespace},
        {"from typing import List", names.List},
        {"from typing import Optional", names.Optional},
        {"from typing import Tuple", names.Tuple},
        {"from typing import FrozenSet", names.FrozenSet},
    };
    for (const auto& [statement, name] : imports) {
        bind_global(state, name, import_statement(state, statement, name));
    }
}

void bind_function(ModuleState& state, const FunctionDescription& description) {
    bind_global(state, interned_str(description.name), make_function(state, description));
}

void bind_tracker_helpers(ModuleState& state) {
    for (const FunctionDescription* description :
         {&kTrackerTableExists, &kSubmissionStatusTableAndSignalColumn, &kPnlMiTamperDelta}) {
        bind_function(state, *description);
    }
}

void bind_resolution_helpers(ModuleState& state) {
    for (const FunctionDescription* description :
         {&kGetAttrOrItem, &kUnwrapEraConfig, &kCandidateEraConfigs, &kRuntimeFromOnboarding,
          &kExtractRawPools, &kNormalizePoolConfig, &kIterPoolConfigs, &kUsageItems,
          &kFunctionItems, &kFeatureItems, &kUsageValue, &kResolvePoolConfigs,
          &kAuthFromOnboardingOrSearch, &kRequireRegisteredOrLoggedIn, &kActiveSearchHandle,
          &kTrackerFromConfig, &kResolveTrackerAndPools}) {
        bind_function(state, *description);
    }
}

// Keeps the members of a class that Python code could change, and the code of the functions among
// them, which could be exchanged inside of them.
void keep_members(const Ref& bound, Arg object) {
    if (!is_python_class(object)) {
        return;
    }
    const Ref members = copy_of_dict(members_of_class(object));
    set_item(bound, object, members);
    for_each(items_of_dict(members), [&](PyObject* entry) {
        const auto [name, member] = as_pair(entry);
        if (PyObject* code = code_of_function(member)) {
            set_item(bound, member, code);
        }
    });
}

// Keeps what the body bound, so that a caller's replacement is recognised later: every name, and
// the members of every class.
void remember_originals(ModuleState& state) {
    const Ref bound = copy_of_dict(state.globals());
    for_each(items_of_dict(state.globals()),
             [&](PyObject* entry) { keep_members(bound, as_pair(entry).second); });
    // The class of the enumerations decides on what looking a member up means.
    keep_members(bound, type_of(load_global(state, state.names().AggregateBy)));
    // What the tamper test asks, under a name that no global of the module has.
    const Ref math = load_global(state, state.names().math);
    set_item(bound, state.names().isfinite, attribute(math, state.names().isfinite));
    state.bound = bound.copy().release();
}

void run_steps(ModuleState& state) {
    const Names& names = state.names();
    bind_imports(state);
    bind_function(state, kAliasSourceFile);
    call_global(state, names._alias_source_file);
    bind_global(state, names.history_limit, new_int(kHistoryLimit));
    bind_tracker_helpers(state);
    bind_enumerations(state);
    bind_records(state);
    bind_key_maps(state);
    bind_global(state, names.auth_required_message, new_str(kAuthRequiredMessage));
    bind_resolution_helpers(state);
    bind_engine_class(state);
    bind_global(state, names._singleton, Py_None);
    bind_function(state, kGetOrInit);
    bind_operations(state);
    remember_originals(state);
}

constexpr InnerFunction kBody = {"<module>", {}};

}  // namespace

void run_body(ModuleState& state) {
    in_place_of(state, kBody, [&] { run_steps(state); });
}

}  // namespace search_analytics
