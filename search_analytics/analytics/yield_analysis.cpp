// How well the search runs: yield, usefulness and tampering.
#include "analytics/yield_analysis.h"

#include "engine/filters.h"
#include "engine/record_maker.h"
#include "engine/submission_status.h"
#include "engine/tamper.h"
#include "engine/time_window.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

// With fewer recent evaluations than this, their yield says nothing of a trend.
constexpr Py_ssize_t kFewestForTrend = 10;

// The pass rates over all evaluations and over the recent ones.
struct Yield {
    Py_ssize_t total = 0;
    Py_ssize_t passed = 0;
    Py_ssize_t recent_total = 0;
    double lifetime_rate = 0.0;
    double recent_rate = 0.0;

    const char* trend() const {
        if (recent_total < kFewestForTrend) {
            return "insufficient_data";
        }
        if (recent_rate > lifetime_rate * 1.2) {
            return "improving";
        }
        return recent_rate < lifetime_rate * 0.8 ? "declining" : "stable";
    }

    // Whatever the trend: an empty recent window counts as a rate of 0.
    bool diminishing_returns() const { return recent_rate < lifetime_rate * 0.5; }
};

void require_positive_window(PyObject* minutes) {
    if (compare(minutes, integer(0).get(), Py_LE)) {
        raise(PyExc_ValueError,
              format("recent_window_minutes must be positive, got %U.", text(minutes).get()));
    }
}

void measure_recent(const ModuleState& state, PyObject* evals, PyObject* minutes, Yield& yield) {
    const Ref now = current_time(state);
    const Ref seconds = multiply(minutes, integer(60).get());
    const Cutoff cutoff(subtract(now.get(), seconds.get()));
    const Ref recent = records_since(state.names, evals, cutoff);
    yield.recent_total = list_size(recent);
    const Py_ssize_t passed = passed_count(state.names, recent.get());
    yield.recent_rate = yield.recent_total == 0 ? 0.0 : ratio(passed, yield.recent_total);
}

// What the scan of all evaluations finds.
struct Findings {
    Py_ssize_t useful = 0;
    Py_ssize_t not_useful = 0;
    Py_ssize_t unknown = 0;
    Ref rationale = new_list();
    Ref tamper_candidates = new_list();
};

// What an evaluation and its status row say of why it failed.
struct Failure {
    Ref reason;
    Ref detail;
    Ref rejection_reason;
};

// Readers of what the scan wants of each evaluation.
struct ScanReaders {
    explicit ScanReaders(const Names& names)
        : eval_type(names.eval_type),
          eval_id(names.eval_id),
          agent_is_pnl_mi(names.agent_is_pnl_mi),
          is_pnl_mi(names.is_pnl_mi),
          failure_reason(names.failure_reason),
          failure_detail(names.failure_detail),
          rejection_reason(names.rejection_reason),
          strategy_pool_id(names.strategy_pool_id),
          signal_pool_id(names.signal_pool_id),
          strategy_signal_pool(names.strategy_signal_pool),
          is_correlation(names.is_correlation) {}

    AttributeReader eval_type;
    AttributeReader eval_id;
    AttributeReader agent_is_pnl_mi;
    AttributeReader is_pnl_mi;
    AttributeReader failure_reason;
    AttributeReader failure_detail;
    AttributeReader rejection_reason;
    AttributeReader strategy_pool_id;
    AttributeReader signal_pool_id;
    AttributeReader strategy_signal_pool;
    AttributeReader is_correlation;
};

class Scan {
   public:
    Scan(ModuleState& state, PyObject* engine, Findings& findings)
        : state_(state),
          names_(state.names),
          read_(state.names),
          delta_is_original_(is_original(state, names_._pnl_mi_tamper_delta)),
          statuses_(state,
                    attribute_or_none(attribute(engine, names_._tracker).get(), names_._conn)),
          blank_record_(blank_record(state.names)),
          findings_(findings) {}

    void add_all(PyObject* evals) {
        const ReadAhead ahead = ReadAhead()
                                    .value(read_.eval_type)
                                    .value(read_.eval_id)
                                    .value(read_.agent_is_pnl_mi)
                                    .value(read_.is_pnl_mi)
                                    .value(read_.failure_reason)
                                    .value(read_.failure_detail)
                                    .value(read_.is_correlation);
        for_each_record(evals, ahead, [&](PyObject* ev) { add(ev); });
    }

