// What to try next, and what to leave.
#include "analytics/suggestions.h"

#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/record_maker.h"
#include "engine/row_order.h"
#include "engine/time_window.h"
#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

constexpr std::string_view kScoringFormula =
    "sharpe * (1 - correlation) * (1 / max(turnover, 0.01))";

// The lifetime statistics, best groups first, asked of the engine as a caller would.
Ref lifetime_stats(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    const Ref method = attribute(call[names.self], names.get_search_stats);
    const Ref windows = new_list();
    const Ref eval_pools = load_global(state, names.EvalPool);
    Ref all = attribute(eval_pools.get(), names.ALL);
    append(windows, time_window_member(state, names.LIFETIME).get());
    Keywords arguments(17);
    for (PyObject* name : {names.era_id, names.eval_type, names.named_universe,
                           names.metaparameters, names.function_family, names.function_subfamily,
                           names.feature_family, names.feature_subfamily, names.strategy_pool_id,
                           names.signal_pool_id, names.strategy_signal_pool, names.aggregate_by}) {
        arguments.add(name, call[name]);
    }
    arguments.add(names.eval_pool, std::move(all));
    arguments.add(names.time_windows, windows.get());
    arguments.add(names.pnl_column, call[names.pnl_column]);
    arguments.add(names.min_sample_size, call[names.min_sample_size]);
    arguments.add(names.sort_ascending, Py_False);
    return arguments.call(method.get());
}

Ref get_suggestions(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    require_sample_size(call[names.min_sample_size]);
    require_top_n(call[names.top_n]);
    const Ref stats = lifetime_stats(call);
    const Ref rows = attribute(stats.get(), names.rows);
    const Ref focus = first_items(rows.get(), call[names.top_n]);
    const Ref worst_first = list_of(rows.get());
    sort_rows(state, worst_first, Direction::kAscending);
    const Ref avoid = first_items(worst_first.get(), call[names.top_n]);
    const Ref formula = unicode(kScoringFormula);
    return RecordMaker(state, names.SuggestionsResult)
        .make({{names.focus, focus.get()},
               {names.avoid, avoid.get()},
               {names.aggregate_by, call[names.aggregate_by]},
               {names.scoring_formula, formula.get()}});
}

}  // namespace

const FunctionDescription kGetSuggestions = {
    "get_suggestions",
    "Composite-scored focus/avoid suggestions.",
    {"self", kHistoryFilterParameters, kPoolFilterParameters,
     "aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY, pnl_column=None, "
     "min_sample_size=100, top_n=10"},
    "SuggestionsResult",
    get_suggestions,
};

}  // namespace search_analytics
