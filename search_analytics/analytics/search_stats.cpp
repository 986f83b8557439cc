// What works: performance statistics by group and time window.
#include "analytics/questions.h"
#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/group_key.h"
#include "engine/group_sums.h"
#include "engine/row_order.h"
#include "engine/score.h"
#include "engine/statistic.h"
#include "engine/time_window.h"
#include "facade/record_maker.h"
#include "facade/traceback.h"
#include "facade/tracking.h"

namespace search_analytics {

namespace {

// The windows to report: all four, or those asked for.
Ref requested_windows(const ModuleState& state, Arg time_windows) {
    const Names& names = state.names();
    if (time_windows.is_none()) {
        Ref all = new_list();
        for (PyObject* name : {names.LIFETIME, names.ERA, names.LAST_WEEK, names.LAST_24H}) {
            append(all, time_window_member(state, name));
        }
        return all;
    }
    if (length(time_windows) == 0) {
        raise(PyExc_ValueError, "time_windows must be None or a non-empty list.");
    }
    if (length(set_of(time_windows)) != length(time_windows)) {
        raise(PyExc_ValueError, "time_windows must not contain duplicates.");
    }
    return time_windows.share();
}

// The windows in the order in which they are reported, and where each kind stands among them.
class Windows {
   public:
    enum Kind : std::size_t { kLifetime, kEra, kLastWeek, kLastDay, kKindCount };

    Windows(const ModuleState& state, Arg requested) {
        for_each(list_of(requested), [&](PyObject* window) {
            note_kind(state, window);
            windows_.push_back(Ref::share(window));
        });
    }

    std::size_t size() const { return windows_.size(); }
    const Ref& operator[](std::size_t place) const { return windows_[place]; }
    std::optional<std::size_t> place_of(Kind kind) const { return places_[kind]; }

   private:
    // A window that equals several members counts as the first of them.
    void note_kind(const ModuleState& state, PyObject* window) {
        const Names& names = state.names();
        PyObject* const members[kKindCount] = {names.LIFETIME, names.ERA, names.LAST_WEEK,
                                               names.LAST_24H};
        for (std::size_t kind = 0; kind < kKindCount; ++kind) {
            if (equal(window, time_window_member(state, members[kind]))) {
                places_[kind] = windows_.size();
                return;
            }
        }
    }

    std::vector<Ref> windows_;
    std::array<std::optional<std::size_t>, kKindCount> places_;
};

// The engine's pools: their names, and the correlations that they allow.
struct Pools {
    Pools(const Names& state_names, Arg engine) {
        for_each(attribute(engine, state_names._pool_configs),
                 [&](PyObject* pool) { names.push_back(attribute(pool, state_names.name)); });
        for_each(attribute(engine, state_names._pool_configs), [&](PyObject* pool) {
            thresholds.emplace_back(attribute(pool, state_names.is_correlation_threshold));
            are_floats = are_floats && thresholds.back().is_float();
        });
    }

    std::vector<Ref> names;
    std::vector<Bound> thresholds;
    bool are_floats = true;
};

// All evaluations summed up by group and window. What does not change from one to the next is read
// once, in the order of the members; all are measured against the same moment.
class Statistics {
   public:
    Statistics(const Call& call, Arg time_windows)
        : names_(call.names()),
          era_id_(call[names_.era_id]),
          column_(names_, call[names_.pnl_column]),
          now_(current_time(call.state())),
          week_(cutoff_before(now_, kSecondsPerWeek)),
          day_(cutoff_before(now_, kSecondsPerDay)),
          windows_(call.state(), time_windows),
          pools_(names_, call[names_.self]),
          key_(call.state(), call[names_.self], call[names_.aggregate_by]),
          sums_(windows_.size(), pools_.names.size()) {}

    // Counts every evaluation into its group, and into each window that it falls into.
    void count(const ModuleState& state, Arg evals);