   private:
    // A record whose keys stand in their order, with nothing known.
    static Ref blank_record(const Names& names) {
        Ref record = new_dict();
        for (PyObject* key :
             {names.eval_type, names.eval_id, names.strategy_pool_id, names.signal_pool_id,
              names.strategy_signal_pool, names.status, names.useful_flag, names.rejection_reason,
              names.is_correlation, names.is_pnl_mi, names.agent_is_pnl_mi, names.failure_reason,
              names.failure_detail, names.agent_server_is_pnl_mi_delta}) {
            set_item(record, key, Py_None);
        }
        return record;
    }

    static void fill(const Ref& record, PyObject* key, const Ref& value) {
        if (!value.is_none()) {
            set_item(record, key, value.get());
        }
    }

    // Judges one evaluation: its rationale always, a tamper candidate if anything says so.
    void add(PyObject* ev) {
        const Ref eval_type = read_.eval_type.read(ev);
        const SubmissionStatus status = statuses_.read(ev, eval_type.get(), read_.eval_id);
        count_usefulness(status.useful.get());

        const Ref agent_measure = read_.agent_is_pnl_mi.read_or_none(ev);
        const Ref server_measure = read_.is_pnl_mi.read_or_none(ev);
        const Ref delta = tamper_delta(agent_measure, server_measure);
        const Failure failure = {read_.failure_reason.read_or_none(ev),
                                 read_.failure_detail.read_or_none(ev),
                                 read_.rejection_reason.read_or_none(ev)};
        const bool is_marked = is_marked_tampering(failure, status.rejection_reason);

        const Ref record = Ref::steal(PyDict_Copy(blank_record_.get()));
        add_identity(record, ev, eval_type, status);
        fill(record, names_.status, status.status);
        fill(record, names_.useful_flag, status.useful);
        fill(
            record, names_.rejection_reason,
            status.rejection_reason.is_none() ? failure.rejection_reason : status.rejection_reason);
        fill(record, names_.is_correlation, read_.is_correlation.read_or_none(ev));
        fill(record, names_.is_pnl_mi, server_measure);
        fill(record, names_.agent_is_pnl_mi, agent_measure);
        fill(record, names_.failure_reason, failure.reason);
        fill(record, names_.failure_detail, failure.detail);
        fill(record, names_.agent_server_is_pnl_mi_delta, delta);
        append(findings_.rationale, record.get());
        if (!delta.is_none() || is_marked) {
            add_candidate(record, !delta.is_none(), is_marked);
        }
    }

    void count_usefulness(PyObject* useful) {
        if (useful == Py_True) {
            ++findings_.useful;
        } else if (useful == Py_False) {
            ++findings_.not_useful;
        } else {
            ++findings_.unknown;
        }
    }

    Ref tamper_delta(const Ref& agent_measure, const Ref& server_measure) const {
        return delta_is_original_
                   ? pnl_mi_tamper_delta(state_, agent_measure.get(), server_measure.get())
                   : call_global(state_, names_._pnl_mi_tamper_delta, agent_measure.get(),
                                 server_measure.get());
    }

    // Whether any of the reasons given holds "tamper", in capitals or not ("tampering", too).
    bool is_marked_tampering(const Failure& failure, const Ref& row_reason) const {
        Ref words;
        for (const Ref* reason :
             {&failure.reason, &failure.detail, &row_reason, &failure.rejection_reason}) {
            as_generator_body([&] {
                if (!reason->is_none() && truth(reason->get())) {
                    const Ref shown = text(reason->get());
                    words = words.empty() ? new_list() : std::move(words);
                    append(words, call_method(shown.get(), names_.lower).get());
                }
            });
        }
        if (words.empty()) {
            return false;
        }
        const Ref joined = Ref::steal(PyUnicode_Join(unicode(" ").get(), words.get()));
        return contains(joined.get(), unicode("tamper").get());
    }

