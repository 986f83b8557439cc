// Which functions go together.
#include "analytics/correlation_patterns.h"

#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/pair_table.h"
#include "engine/record_maker.h"
#include "engine/time_window.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

void count_pairs(const ModuleState& state, PyObject* evals, PairTable& pairs) {
    const Names& names = state.names;
    UsageReader reader(state);
    EntryReader function_name(names.function_name);
    AttributeReader passed_thresholds(names.passed_thresholds);
    const ReadAhead ahead = ReadAhead()
                                .flag(passed_thresholds)
                                .items(*reader.metadata(Side::kFunctions), function_name);
    KeySide used;
    const auto look = [&](PyObject* ev) {
        PyObject* passed = passed_thresholds.look(ev);
        if (passed == nullptr || !PyBool_Check(passed) || !pairs.is_plain() ||
            !used.look(reader, ev, Side::kFunctions, function_name)) {
            return false;
        }
        pairs.add(used, [&] { return passed == Py_True; });
        return true;
    };
    for_each_record(evals, ahead, look, [&](PyObject* ev) {
        used.clear();
        reader.for_each_value(ev, Side::kFunctions, names.function_name, [&](PyObject* name) {
            if (truth(name)) {
                used.add(name);
            }
        });
        pairs.add(used, [&] { return truth(passed_thresholds.read(ev).get()); });
    });
}

// Writes the records of pairs, with their lift over the pass rate of all evaluations.
class PatternWriter {
   public:
    PatternWriter(const ModuleState& state, const PairTable& pairs, double base_rate)
        : names_(state.names),
          pairs_(pairs),
          base_rate_(base_rate),
          maker_(state, state.names.FunctionPairPattern) {}

    Ref pattern(std::size_t pair) const {
        const PassCounts& counts = pairs_.counts(pair);
        const Ref first = pairs_.first(pair);
        const Ref second = pairs_.second(pair);
        const Ref total = integer(counts.total);
        const Ref passed = integer(counts.passed);
        const Ref lift = real(base_rate_ > 0 ? counts.yield_rate() / base_rate_ : 0.0);
        return maker_.make({{names_.function_a, first.get()},
                            {names_.function_b, second.get()},
                            {names_.total_cooccurrences, total.get()},
                            {names_.passed_cooccurrences, passed.get()},
                            {names_.lift, lift.get()}});
    }

    bool is_original() const { return maker_.is_original(); }

   private:
    const Names& names_;
    const PairTable& pairs_;
    double base_rate_;
    RecordMaker maker_;
};

Ref ranking_key(const Call& call) {
    const Names& names = call.names();
    PyObject* pattern = call[names.row];
    return tuple_of(negative(attribute(pattern, names.passed_cooccurrences).get()),
                    attribute(pattern, names.function_a), attribute(pattern, names.function_b));
}

const FunctionDescription kRanking = {"<lambda>", {}, {"row"}, {}, ranking_key};

// All records, sorted, cut: for names that only their own type can order.
Ref ranked_and_cut(ModuleState& state, const PatternWriter& writer, std::size_t count,
                   PyObject* top_n) {
    const Ref patterns = new_list();
    for (std::size_t pair = 0; pair < count; ++pair) {
        append(patterns, writer.pattern(pair).get());
    }
    sort_by(state, patterns, make_function(state, kRanking).get());
    return first_items(patterns.get(), top_n);
}

// The pairs that pass most often, most first. Where nothing can tell the difference, only the
// records that are shown are made.
Ref best_patterns(ModuleState& state, const PairTable& pairs, double base_rate, PyObject* top_n) {
    const PatternWriter writer(state, pairs, base_rate);
    int overflow = 0;
    if (!pairs.is_plain() || !writer.is_original() || !PyLong_CheckExact(top_n)) {
        return ranked_and_cut(state, writer, pairs.size(), top_n);
    }
    const long long wanted = PyLong_AsLongLongAndOverflow(top_n, &overflow);
    const std::size_t count = overflow != 0 ? pairs.size() : static_cast<std::size_t>(wanted);
    Ref patterns = new_list();
    for (const std::size_t pair : pairs.best(count)) {
        append(patterns, writer.pattern(pair).get());
    }
    return patterns;
}

Ref make_result(const ModuleState& state, const Ref& patterns, Py_ssize_t total_passing,
                Py_ssize_t total_evaluations) {
    const Names& names = state.names;
    const Ref passing = integer(total_passing);
    const Ref evaluations = integer(total_evaluations);
    return RecordMaker(state, names.CorrelationPatternsResult)
        .make({{names.pairs, patterns.get()},
               {names.total_passing_evaluations, passing.get()},
               {names.total_evaluations, evaluations.get()}});
}

Ref get_correlation_patterns(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    const Filters filters(call);
    filters.validate_eval_type(state, call[names.self]);
    require_top_n(call[names.top_n]);
    const Ref evals = filters.fetch(state, call[names.self], nullptr);
    const Py_ssize_t total_evaluations = length(evals.get());
    const Py_ssize_t total_passing = passed_count(names, evals.get());
    if (total_evaluations == 0) {
        return make_result(state, new_list(), 0, 0);
    }
    PairTable pairs;
    count_pairs(state, evals.get(), pairs);
    const Ref patterns =
        best_patterns(state, pairs, ratio(total_passing, total_evaluations), call[names.top_n]);
    return make_result(state, patterns, total_passing, total_evaluations);
}

}  // namespace

const FunctionDescription kGetCorrelationPatterns = {
    "get_correlation_patterns",
    "Function pair correlation patterns.",
    {"self", kHistoryFilterParameters, kPoolFilterParameters, "top_n=20"},
    "CorrelationPatternsResult",
    get_correlation_patterns,
};

}  // namespace search_analytics
