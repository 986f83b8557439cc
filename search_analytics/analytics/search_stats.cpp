// What works: performance statistics by group and time window.
#include "analytics/search_stats.h"

#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/grouped_sums.h"
#include "engine/record_maker.h"
#include "engine/row_order.h"
#include "engine/time_window.h"
#include "host/containers.h"
#include "host/tracking.h"

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
          stats_row_(state, state.names.StatsRow),
          zero_(real(0.0)) {}

    // Whether the rows are the module's own records, which nobody has seen yet.
    bool makes_plain_rows() const {
        return window_stats_.is_original() && stats_row_.is_original();
    }

    Ref row(std::size_t group) {
        const Names& names = state_.names;
        const Ref windows = deferred(new_list());
        for (std::size_t window = 0; window < sums_.windows().size(); ++window) {
            append(windows, window_stats(group, window).get());
        }
        const Ref key = sums_.key(group);
        if (makes_plain_rows() && sums_.makes_new_keys()) {
            tracking_.defer(key.get());
            tracking_.defer(PyTuple_GET_ITEM(key.get(), 0));
            tracking_.defer(PyTuple_GET_ITEM(key.get(), 1));
        }
        const Ref count = integer(sums_.count(group));
        return deferred(stats_row_.make({{names.group_key, key.get()},
                                         {names.windows, windows.get()},
                                         {names.evaluation_count, count.get()}}));
    }

    // To be called when the last row is made.
    void finish() { tracking_.finish(); }

   private:
    Ref deferred(Ref container) {
        if (makes_plain_rows()) {
            tracking_.defer(container.get());
        }
        return container;
    }

    Ref window_stats(std::size_t group, std::size_t window) {
        const Names& names = state_.names;
        const WindowSums& sums = sums_.sums(group, window);
        const bool is_empty = sums.count() == 0;
        std::array<Ref, kMeasureCount> means;
        if (is_empty) {
            for (Ref& mean : means) {
                mean = zero_.copy();
            }
        } else {
            means = sums.means();
        }
        const Ref yield_rate = is_empty ? zero_.copy() : real(ratio(sums.passed(), sums.count()));
        const Ref submittable = submittable_yield(group, window, sums.count());
        const Ref score = is_empty ? zero_.copy() : composite_score(means);
        const Ref count = integer(sums.count());
        return deferred(window_stats_.make({{names.window, sums_.windows()[window].get()},
                                            {names.sharpe, means[kSharpe].get()},
                                            {names.returns, means[kReturns].get()},
                                            {names.turnover, means[kTurnover].get()},
                                            {names.drawdown, means[kDrawdown].get()},
                                            {names.correlation, means[kCorrelation].get()},
                                            {names.yield_rate, yield_rate.get()},
                                            {names.submittable_yield, submittable.get()},
                                            {names.composite_score, score.get()},
                                            {names.evaluation_count, count.get()}}));
    }

    // The share of the window's evaluations that each pool would take, by the pool's name.
    Ref submittable_yield(std::size_t group, std::size_t window, Py_ssize_t count) const {
        Ref shares = new_dict();
        const auto& pool_names = sums_.pool_names();
        for (std::size_t pool = 0; pool < pool_names.size(); ++pool) {
            const Ref share = count == 0
                                  ? zero_.copy()
                                  : real(ratio(sums_.submittable(group, window, pool), count));
            set_item(shares, pool_names[pool].get(), share.get());
        }
        return shares;
    }

    const ModuleState& state_;
    const GroupedSums& sums_;
    RecordMaker window_stats_;
    RecordMaker stats_row_;
    Ref zero_;
    DeferredTracking tracking_;
};

// The groups that are large enough, as sorted rows.
Ref shown_rows(const Call& call, const GroupedSums& sums) {
    ModuleState& state = call.state();
    PyObject* min_sample_size = call[state.names.min_sample_size];
    RowWriter writer(state, sums);
    Ref rows = new_list();
    for (std::size_t group = 0; group < sums.size(); ++group) {
        if (!compare(integer(sums.count(group)).get(), min_sample_size, Py_LT)) {
            append(rows, writer.row(group).get());
        }
    }
    writer.finish();
    const Direction direction =
        truth(call[state.names.sort_ascending]) ? Direction::kAscending : Direction::kDescending;
    if (!writer.makes_plain_rows() || !sort_plain_rows(state.names, rows, direction)) {
        sort_rows(state, rows, direction);
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
    sums.add_all(evals.get());

    const Ref rows = shown_rows(call, sums);
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
