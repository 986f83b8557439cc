// The scan of a yield analysis: what became of every evaluation, and which were tampered with.
#include "engine/yield_scan.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "engine/submission_status.h"
#include "engine/tamper.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

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

bool is_plain_reason(PyObject* reason) {
    return reason == Py_None || (is_plain_text(reason) && PyUnicode_IS_ASCII(reason) != 0);
}

// Whether a plain reason holds "tamper", in capitals or not. Reasons that are joined do not hold
// it between them: there are no spaces in it.
bool mentions_tampering(PyObject* reason) {
    constexpr std::string_view kWord = "tamper";
    constexpr unsigned kSmall = 0x20;
    if (reason == Py_None) {
        return false;
    }
    const auto* letters = static_cast<const unsigned char*>(PyUnicode_DATA(reason));
    const std::span text(letters, static_cast<std::size_t>(PyUnicode_GET_LENGTH(reason)));
    const auto is_same = [](unsigned letter, char wanted) {
        return (letter | kSmall) == static_cast<unsigned>(wanted);
    };
    return !std::ranges::search(text, kWord, is_same).empty();
}

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
                                    .value(read_.strategy_pool_id)
                                    .value(read_.signal_pool_id)
                                    .value(read_.strategy_signal_pool)
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
        const bool is_marked =
            is_marked_tampering({failure.reason.get(), failure.detail.get(),
                                 status.rejection_reason.get(), failure.rejection_reason.get()});

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

    using Reasons = std::array<PyObject*, 4>;

    // Whether any of the reasons given holds "tamper", in capitals or not ("tampering", too).
    bool is_marked_tampering(const Reasons& reasons) const {
        if (std::ranges::all_of(reasons, is_plain_reason)) {
            return std::ranges::any_of(reasons, mentions_tampering);
        }
        Ref words;
        for (PyObject* reason : reasons) {
            as_generator_body([&] {
                if (reason != Py_None && truth(reason)) {
                    const Ref shown = text(reason);
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

}  // namespace

void scan_evaluations(ModuleState& state, PyObject* engine, PyObject* evals, Findings& findings) {
    Scan(state, engine, findings).add_all(evals);
}

}  // namespace search_analytics
