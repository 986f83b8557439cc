// How well the search runs: yield, usefulness and tampering.
#include <algorithm>
#include <array>

#include "analytics/questions.h"
#include "engine/filters.h"
#include "engine/functions.h"
#include "engine/submission_status.h"
#include "engine/time_window.h"
#include "engine/trend.h"
#include "facade/record_maker.h"
#include "facade/traceback.h"
#include "records/fields.h"

namespace search_analytics {

namespace {

// The pass rates over all evaluations and over the recent ones.
struct Yield {
    Py_ssize_t total = 0;
    Py_ssize_t passed = 0;
    Py_ssize_t recent_total = 0;
    double lifetime_rate = 0.0;
    double recent_rate = 0.0;

    std::string_view trend() const {
        if (recent_total < kFewestForTrend) {
            return kNoTrend;
        }
        return search_analytics::trend("improving", [&](double factor, int operation) {
            const double usual = multiply(lifetime_rate, factor);
            return operation == Py_GT ? recent_rate > usual : recent_rate < usual;
        });
    }

    // Whatever the trend: an empty recent window counts as a rate of 0.
    bool diminishing_returns() const { return recent_rate < multiply(lifetime_rate, 0.5); }
};

// What became of the evaluations: how many were useful, a dictionary for each, and one for each
// that looks tampered with.
struct Findings {
    Py_ssize_t useful = 0;
    Py_ssize_t not_useful = 0;
    Py_ssize_t unknown = 0;
    Ref rationale = new_list();
    Ref tamper_candidates = new_list();

    void count(Arg useful_flag) {
        if (useful_flag == Py_True) {
            ++useful;
        } else if (useful_flag == Py_False) {
            ++not_useful;
        } else {
            ++unknown;
        }
    }
};

// What an evaluation and its status row say of why it failed, in the order in which it is searched
// for signs of tampering.
struct Failure {
    enum : std::size_t { kReason, kDetail, kRowRejection, kRejection, kCount };

    std::array<Ref, kCount> texts;

    // Whether any of them holds "tamper", in capitals or not ("tampering", too).
    bool is_marked_tampering(const ModuleState& state) const;
};

// What tracebacks show of the expression that puts the texts into lower case.
constexpr InnerFunction kTexts = {"<genexpr>", "SearchAnalytics.get_yield_analysis.<locals>"};

bool Failure::is_marked_tampering(const ModuleState& state) const {
    constexpr std::string_view kWord = "tamper";
    // Texts that are joined do not hold the word between them: there are blanks in between.
    for (const Ref& text : texts) {
        note_work(is_exact_str(text) ? text_length(text) : 0);
    }
    if (std::ranges::all_of(texts, is_none_or_ascii)) {
        return std::ranges::any_of(
            texts, [&](const Ref& text) { return !text.is_none() && mentions(text, kWord); });
    }
    Ref words;
    for (const Ref& reason : texts) {
        in_generator(state, kTexts, [&] {
            if (!reason.is_none() && truth(reason)) {
                const Ref shown = text(reason);
                words = words.empty() ? new_list() : std::move(words);
                append(words, call_method(shown, state.names().lower));
            }
        });
    }
    return !words.empty() && contains(joined(" ", words), new_str(kWord));
}

// The scan: judges one evaluation after the other. What it reads is handed on as it is, so that
// every evaluation is asked.
class Scan {
   public:
    Scan(ModuleState& state, Arg engine, Findings& findings)
        : state_(state),
          names_(state.names()),
          delta_(state, names_._pnl_mi_tamper_delta),
          statuses_(state, attribute_or_none(attribute(engine, names_._tracker), names_._conn)),
          records_({names_.eval_type, names_.eval_id, names_.strategy_pool_id,
                    names_.signal_pool_id, names_.strategy_signal_pool, names_.status,
                    names_.useful_flag, names_.rejection_reason, names_.is_correlation,
                    names_.is_pnl_mi, names_.agent_is_pnl_mi, names_.failure_reason,
                    names_.failure_detail, names_.agent_server_is_pnl_mi_delta}),
          findings_(findings) {}

