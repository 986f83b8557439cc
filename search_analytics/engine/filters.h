// The filters that every analytics operation shares.
#pragma once

#include "host/function.h"

namespace search_analytics {

// The parameters of the eleven filters, as signatures list them.
inline constexpr std::string_view kHistoryFilterParameters =
    "era_id=None, eval_type=None, named_universe=None, metaparameters=None, "
    "function_family=None, function_subfamily=None, feature_family=None, feature_subfamily=None";
inline constexpr std::string_view kPoolFilterParameters =
    "strategy_pool_id=None, signal_pool_id=None, strategy_signal_pool=None";

// One call's filters, borrowed from the call. None means that the filter is not in force.
struct Filters {
    explicit Filters(const host::Call& call);

    PyObject* era_id;
    PyObject* eval_type;
    PyObject* named_universe;
    PyObject* metaparameters;
    PyObject* function_family;
    PyObject* function_subfamily;
    PyObject* feature_family;
    PyObject* feature_subfamily;
    PyObject* strategy_pool_id;
    PyObject* signal_pool_id;
    PyObject* strategy_signal_pool;

    // engine._validate_eval_type(eval_type)
    void validate_eval_type(const host::ModuleState& state, PyObject* engine) const;

    // engine._fetch_evaluations(...) with every filter by keyword; `eval_pool` may be null for an
    // operation that has no such argument.
    host::Ref fetch(const host::ModuleState& state, PyObject* engine, PyObject* eval_pool) const;

    // A dictionary of the filters in force, by their names, as a result reports them.
    host::Ref applied(const host::ModuleState& state) const;
};

}  // namespace search_analytics