    const Windows& windows() const { return windows_; }
    const Pools& pools() const { return pools_; }
    const GroupSums& sums() const { return sums_; }
    const GroupTable& groups() const { return key_.groups(); }

   private:
    const Names& names_;
    PyObject* era_id_;
    ColumnStatistics column_;
    Ref now_;
    Bound week_;
    Bound day_;
    Windows windows_;
    Pools pools_;
    GroupKey key_;
    GroupSums sums_;
};

// What tracebacks show of the function that counts into one window.
constexpr InnerFunction kCountInto = {"count_into", "SearchAnalytics.get_search_stats.<locals>"};

void Statistics::count(const ModuleState& state, Arg evals) {
    Number turnover(names_.turnover);
    Number correlation(names_.correlation);
    Flag passed(names_.passed_thresholds);
    Number timestamp(names_.timestamp);
    Comparand era(names_.era_id, era_id_);
    Measures measures;
    std::vector<std::uint8_t> is_submittable(pools_.thresholds.size());
    bool sums_are_doubles = true;

    const bool bounds_are_floats = week_.is_float() && day_.is_float() && pools_.are_floats;
    const auto may_peek = [&] { return bounds_are_floats && sums_are_doubles && key_.may_peek(); };
    const auto count = [&](auto ev) {
        measures.start();
        auto column = column_(ev);
        measures.set(kSharpe, std::move(column[ColumnStatistics::kSharpe]));
        measures.set(kReturns, std::move(column[ColumnStatistics::kReturns]));
        measures.set(kDrawdown, std::move(column[ColumnStatistics::kDrawdown]));
        measures.set(kTurnover, turnover(ev));
        const auto correlated = correlation(ev);
        measures.set(kCorrelation, copy_of(correlated));
        measures.set_passed(passed(ev));
        sums_are_doubles = sums_are_doubles && measures.are_doubles();
        // A failed evaluation may have no correlation at all: test `passed` first.
        for (std::size_t pool = 0; pool < is_submittable.size(); ++pool) {
            const bool is_taken = measures.passed() && pools_.thresholds[pool].exceeds(correlated);
            is_submittable[pool] = is_taken ? 1 : 0;
        }
        const std::size_t group = key_(ev);
        sums_.count_into(group);
        const auto moment = timestamp(ev);
        const auto evaluated_in = era(ev);
        const auto count_into = [&](Windows::Kind kind, auto&& includes) {
            if (const auto place = windows_.place_of(kind); place && includes()) {
                const auto add = [&] { sums_.add(group, *place, measures, is_submittable); };
                if constexpr (std::is_same_v<decltype(ev), Peeked>) {
                    add();
                } else {
                    in_place_of(state, kCountInto, add);
                }
            }
        };
        count_into(Windows::kLifetime, [] { return true; });
        count_into(Windows::kEra, [&] { return era_id_ == Py_None || era.matches(evaluated_in); });
        count_into(Windows::kLastWeek, [&] { return week_.is_reached_by(moment); });
        count_into(Windows::kLastDay, [&] { return day_.is_reached_by(moment); });
    };
    for_each_evaluation(evals, may_peek, count, column_, turnover, correlation, passed, timestamp,
                        era, key_);
}

// Makes the rows of the result from the sums.
class RowWriter {
   public:
    RowWriter(const ModuleState& state, const Statistics& statistics)
        : names_(state.names()),
          statistics_(statistics),
          window_stats_(state, names_.WindowStats),
          stats_row_(state, names_.StatsRow),
          zero_(new_float(0.0)) {}

    // Whether all rows are the module's own records, which nobody has seen yet, and reading them
    // runs no code.
    bool has_original_rows() {
        return are_original_ && window_stats_.is_still_original() && stats_row_.is_still_original();
    }