    void judge_all(Arg evals) {
        for_each_evaluation(
            evals, [&](Asked ev) { judge(ev); }, eval_type_, eval_id_, agent_is_pnl_mi_, is_pnl_mi_,
            failure_reason_, failure_detail_, strategy_pool_id_, signal_pool_id_,
            strategy_signal_pool_, is_correlation_);
    }

   private:
    // The rationale of an evaluation always, a tamper candidate if anything says so.
    void judge(Asked ev) {
        const Ref eval_type = eval_type_(ev);
        const SubmissionStatus status = statuses_.read(ev, eval_type, eval_id_);
        findings_.count(status.useful);

        const Ref agent_measure = agent_is_pnl_mi_.or_none(ev);
        const Ref server_measure = is_pnl_mi_.or_none(ev);
        const Ref delta = tamper_delta(agent_measure, server_measure);
        const Failure failure = {{failure_reason_.or_none(ev), failure_detail_.or_none(ev),
                                  status.rejection_reason.copy(), rejection_reason_.or_none(ev)}};
        const bool is_marked = failure.is_marked_tampering(state_);

        const auto rejection =
            status.rejection_reason.is_none() ? Failure::kRejection : Failure::kRowRejection;
        // In the order of the keys, in which the evaluation is asked for what is not known yet.
        Ref values[] = {eval_type.copy(),
                        eval_id_(ev),
                        strategy_pool_id_.or_none(ev),
                        pool_of(ev, eval_type, names_.signal, signal_pool_id_, status),
                        pool_of(ev, eval_type, names_.strategy, strategy_signal_pool_, status),
                        status.status.copy(),
                        status.useful.copy(),
                        failure.texts[rejection].copy(),
                        is_correlation_.or_none(ev),
                        server_measure.copy(),
                        agent_measure.copy(),
                        failure.texts[Failure::kReason].copy(),
                        failure.texts[Failure::kDetail].copy(),
                        delta.copy()};
        const Ref record = records_.make(values);
        append(findings_.rationale, record);
        if (!delta.is_none() || is_marked) {
            add_candidate(record, !delta.is_none(), is_marked);
        }
    }

    Ref tamper_delta(const Ref& agent_measure, const Ref& server_measure) {
        if (delta_.is_original()) {
            return in_place_of(state_, kPnlMiTamperDelta, [&] {
                return pnl_mi_tamper_delta(state_, agent_measure, server_measure);
            });
        }
        return call_global(state_, delta_.name(), agent_measure, server_measure);
    }

    // The pool that the evaluation went to: by its status row, else by its own attribute; only
    // for the type of evaluation that has such a pool.
    static Ref pool_of(Asked ev, const Ref& eval_type, Arg wanted_type, AnyValue& own,
                       const SubmissionStatus& status) {
        if (!equal(eval_type, wanted_type)) {
            return Ref::none();
        }
        return status.pool.is_none() ? own.or_none(ev) : status.pool.copy();
    }

    void add_candidate(const Ref& record, bool disagrees, bool is_marked) {
        const Ref reasons = new_list();
        if (disagrees) {
            append(reasons, new_str("agent_server_is_pnl_mi_mismatch"));
        }
        if (is_marked) {
            append(reasons, new_str("failure_marked_tampering"));
        }
        const Ref candidate = copy_of_dict(record);
        set_item(candidate, names_.tamper_reasons, reasons);
        append(findings_.tamper_candidates, candidate);
    }

    ModuleState& state_;
    const Names& names_;
    WatchedGlobal delta_;
    SubmissionStatusReader statuses_;
    DictMould records_;
    Findings& findings_;

