// Evaluations summed up by group and time window, one at a time.
#include "engine/grouped_sums.h"

#include "engine/statistic.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

Ref column_key(PyObject* pnl_column, const char* suffix) {
    return concatenate(column_or_default(pnl_column).get(), suffix);
}

// Whether a granularity read once holds for every record: `aggregate_by` is a member of the
// module's own enumeration and the key maps are plain dictionaries, so that reading them again
// runs no code and finds the same.
bool is_fixed_granularity(const ModuleState& state, PyObject* aggregate_by) {
    const Names& names = state.names;
    const Ref vocabulary = load_global(state, names.AggregateBy);
    return is_original(state, names.AggregateBy) &&
           reinterpret_cast<PyObject*>(Py_TYPE(aggregate_by)) == vocabulary.get() &&
           PyDict_CheckExact(load_global(state, names.function_key_map).get()) &&
           PyDict_CheckExact(load_global(state, names.feature_key_map).get());
}

}  // namespace

GroupedSums::Readers::Readers(const Names& names)
    : per_column_stats(names.per_column_stats),
      sharpe(names.sharpe),
      returns(names.returns),
      turnover(names.turnover),
      drawdown(names.drawdown),
      correlation(names.correlation),
      passed_thresholds(names.passed_thresholds),
      timestamp(names.timestamp),
      era_id(names.era_id) {}

GroupedSums::GroupedSums(ModuleState& state, const SumsRequest& request)
    : state_(state),
      request_(request),
      read_(state.names),
      reader_(state),
      builds_keys_(is_original_method(state, request.engine, state.names._build_group_key)),
      has_fixed_granularity_(builds_keys_ && is_fixed_granularity(state, request.aggregate_by)),
      sharpe_key_(column_key(request.pnl_column, "_sharpe")),
      returns_key_(column_key(request.pnl_column, "_returns")),
      drawdown_key_(column_key(request.pnl_column, "_drawdown")),
      sharpe_entry_(sharpe_key_.get()),
      returns_entry_(returns_key_.get()),
      drawdown_entry_(drawdown_key_.get()),
      now_(current_time(state)),
      week_(cutoff_before(now_.get(), kSecondsPerWeek)),
      day_(cutoff_before(now_.get(), kSecondsPerDay)) {
    find_windows(request.time_windows);
    find_pools();
}

// A window that equals several members counts as the first of them.
void GroupedSums::find_windows(PyObject* time_windows) {
    const Names& names = state_.names;
    const std::pair<PyObject*, std::size_t*> kinds[] = {{names.LIFETIME, &lifetime_},
                                                        {names.ERA, &era_},
                                                        {names.LAST_WEEK, &last_week_},
                                                        {names.LAST_24H, &last_day_}};
    const Ref requested = list_of(time_windows);
    for_each(requested.get(), [&](PyObject* window) {
        for (const auto& [name, position] : kinds) {
            if (equal(window, time_window_member(state_, name).get())) {
                *position = windows_.size();
                break;
            }
        }
        windows_.push_back(Ref::share(window));
    });
}

void GroupedSums::find_pools() {
    const Names& names = state_.names;
    for_each(attribute(request_.engine, names._pool_configs).get(),
             [&](PyObject* pool) { pool_names_.push_back(attribute(pool, names.name)); });
    for_each(attribute(request_.engine, names._pool_configs).get(), [&](PyObject* pool) {
        thresholds_.push_back(attribute(pool, names.is_correlation_threshold));
        thresholds_are_real_ = thresholds_are_real_ && PyFloat_CheckExact(thresholds_.back().get());
    });
    is_submittable_.resize(thresholds_.size());
}

void GroupedSums::add_all(PyObject* evals) {
    const ReadAhead ahead =
        ReadAhead()
            .value(read_.turnover)
            .value(read_.correlation)
            .value(read_.timestamp)
            .flag(read_.era_id)
            .flag(read_.passed_thresholds)
            .table(read_.per_column_stats, {&sharpe_entry_, &returns_entry_, &drawdown_entry_})
            .items(*reader_.metadata(Side::kFunctions), function_entry_)
            .items(*reader_.metadata(Side::kFeatures), feature_entry_);
    for_each_record(
        evals, ahead, [&](PyObject* ev) { return look(ev); }, [&](PyObject* ev) { add(ev); });
}

void GroupedSums::add(PyObject* ev) {
    read_measures(ev);
    find_submittable(measures_.values[kCorrelation].get());
    const std::size_t group = group_of(ev);
    count_into_group(group);
    const Ref timestamp = read_.timestamp.read(ev);
    const Ref era = read_.era_id.read(ev);
    count_into_windows(group, timestamp.get(), era.get());
}

// Adds a record that can be read by looking.
bool GroupedSums::look(PyObject* ev) {
    PyObject* timestamp = read_.timestamp.look(ev);
    PyObject* era = read_.era_id.look(ev);
    if (!can_look() || !look_at_measures(ev) || timestamp == nullptr || era == nullptr ||
        !week_.can_look_at(timestamp) || !day_.can_look_at(timestamp) ||
        (request_.era_id != Py_None && !(is_plain_text(era) && is_plain_text(request_.era_id))) ||
        !functions_.look(reader_, ev, Side::kFunctions, function_entry_) ||
        !features_.look(reader_, ev, Side::kFeatures, feature_entry_)) {
        return false;
    }
    find_submittable(read_.correlation.look(ev));
    const std::size_t group = groups_.number_of(functions_, features_);
    count_into_group(group);
    count_into_windows(group, timestamp, era);
    return true;
}