    // The pool that the evaluation went to: by its status row, else by its own attribute; only
    // for the type of evaluation that has such a pool.
    static Ref pool_of(PyObject* ev, const Ref& eval_type, PyObject* wanted_type,
                       AttributeReader& reader, const SubmissionStatus& status) {
        if (!equal(eval_type.get(), wanted_type)) {
            return Ref::none();
        }
        return status.pool.is_none() ? reader.read_or_none(ev) : status.pool.copy();
    }

    void add_identity(const Ref& record, PyObject* ev, const Ref& eval_type,
                      const SubmissionStatus& status) {
        fill(record, names_.eval_type, eval_type);
        fill(record, names_.eval_id, read_.eval_id.read(ev));
        fill(record, names_.strategy_pool_id, read_.strategy_pool_id.read_or_none(ev));
        fill(record, names_.signal_pool_id,
             pool_of(ev, eval_type, names_.signal, read_.signal_pool_id, status));
        fill(record, names_.strategy_signal_pool,
             pool_of(ev, eval_type, names_.strategy, read_.strategy_signal_pool, status));
    }

    void add_candidate(const Ref& record, bool disagrees, bool is_marked) {
        const Ref reasons = new_list();
        if (disagrees) {
            append(reasons, unicode("agent_server_is_pnl_mi_mismatch").get());
        }
        if (is_marked) {
            append(reasons, unicode("failure_marked_tampering").get());
        }
        const Ref candidate = Ref::steal(PyDict_Copy(record.get()));
        set_item(candidate, names_.tamper_reasons, reasons.get());
        append(findings_.tamper_candidates, candidate.get());
    }

    const ModuleState& state_;
    const Names& names_;
    ScanReaders read_;
    bool delta_is_original_;
    SubmissionStatusReader statuses_;
    Ref blank_record_;
    Findings& findings_;
};

Ref make_result(const Call& call, const Yield& yield, const Findings& findings) {
    const Names& names = call.names();
    const Ref lifetime = real(yield.lifetime_rate);
    const Ref recent = real(yield.recent_rate);
    const Ref trend = unicode(yield.trend());
    const Ref total = integer(yield.total);
    const Ref passed = integer(yield.passed);
    const Ref diminishing = boolean(yield.diminishing_returns());
    const Ref useful = integer(findings.useful);
    const Ref not_useful = integer(findings.not_useful);
    const Ref unknown = integer(findings.unknown);
    const Ref candidates = integer(list_size(findings.tamper_candidates));
    return RecordMaker(call.state(), names.YieldAnalysisResult)
        .make({{names.lifetime_yield_rate, lifetime.get()},
               {names.recent_yield_rate, recent.get()},
               {names.trend, trend.get()},
               {names.recent_window_minutes, call[names.recent_window_minutes]},
               {names.total_evaluations, total.get()},
               {names.total_passed, passed.get()},
               {names.diminishing_returns, diminishing.get()},
               {names.useful_evaluations, useful.get()},
               {names.not_useful_evaluations, not_useful.get()},
               {names.usefulness_unknown_evaluations, unknown.get()},
               {names.tamper_candidate_count, candidates.get()},
               {names.usefulness_rationale, findings.rationale.get()},
               {names.tamper_candidates, findings.tamper_candidates.get()}});
}

Ref get_yield_analysis(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* self = call[names.self];
    PyObject* recent_minutes = call[names.recent_window_minutes];
    const Filters filters(call);
    filters.validate_eval_type(state, self);
    require_positive_window(recent_minutes);
    const Ref evals = filters.fetch(state, self, nullptr);

    Yield yield;
    Findings findings;
    yield.total = length(evals.get());
    const Py_ssize_t passed = passed_count(names, evals.get());
    if (yield.total == 0) {
        return make_result(call, yield, findings);
    }
    yield.passed = passed;
    yield.lifetime_rate = ratio(yield.passed, yield.total);
    measure_recent(state, evals.get(), recent_minutes, yield);
    Scan scan(state, self, findings);
    scan.add_all(evals.get());
    return make_result(call, yield, findings);
}

}  // namespace

const FunctionDescription kGetYieldAnalysis = {
    "get_yield_analysis",
    "Era-level and family-level yield breakdown.",
    {"self", kHistoryFilterParameters, "recent_window_minutes=360", kPoolFilterParameters},
    "YieldAnalysisResult",
    get_yield_analysis,
};

}  // namespace search_analytics