    AnyValue eval_type_{names_.eval_type};
    AnyValue eval_id_{names_.eval_id};
    AnyValue agent_is_pnl_mi_{names_.agent_is_pnl_mi};
    AnyValue is_pnl_mi_{names_.is_pnl_mi};
    AnyValue failure_reason_{names_.failure_reason};
    AnyValue failure_detail_{names_.failure_detail};
    AnyValue rejection_reason_{names_.rejection_reason};
    AnyValue strategy_pool_id_{names_.strategy_pool_id};
    AnyValue signal_pool_id_{names_.signal_pool_id};
    AnyValue strategy_signal_pool_{names_.strategy_signal_pool};
    AnyValue is_correlation_{names_.is_correlation};
};

void require_positive_window(Arg minutes) {
    if (compare(minutes, new_int(0), Py_LE)) {
        raise(PyExc_ValueError,
              format("recent_window_minutes must be positive, got %U.", text(minutes)));
    }
}

void measure_recent(const ModuleState& state, Arg evals, Arg minutes, Yield& yield) {
    const Ref now = current_time(state);
    const Ref recent = records_since(state.names(), evals, cutoff_of_minutes(now, minutes));
    yield.recent_total = list_size(recent);
    const Py_ssize_t passed = passed_count(state.names(), recent);
    yield.recent_rate = yield.recent_total == 0 ? 0.0 : ratio(passed, yield.recent_total);
}

Ref make_result(const Call& call, const Yield& yield, const Findings& findings) {
    const Names& names = call.names();
    return RecordMaker(call.state(), names.YieldAnalysisResult)
        .make({{names.lifetime_yield_rate, yield.lifetime_rate},
               {names.recent_yield_rate, yield.recent_rate},
               {names.trend, yield.trend()},
               {names.recent_window_minutes, call[names.recent_window_minutes]},
               {names.total_evaluations, yield.total},
               {names.total_passed, yield.passed},
               {names.diminishing_returns, yield.diminishing_returns()},
               {names.useful_evaluations, findings.useful},
               {names.not_useful_evaluations, findings.not_useful},
               {names.usefulness_unknown_evaluations, findings.unknown},
               {names.tamper_candidate_count, list_size(findings.tamper_candidates)},
               {names.usefulness_rationale, findings.rationale},
               {names.tamper_candidates, findings.tamper_candidates}});
}

Ref get_yield_analysis(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    validate_eval_type(call);
    require_positive_window(call[names.recent_window_minutes]);
    const Ref evals = fetch(call);

    Yield yield;
    Findings findings;
    yield.total = length(evals);
    const Py_ssize_t passed = passed_count(names, evals);
    if (yield.total == 0) {
        return make_result(call, yield, findings);
    }
    yield.passed = passed;
    yield.lifetime_rate = ratio(yield.passed, yield.total);
    measure_recent(state, evals, call[names.recent_window_minutes], yield);
    Scan(state, call[names.self], findings).judge_all(evals);
    return make_result(call, yield, findings);
}

}  // namespace

const RecordDescription kYieldAnalysisResult = {
    "YieldAnalysisResult",
    "Result from get_yield_analysis().",
    {{"lifetime_yield_rate", "float", Default::kZeroReal},
     {"recent_yield_rate", "float", Default::kZeroReal},
     {"trend", "str", Default::kEmptyText},
     {"recent_window_minutes", "int", Default::kZero},
     {"total_evaluations", "int", Default::kZero},
     {"total_passed", "int", Default::kZero},
     {"diminishing_returns", "bool", Default::kFalse},
     {"useful_evaluations", "int", Default::kZero},
     {"not_useful_evaluations", "int", Default::kZero},
     {"usefulness_unknown_evaluations", "int", Default::kZero},
     {"tamper_candidate_count", "int", Default::kZero},
     {"usefulness_rationale", "List[dict]", Default::kList},
     {"tamper_candidates", "List[dict]", Default::kList}},
};

const FunctionDescription kGetYieldAnalysis = {
    "get_yield_analysis",
    "Era-level and family-level yield breakdown.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, "recent_window_minutes=360",
     kPoolFilterParameters},
    "YieldAnalysisResult",
    get_yield_analysis,
};

}  // namespace search_analytics
