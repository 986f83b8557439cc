// Which functions go together.
#include "analytics/questions.h"
#include "engine/checks.h"
#include "engine/filters.h"
#include "engine/time_window.h"
#include "engine/usage.h"
#include "facade/record_maker.h"
#include "tables/pair_table.h"

namespace search_analytics {

namespace {

// Counts the pairs of the function names that each evaluation uses, among those that say something.
PairTable count_pairs(const ModuleState& state, Arg evals) {
    const Names& names = state.names();
    UsageReader usage(state);
    Flag passed(names.passed_thresholds);
    UsedNames used(usage, Side::kFunctions, names.function_name, [&](PyObject* ev, NameSet& set) {
        for_each(usage.items(ev, Side::kFunctions), [&](PyObject* item) {
            const Ref name = usage.value(item, names.function_name, Side::kFunctions);
            if (truth(name)) {
                set.add(name);
            }
        });
    });
    PairTable pairs;
    const auto count = [&](auto ev) { return pairs.add(used(ev), [&] { return passed(ev); }); };
    for_each_evaluation(evals, [&] { return pairs.is_exact(); }, count, passed, used);
    return pairs;
}

// Writes the records of pairs, with their lift over the pass rate of all evaluations.
class PatternWriter {
   public:
    PatternWriter(const ModuleState& state, double base_rate)
        : names_(state.names()), base_rate_(base_rate), maker_(state, names_.FunctionPairPattern) {}

    void write(Arg first, Arg second, const PassCounts& counts) {
        const double lift = base_rate_ > 0 ? divide(counts.yield_rate(), base_rate_) : 0.0;
        append(patterns_, maker_.make({{names_.function_a, first.get()},
                                       {names_.function_b, second.get()},
                                       {names_.total_cooccurrences, counts.total},
                                       {names_.passed_cooccurrences, counts.passed},
                                       {names_.lift, lift}}));
    }

    // What was written, in its order.
    const Ref& patterns() const { return patterns_; }

    bool is_original() { return maker_.is_original(); }

   private:
    const Names& names_;
    double base_rate_;
    RecordMaker maker_;
    Ref patterns_ = new_list();
};

Ref ranking_key(const Call& call) {
    const Names& names = call.names();
    PyObject* pattern = call[names.row];
    const Ref passed = negative(attribute(pattern, names.passed_cooccurrences));
    const Ref first = attribute(pattern, names.function_a);
    const Ref second = attribute(pattern, names.function_b);
    return tuple_of(passed, first, second);
}

const FunctionDescription kRanking = {"<lambda>", {}, {"row"}, {}, ranking_key};

// Whether the order of the pairs can be told without making a record of each, and without running
// code; and what is asked for is a number of them.
bool may_rank_first(const PairTable& pairs, PatternWriter& writer, Arg top_n) {
    return pairs.size() > 0 && pairs.is_exact() && is_exact_int(top_n) && writer.is_original();
}

// The records of the pairs, those that pass most often first. `result` is looked up when they are
// ranked, before they are cut to the first `top_n`; where nothing can tell the difference, only
// these are made.
Ref best_patterns(ModuleState& state, const PairTable& pairs, double base_rate, Arg top_n,
                  RecordMaker& result) {
    PatternWriter writer(state, base_rate);
    const auto write = [&](Arg first, Arg second, const PassCounts& counts) {
        writer.write(first, second, counts);
    };
    if (may_rank_first(pairs, writer, top_n)) {
        const auto wanted = machine_word(top_n);
        const bool are_all = !wanted || std::cmp_greater(*wanted, pairs.size());
        pairs.for_best_pairs(are_all ? pairs.size() : static_cast<std::size_t>(*wanted), write);
        result.prepare();
        return writer.patterns().copy();
    }
    pairs.for_each_pair(write);
    sort_by(state, writer.patterns(),
            make_method(state, kRanking, "SearchAnalytics.get_correlation_patterns.<locals>"));
    result.prepare();
    return first_items(writer.patterns(), top_n);
}

Ref get_correlation_patterns(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    validate_eval_type(call);
    require_top_n(call[names.top_n]);
    const Ref evals = fetch(call);
    const Py_ssize_t total_evaluations = length(evals);
    const Py_ssize_t total_passing = passed_count(names, evals);
    RecordMaker result(state, names.CorrelationPatternsResult);
    Ref patterns;
    if (total_evaluations == 0) {
        result.prepare();
        patterns = new_list();
    } else {
        const PairTable pairs = count_pairs(state, evals);
        const double base_rate = ratio(total_passing, total_evaluations);
        patterns = best_patterns(state, pairs, base_rate, call[names.top_n], result);
    }
    return result.make_prepared(
        {{names.pairs, patterns},
         {names.total_passing_evaluations, total_evaluations == 0 ? 0 : total_passing},
         {names.total_evaluations, total_evaluations}});
}

}  // namespace

const RecordDescription kFunctionPairPattern = {
    "FunctionPairPattern",
    "Co-occurrence pattern for function pairs.",
    {{"function_a", "str", Default::kEmptyText},
     {"function_b", "str", Default::kEmptyText},
     {"total_cooccurrences", "int", Default::kZero},
     {"passed_cooccurrences", "int", Default::kZero},
     {"lift", "float", Default::kZeroReal}},
};

const RecordDescription kCorrelationPatternsResult = {
    "CorrelationPatternsResult",
    "Result from get_correlation_patterns().",
    {{"pairs", "List[FunctionPairPattern]", Default::kList},
     {"total_passing_evaluations", "int", Default::kZero},
     {"total_evaluations", "int", Default::kZero}},
};

const FunctionDescription kGetCorrelationPatterns = {
    "get_correlation_patterns",
    "Function pair correlation patterns.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, kPoolFilterParameters, "top_n=20"},
    "CorrelationPatternsResult",
    get_correlation_patterns,
};

}  // namespace search_analytics