    Ref row(std::size_t group, Ref key) {
        const Ref windows = new_list();
        for (std::size_t window = 0; window < statistics_.windows().size(); ++window) {
            append(windows, window_stats(group, window));
        }
        are_original_ = are_original_ && stats_row_.is_original();
        Ref made = stats_row_.make({{names_.group_key, key},
                                    {names_.windows, windows},
                                    {names_.evaluation_count, statistics_.sums().count(group)}});
        if (are_original_) {
            defer_tracking(made, windows, key);
        }
        return made;
    }

    // To be called when the last row is made.
    void finish() { tracking_.finish(); }

   private:
    // Keeps what was made of a row out of the collector's sight; the key, too, where it is a pair
    // of new sets that nobody else has seen.
    void defer_tracking(const Ref& row, const Ref& windows, const Ref& key) {
        tracking_.defer(windows, row);
        if (statistics_.groups().is_exact()) {
            tracking_.defer(key, tuple_item(key, 0), tuple_item(key, 1));
        }
    }

    Ref window_stats(std::size_t group, std::size_t window) {
        const WindowSums& sums = statistics_.sums().sums(group, window);
        if (sums.count() == 0) {
            return empty_window(window);
        }
        return sums.are_doubles() ? filled_window(group, window, sums.double_means())
                                  : filled_window(group, window, sums.object_means());
    }

    Ref empty_window(std::size_t window) {
        window_stats_.prepare();
        const Ref shares = shares_of([&](std::size_t) { return zero_.copy(); });
        const std::array<Ref, kMeasureCount> zeros = {zero_.copy(), zero_.copy(), zero_.copy(),
                                                      zero_.copy(), zero_.copy()};
        return made(window, zeros, zero_.copy(), shares, zero_.copy(), 0);
    }

    template <typename Means>
    Ref filled_window(std::size_t group, std::size_t window, const Means& means) {
        const GroupSums& sums = statistics_.sums();
        const Py_ssize_t count = sums.sums(group, window).count();
        const double yield_rate = ratio(sums.sums(group, window).passed(), count);
        const Ref shares = shares_of([&](std::size_t pool) {
            return new_float(ratio(sums.submittable(group, window, pool), count));
        });
        auto score = composite_score(means);
        window_stats_.prepare();
        return made(window, means, yield_rate, shares, std::move(score), count);
    }

    // The share of a window's evaluations that each pool would take, by the pool's name.
    template <typename ShareOf>
    Ref shares_of(ShareOf&& share_of) const {
        Ref shares = new_dict();
        const std::vector<Ref>& pools = statistics_.pools().names;
        for (std::size_t pool = 0; pool < pools.size(); ++pool) {
            set_item(shares, pools[pool], share_of(pool));
        }
        return shares;
    }

    template <typename Means>
    Ref made(std::size_t window, const Means& means, FieldValue yield_rate, const Ref& shares,
             FieldValue score, Py_ssize_t count) {
        Ref stats = window_stats_.make_prepared({{names_.window, statistics_.windows()[window]},
                                                 {names_.sharpe, means[kSharpe]},
                                                 {names_.returns, means[kReturns]},
                                                 {names_.turnover, means[kTurnover]},
                                                 {names_.drawdown, means[kDrawdown]},
                                                 {names_.correlation, means[kCorrelation]},
                                                 {names_.yield_rate, std::move(yield_rate)},
                                                 {names_.submittable_yield, shares},
                                                 {names_.composite_score, std::move(score)},
                                                 {names_.evaluation_count, count}});
        are_original_ = are_original_ && window_stats_.was_original();
        if (are_original_) {
            tracking_.defer(stats, shares);
        }
        return stats;
    }

