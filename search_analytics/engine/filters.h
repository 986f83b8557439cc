// The filters that every analytics operation shares.
#pragma once

#include "facade/function.h"
#include "names/names.h"

namespace search_analytics {

// Who applies a filter: the tracker, or we, by what the evaluation used on one side.
enum class FilterKind { kTracker, kFunctions, kFeatures };

struct Filter {
    PyObject* Names::* name;
    FilterKind kind;
};

// The filters in the order of every signature. None means that a filter is not in force.
inline constexpr Filter kFilters[] = {
    {&Names::era_id, FilterKind::kTracker},
    {&Names::eval_type, FilterKind::kTracker},
    {&Names::named_universe, FilterKind::kTracker},
    {&Names::metaparameters, FilterKind::kTracker},
    {&Names::function_family, FilterKind::kFunctions},
    {&Names::function_subfamily, FilterKind::kFunctions},
    {&Names::feature_family, FilterKind::kFeatures},
    {&Names::feature_subfamily, FilterKind::kFeatures},
    {&Names::strategy_pool_id, FilterKind::kTracker},
    {&Names::signal_pool_id, FilterKind::kTracker},
    {&Names::strategy_signal_pool, FilterKind::kTracker},
};

// The same, as signatures list them: what the search was set to, what the evaluation used, and
// where it went. The build fails where the two differ.
inline constexpr std::string_view kSettingFilterParameters =
    "era_id=None, eval_type=None, named_universe=None, metaparameters=None";
inline constexpr std::string_view kUsageFilterParameters =
    "function_family=None, function_subfamily=None, feature_family=None, feature_subfamily=None";
inline constexpr std::string_view kPoolFilterParameters =
    "strategy_pool_id=None, signal_pool_id=None, strategy_signal_pool=None";

// engine._validate_eval_type(eval_type)
void validate_eval_type(const Call& call);

// Every filter of a call, by keyword and in order.
Keywords filter_arguments(const Call& call);

// engine._fetch_evaluations(...) with every filter by keyword; the second for an operation that
// also takes `eval_pool`.
Ref fetch(const Call& call);
Ref fetch_from_pool(const Call& call);

// A new dictionary of the filters in force, by their names, as a result reports them: the
// tracker's first.
Ref filters_applied(const Call& call);

}  // namespace search_analytics
