// What to try next, and what to leave.
#include "analytics/questions.h"
#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/row_order.h"
#include "engine/score.h"
#include "engine/time_window.h"
#include "facade/record_maker.h"

namespace search_analytics {

namespace {

// The lifetime statistics, best groups first, asked of the engine as a caller would.
Ref lifetime_stats(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    const Ref method = attribute(call[names.self], names.get_search_stats);
    Keywords arguments = filter_arguments(call);
    arguments.add(names.aggregate_by, call[names.aggregate_by]);
    arguments.add(names.eval_pool, attribute(load_global(state, names.EvalPool), names.ALL));
    const Ref windows = new_list();
    append(windows, time_window_member(state, names.LIFETIME));
    arguments.add(names.time_windows, windows.get());
    arguments.add(names.pnl_column, call[names.pnl_column]);
    arguments.add(names.min_sample_size, call[names.min_sample_size]);
    arguments.add(names.sort_ascending, Py_False);
    return arguments.call(method);
}

// sorted(rows, ...), by ascending score
Ref worst_first(ModuleState& state, const Ref& rows) {
    Ref sorted = list_of(rows);
    if (!are_original_rows(state, sorted) ||
        !sort_original_rows(state.names(), sorted, Direction::kAscending)) {
        sort_rows(state, sorted, Direction::kAscending, "SearchAnalytics.get_suggestions.<locals>");
    }
    return sorted;
}

Ref get_suggestions(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    require_sample_size(call[names.min_sample_size]);
    require_top_n(call[names.top_n]);
    Ref stats = lifetime_stats(call);
    Ref rows = attribute(stats, names.rows);
    const Ref focus = first_items(rows, call[names.top_n]);
    const Ref avoid = first_items(worst_first(state, rows), call[names.top_n]);
    Ref result = RecordMaker(state, names.SuggestionsResult)
                     .make({{names.focus, focus},
                            {names.avoid, avoid},
                            {names.aggregate_by, call[names.aggregate_by]},
                            {names.scoring_formula, kScoringFormula}});
    stats = Ref();
    drop_in_turns(std::move(rows));
    return result;
}

}  // namespace

const RecordDescription kSuggestionsResult = {
    "SuggestionsResult",
    "Result from get_suggestions().",
    {{"focus", "List[StatsRow]", Default::kList},
     {"avoid", "List[StatsRow]", Default::kList},
     {"aggregate_by", "Optional[object]", Default::kNone},
     {"scoring_formula", "str", Default::kEmptyText}},
};

const FunctionDescription kGetSuggestions = {
    "get_suggestions",
    "Composite-scored focus/avoid suggestions.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, kPoolFilterParameters,
     "aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY, pnl_column=None, "
     "min_sample_size=100, top_n=10"},
    "SuggestionsResult",
    get_suggestions,
};

}  // namespace search_analytics