    const Names& names_;
    const Statistics& statistics_;
    RecordMaker window_stats_;
    RecordMaker stats_row_;
    Ref zero_;
    bool are_original_ = true;
    DeferredTracking tracking_;
};

// The groups that are large enough, as sorted rows.
Ref shown_rows(const Call& call, const Statistics& statistics) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* min_sample_size = call[names.min_sample_size];
    RowWriter writer(state, statistics);
    Ref rows = new_list();
    statistics.groups().for_each_group([&](std::size_t group, auto&& key) {
        const Py_ssize_t count = statistics.sums().count(group);
        if (!compare(new_int(count), min_sample_size, Py_LT)) {
            append(rows, writer.row(group, key()));
        }
    });
    writer.finish();
    const Direction direction =
        truth(call[names.sort_ascending]) ? Direction::kAscending : Direction::kDescending;
    if (!writer.has_original_rows() || !sort_original_rows(names, rows, direction)) {
        sort_rows(state, rows, direction, "SearchAnalytics.get_search_stats.<locals>");
    }
    return rows;
}

// `total_evaluations` is worked out after the record's class was looked up.
template <typename Count>
Ref make_result(const Call& call, const Ref& rows, const Ref& applied, Count&& total_evaluations,
                std::size_t total_groups) {
    const Names& names = call.names();
    RecordMaker result(call.state(), names.SearchStatsResult);
    result.prepare();
    return result.make_prepared({{names.rows, rows},
                                 {names.aggregate_by, call[names.aggregate_by]},
                                 {names.eval_pool, call[names.eval_pool]},
                                 {names.filters_applied, applied},
                                 {names.total_evaluations, total_evaluations()},
                                 {names.total_groups, static_cast<Py_ssize_t>(total_groups)},
                                 {names.groups_shown, list_size(rows)}});
}

Ref get_search_stats(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    validate_eval_type(call);
    require_sample_size(call[names.min_sample_size]);
    const Ref windows = requested_windows(state, call[names.time_windows]);

    const Ref evals = fetch_from_pool(call);
    const Ref applied = filters_applied(call);
    if (!truth(evals)) {
        return make_result(call, new_list(), applied, [] { return Py_ssize_t{0}; }, 0);
    }
    Statistics statistics(call, windows);
    statistics.count(state, evals);
    const Ref rows = shown_rows(call, statistics);
    return make_result(
        call, rows, applied, [&] { return length(evals); }, statistics.groups().size());
}

}  // namespace

const RecordDescription kWindowStats = {
    "WindowStats",
    "Stats for a single time window within a group.",
    {{"window", "str", Default::kEmptyText},
     {"sharpe", "float", Default::kZeroReal},
     {"returns", "float", Default::kZeroReal},
     {"turnover", "float", Default::kZeroReal},
     {"drawdown", "float", Default::kZeroReal},
     {"correlation", "float", Default::kZeroReal},
     {"yield_rate", "float", Default::kZeroReal},
     {"submittable_yield", "dict", Default::kDict},
     {"composite_score", "float", Default::kZeroReal},
     {"evaluation_count", "int", Default::kZero}},
};

const RecordDescription kStatsRow = {
    "StatsRow",
    "Single row in search stats result.",
    {{"group_key", "Tuple[FrozenSet[str], FrozenSet[str]]", Default::kPairOfSets},
     {"windows", "List[WindowStats]", Default::kList},
     {"evaluation_count", "int", Default::kZero}},
};

const RecordDescription kSearchStatsResult = {
    "SearchStatsResult",
    "Result from get_search_stats().",
    {{"rows", "List[StatsRow]", Default::kList},
     {"aggregate_by", "Optional[object]", Default::kNone},
     {"eval_pool", "Optional[object]", Default::kNone},
     {"filters_applied", "dict", Default::kDict},
     {"total_evaluations", "int", Default::kZero},
     {"total_groups", "int", Default::kZero},
     {"groups_shown", "int", Default::kZero}},
};

const FunctionDescription kGetSearchStats = {
    "get_search_stats",
    "Aggregated performance statistics with flexible grouping.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, kPoolFilterParameters,
     "aggregate_by=AggregateBy.FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY, eval_pool=EvalPool.ALL, "
     "time_windows=None, pnl_column=None, min_sample_size=100, sort_ascending=False"},
    "SearchStatsResult",
    get_search_stats,
};

}  // namespace search_analytics
