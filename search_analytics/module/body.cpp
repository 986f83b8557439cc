// What running the module's body does: every name is bound, in a fixed order.
#include "module/body.h"

#include <string>

#include "engine/schema.h"
#include "engine/tamper.h"
#include "engine/usage.h"
#include "environment/attr_or_item.h"
#include "environment/era_config.h"
#include "environment/login.h"
#include "environment/pool_config.h"
#include "environment/search_handle.h"
#include "environment/tracker.h"
#include "host/containers.h"
#include "host/statement.h"
#include "module/functions.h"
#include "module/records.h"
#include "module/singleton.h"
#include "module/source_alias.h"
#include "module/vocabulary.h"

namespace search_analytics {

using namespace host;

namespace {

constexpr long kHistoryLimit = 10000;
constexpr std::string_view kAuthRequiredMessage =
    "No wallet initialized. Call register() or login() first.";

void bind_imports(ModuleState& state) {
    const Names& names = state.names;
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
        bind_global(state, name, import_statement(state, statement, name).get());
    }
}

void bind_function(ModuleState& state, const FunctionDescription& description) {
    const Ref name = Ref::steal(PyUnicode_InternFromString(std::string(description.name).c_str()));
    bind_global(state, name.get(), make_function(state, description).get());
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

// Whether an object is a class that Python code, or the like of it, made; the interpreter's own
// keep their members elsewhere.
bool is_class_statement(PyObject* object) {
    return PyType_Check(object) &&
           PyType_HasFeature(reinterpret_cast<PyTypeObject*>(object), Py_TPFLAGS_HEAPTYPE);
}

// Keeps what the body bound, so that a caller's replacement is recognised later: every name, and
// the members of every class.
void remember_originals(ModuleState& state) {
    const Ref bound = Ref::steal(PyDict_Copy(state.globals()));
    const Ref values = Ref::steal(PyDict_Values(state.globals()));
    for_each(values.get(), [&](PyObject* value) {
        if (is_class_statement(value)) {
            const auto* type = reinterpret_cast<PyTypeObject*>(value);
            set_item(bound, value, Ref::steal(PyDict_Copy(type->tp_dict)).get());
        }
    });
    // What the tamper test asks, under a name that no global of the module has.
    const Ref math = load_global(state, state.names.math);
    set_item(bound, state.names.isfinite, attribute(math.get(), state.names.isfinite).get());
    state.bound = bound.copy().release();
}

}  // namespace

void run_body(ModuleState& state) {
    const Names& names = state.names;
    bind_imports(state);
    bind_function(state, kAliasSourceFile);
    call_global(state, names._alias_source_file);
    bind_global(state, names.history_limit, integer(kHistoryLimit).get());
    bind_tracker_helpers(state);
    bind_enumerations(state);
    bind_records(state);
    bind_key_maps(state);
    bind_global(state, names.auth_required_message, unicode(kAuthRequiredMessage).get());
    bind_resolution_helpers(state);
    bind_engine_class(state);
    bind_global(state, names._singleton, Py_None);
    bind_function(state, kGetOrInit);
    bind_operations(state);
    remember_originals(state);
}

}  // namespace search_analytics