// Whether all that does not depend on the record allows for looking.
bool GroupedSums::can_look() const {
    return has_fixed_granularity_ && !granularity_.function_key.empty() && groups_.is_plain() &&
           sums_are_real_ && thresholds_are_real_;
}

bool GroupedSums::look_at_measures(PyObject* ev) {
    PyObject* per_column = read_.per_column_stats.look(ev);
    PyObject* passed = read_.passed_thresholds.look(ev);
    if (per_column == nullptr || passed == nullptr || !PyBool_Check(passed)) {
        return false;
    }
    const auto column = [&](EntryReader& entry, const AttributeReader& reader) {
        return per_column == Py_None ? reader.look(ev) : entry.look(per_column);
    };
    const std::array<PyObject*, kMeasureCount> values = {
        column(sharpe_entry_, read_.sharpe), column(returns_entry_, read_.returns),
        read_.turnover.look(ev), column(drawdown_entry_, read_.drawdown),
        read_.correlation.look(ev)};
    measures_.passed = passed == Py_True;
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        if (values[i] == nullptr || !PyFloat_CheckExact(values[i])) {
            return false;
        }
        measures_.reals[i] = PyFloat_AS_DOUBLE(values[i]);
    }
    measures_.are_real = true;
    return true;
}

// Makes room for a group that is new.
void GroupedSums::count_into_group(std::size_t group) {
    if (group == counts_.size()) {
        counts_.push_back(0);
        sums_.resize(sums_.size() + windows_.size());
        submittable_.resize(submittable_.size() + windows_.size() * pool_names_.size());
    }
    ++counts_[group];
    // The sums of thousands of groups are as scattered as the records.
    for (std::size_t window = 0; window < windows_.size(); ++window) {
        prefetch(&sums_[cell(group, window)]);
    }
}

// The chosen column's table comes first, then the record's own value.
Ref GroupedSums::column_measure(PyObject* per_column, PyObject* key, PyObject* ev,
                                AttributeReader& reader) {
    return contains(per_column, key) ? item(per_column, key) : reader.read(ev);
}

void GroupedSums::read_measures(PyObject* ev) {
    auto& values = measures_.values;
    const Ref per_column = read_.per_column_stats.read(ev);
    if (truth(per_column.get())) {
        values[kSharpe] = column_measure(per_column.get(), sharpe_key_.get(), ev, read_.sharpe);
        values[kReturns] = column_measure(per_column.get(), returns_key_.get(), ev, read_.returns);
        values[kDrawdown] =
            column_measure(per_column.get(), drawdown_key_.get(), ev, read_.drawdown);
    } else {
        values[kSharpe] = read_.sharpe.read(ev);
        values[kReturns] = read_.returns.read(ev);
        values[kDrawdown] = read_.drawdown.read(ev);
    }
    values[kTurnover] = read_.turnover.read(ev);
    values[kCorrelation] = read_.correlation.read(ev);
    measures_.passed = truth(read_.passed_thresholds.read(ev).get());
    measures_.find_reals();
    sums_are_real_ = sums_are_real_ && measures_.are_real;
}

// A failed evaluation may have no correlation at all: test `passed` first.
void GroupedSums::find_submittable(PyObject* correlation) {
    for (std::size_t pool = 0; pool < thresholds_.size(); ++pool) {
        PyObject* threshold = thresholds_[pool].get();
        bool is_submittable = false;
        if (measures_.passed) {
            is_submittable = PyFloat_CheckExact(correlation) && PyFloat_CheckExact(threshold)
                                 ? PyFloat_AS_DOUBLE(correlation) < PyFloat_AS_DOUBLE(threshold)
                                 : compare(correlation, threshold, Py_LT);
        }
        is_submittable_[pool] = is_submittable ? 1 : 0;
    }
}

std::size_t GroupedSums::group_of(PyObject* ev) {
    if (!builds_keys_) {
        return groups_.number_of(
            call_method(request_.engine, state_.names._build_group_key, ev, request_.aggregate_by));
    }
    if (!has_fixed_granularity_ || granularity_.function_key.empty()) {
        granularity_ = granularity_of(state_, request_.aggregate_by);
        function_entry_ = EntryReader(granularity_.function_key.get());
        feature_entry_ = EntryReader(granularity_.feature_key.get());
    }
    functions_.clear();
    features_.clear();
    functions_.collect(reader_, ev, Side::kFunctions, granularity_.function_key.get());
    features_.collect(reader_, ev, Side::kFeatures, granularity_.feature_key.get());
    return groups_.number_of(functions_, features_);
}

void GroupedSums::count_into_windows(std::size_t group, PyObject* timestamp, PyObject* era) {
    if (lifetime_ != kNotRequested) {
        count_into(group, lifetime_);
    }
    if (era_ != kNotRequested && (request_.era_id == Py_None || equal(era, request_.era_id))) {
        count_into(group, era_);
    }
    if (last_week_ != kNotRequested && week_.includes(timestamp)) {
        count_into(group, last_week_);
    }
    if (last_day_ != kNotRequested && day_.includes(timestamp)) {
        count_into(group, last_day_);
    }
}

void GroupedSums::count_into(std::size_t group, std::size_t window) {
    const std::size_t position = cell(group, window);
    sums_[position].add(measures_);
    // Pools that give more thresholds than names are an error of their own, as in any list.
    if (thresholds_.size() > pool_names_.size()) [[unlikely]] {
        raise(PyExc_IndexError, "list index out of range");
    }
    Py_ssize_t* counts = submittable_.data() + position * pool_names_.size();
    for (std::size_t pool = 0; pool < thresholds_.size(); ++pool) {
        counts[pool] += is_submittable_[pool];
    }
}

}  // namespace search_analytics
