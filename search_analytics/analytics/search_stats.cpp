// What works: performance statistics by group and time window.
#include "analytics/search_stats.h"

#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/grouped_sums.h"
#include "engine/record_maker.h"
#include "engine/row_order.h"
#include "engine/time_window.h"
#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// The windows to report, as a list of their own: all four, or those asked for.
Ref requested_windows(const ModuleState& state, PyObject* time_windows) {
    const Names& names = state.names;
    if (time_windows == Py_None) {
        Ref all = new_list();
        for (PyObject* name : {names.LIFETIME, names.ERA, names.LAST_WEEK, names.LAST_24H}) {
            append(all, time_window_member(state, name).get());
        }
        return all;
    }
    if (length(time_windows) == 0) {
        raise(PyExc_ValueError, "time_windows must be None or a non-empty list.");
    }
    const Ref distinct = Ref::steal(PySet_New(time_windows));
    if (length(distinct.get()) != length(time_windows)) {
        raise(PyExc_ValueError, "time_windows must not contain duplicates.");
    }
    return Ref::share(time_windows);
}

// Makes the rows of the result from the sums.
class RowWriter {
   public:
    RowWriter(const ModuleState& state, const GroupedSums& sums)
        : state_(state),
          sums_(sums),
          window_stats_(state, state.names.WindowStats),
          stats_row_(state, state.names.StatsRow) {}

    Ref row(std::size_t group) const {
        const Names& names = state_.names;
        const Ref windows = new_list();
        for (std::size_t window = 0; window < sums_.windows().size(); ++window) {
            append(windows, window_stats(group, window).get());
        }
        const Ref key = sums_.key(group);
        const Ref count = integer(sums_.count(group));
        return stats_row_.make({{names.group_key, key.get()},
                                {names.windows, windows.get()},
                                {names.evaluation_count, count.get()}});
    }

   private:
    Ref window_stats(std::size_t group, std::size_t window) const {
        const Names& names = state_.names;
        const WindowSums& sums = sums_.sums(group, window);
        const bool is_empty = sums.count() == 0;
        std::array<Ref, kMeasureCount> means;
        if (is_empty) {
            for (Ref& mean : means) {
                mean = real(0.0);
            }
        } else {
            means = sums.means();
        }
        const Ref yield_rate = real(is_empty ? 0.0 : ratio(sums.passed(), sums.count()));
        const Ref submittable = submittable_yield(group, window, sums.count());
        const Ref score = is_empty ? real(0.0) : composite_score(means);
        const Ref count = integer(sums.count());
        return window_stats_.make({{names.window, sums_.windows()[window].get()},
                                   {names.sharpe, means[kSharpe].get()},
                                   {names.returns, means[kReturns].get()},
                                   {names.turnover, means[kTurnover].get()},
                                   {names.drawdown, means[kDrawdown].get()},
                                   {names.correlation, means[kCorrelation].get()},
                                   {names.yield_rate, yield_rate.get()},
                                   {names.submittable_yield, submittable.get()},
                                   {names.composite_score, score.get()},
                                   {names.evaluation_count, count.get()}});
    }

    // The share of the window's evaluations that each pool would take, by the pool's name.
    Ref submittable_yield(std::size_t group, std::size_t window, Py_ssize_t count) const {
        Ref shares = new_dict();
        const auto& pools = sums_.pools();
        for (std::size_t pool = 0; pool < pools.size(); ++pool) {
            const double share =
                count == 0 ? 0.0 : ratio(sums_.submittable(group, window, pool), count);
            set_item(shares, pools[pool].name.get(), real(share).get());
        }
        return shares;
    }

    const ModuleState& state_;
    const GroupedSums& sums_;
    RecordMaker window_stats_;
    RecordMaker stats_row_;
};

Ref shown_rows(const ModuleState& state, const GroupedSums& sums, PyObject* min_sample_size) {
    const RowWriter writer(state, sums);
    Ref rows = new_list();
    for (std::size_t group = 0; group < sums.size(); ++group) {
        if (!compare(integer(sums.count(group)).get(), min_sample_size, Py_LT)) {
            append(rows, writer.row(group).get());
        }
    }
    return rows;
}

Ref make_result(const Call& call, const Ref& rows, const Ref& filters_applied,
                Py_ssize_t total_evaluations, Py_ssize_t total_groups) {
    const Names& names = call.names();
    const Ref evaluations = integer(total_evaluations);
    const Ref groups = integer(total_groups);
    const Ref shown = integer(list_size(rows));
    return RecordMaker(call.state(), names.SearchStatsResult)
        .make({{names.rows, rows.get()},
               {names.aggregate_by, call[names.aggregate_by]},
               {names.eval_pool, call[names.eval_pool]},
               {names.filters_applied, filters_applied.get()},
               {names.total_evaluations, evaluations.get()},
               {names.total_groups, groups.get()},
               {names.groups_shown, shown.get()}});
}

Ref get_search_stats(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* self = call[names.self];
    const Filters filters(call);
    filters.validate_eval_type(state, self);
    require_sample_size(call[names.min_sample_size]);
    const Ref windows = requested_windows(state, call[names.time_windows]);

    const Ref evals = filters.fetch(state, self, call[names.eval_pool]);
    const Ref filters_applied = filters.applied(state);
    if (!truth(evals.get())) {
        return make_result(call, new_list(), filters_applied, 0, 0);
    }
    GroupedSums sums(state, {self, filters.era_id, call[names.aggregate_by], call[names.pnl_column],
                             windows.get()});
    for_each(evals.get(), [&](PyObject* ev) { sums.add(ev); });

    const Ref rows = shown_rows(state, sums, call[names.min_sample_size]);
    sort_rows(state, rows,
              truth(call[names.sort_ascending]) ? Direction::kAscending : Direction::kDescending);
    return make_result(call, rows, filters_applied, length(evals.get()),
                       static_cast<Py_ssize_t>(sums.size()));
}

}  // namespace

const FunctionDescription kGetSearchStats = {
    "get_search_stats",
    "Aggregated performance statistics with flexible grouping.",
    {"self", kHistoryFilterParameters, kPoolFilterParameters,
     "aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY, eval_pool=EvalPool.ALL, "
     "time_windows=None, pnl_column=None, min_sample_size=100, sort_ascending=False"},
    "SearchStatsResult",
    get_search_stats,
};

}  // namespace search_analytics
