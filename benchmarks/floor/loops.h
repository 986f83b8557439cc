// The read floor: for each operation one loop (or as many as its behaviour asks for) that reads of
// every record what the operation has to read, in that order, and does nothing else. No analysis
// that reads its records through the interpreter can be faster.
//
// The loops trust their input: a list of records whose usage is in lists of dictionaries or of
// strings, and whose per-column table is a dictionary.
#pragma once

#include "reading.h"

#include <array>
#include <vector>

namespace floor_reads {

// Interned once, as a module that is in earnest does.
struct Names {
    PyObject* passed_thresholds = intern("passed_thresholds");
    PyObject* timestamp = intern("timestamp");
    PyObject* era_id = intern("era_id");
    PyObject* tree_depth = intern("tree_depth");
    PyObject* per_column_stats = intern("per_column_stats");
    PyObject* sharpe = intern("sharpe");
    PyObject* returns = intern("returns");
    PyObject* drawdown = intern("drawdown");
    PyObject* turnover = intern("turnover");
    PyObject* correlation = intern("correlation");
    PyObject* function_family = intern("function_family");
    PyObject* function_name = intern("function_name");
    PyObject* feature_subfamily = intern("feature_subfamily");
    PyObject* eval_type = intern("eval_type");
    PyObject* eval_id = intern("eval_id");
    PyObject* strategy_pool_id = intern("strategy_pool_id");
    PyObject* signal_pool_id = intern("signal_pool_id");
    PyObject* strategy_signal_pool = intern("strategy_signal_pool");
    PyObject* is_correlation = intern("is_correlation");
    PyObject* is_pnl_mi = intern("is_pnl_mi");
    PyObject* agent_is_pnl_mi = intern("agent_is_pnl_mi");
    PyObject* failure_reason = intern("failure_reason");
    PyObject* failure_detail = intern("failure_detail");
    PyObject* rejection_reason = intern("rejection_reason");
    PyObject* signal = intern("signal");
    PyObject* strategy = intern("strategy");
    PyObject* execute = intern("execute");
    PyObject* fetchone = intern("fetchone");
    Side functions = {intern("function_metadata"), intern("functions"), function_name};
    Side features = {intern("feature_metadata"), intern("features"), intern("feature_name")};

    static PyObject* intern(const char* text) {
        PyObject* name = PyUnicode_InternFromString(text);
        if (name == nullptr) {
            throw Failed();
        }
        return name;
    }
};

using Records = std::span<PyObject* const>;

// Whether some usage item has the value that is wanted; None wants nothing.
inline bool passes(PyObject* record, const Side& side, PyObject* key, PyObject* wanted) {
    bool found = wanted == Py_None;
    if (!found) {
        each_usage_value(record, side, key, [&](PyObject* value) {
            found = same_text(value, wanted);
            return !found;
        });
    }
    return found;
}

// The records that pass a function family and a feature subfamily filter; None is no filter.
class Kept {
   public:
    Kept(const Names& names, PyObject* list, PyObject* family, PyObject* subfamily)
        : records_(items_of(list)) {
        if (family == Py_None && subfamily == Py_None) {
            return;
        }
        for (PyObject* record : records_) {
            if (passes(record, names.functions, names.function_family, family) &&
                passes(record, names.features, names.feature_subfamily, subfamily)) {
                kept_.push_back(record);
            }
        }
        records_ = kept_;
    }

    Records records() const { return records_; }

   private:
    Records records_;
    std::vector<PyObject*> kept_;
};

inline void read_usage(PyObject* record, const Side& side, PyObject* key) {
    each_usage_value(record, side, key, [](PyObject* value) {
        hash_of(value);
        return true;
    });
}

// get_search_stats and get_suggestions. `keys` are the entries of the per-column table.
inline void read_stats(const Names& names, Records records, const std::array<PyObject*, 3>& keys,
                       PyObject* function_key, PyObject* feature_key) {
    const std::array measures = {names.sharpe, names.returns, names.drawdown};
    for (PyObject* record : records) {
        const Owned table = attribute(record, names.per_column_stats);
        const bool has_table = PyDict_CheckExact(table.get());
        for (std::size_t i = 0; i < measures.size(); ++i) {
            if (!has_table || entry(table.get(), keys[i]) == nullptr) {
                attribute(record, measures[i]);
            }
        }
        attribute(record, names.turnover);
        attribute(record, names.correlation);
        attribute(record, names.passed_thresholds);
        read_usage(record, names.functions, function_key);
        read_usage(record, names.features, feature_key);
        attribute(record, names.timestamp);
        attribute(record, names.era_id);
    }
}

inline void read_patterns(const Names& names, Records records) {
    for (PyObject* record : records) {
        attribute(record, names.passed_thresholds);
        attribute(record, names.tree_depth);
        read_usage(record, names.functions, names.function_family);
    }
}

inline void read_passed(const Names& names, Records records) {
    for (PyObject* record : records) {
        attribute(record, names.passed_thresholds);
    }
}

inline void read_pairs(const Names& names, Records records) {
    read_passed(names, records);
    for (PyObject* record : records) {
        const std::size_t count =
            each_usage_value(record, names.functions, names.function_name, [](PyObject* value) {
                hash_of(value);
                return true;
            });
        if (count > 1) {
            attribute(record, names.passed_thresholds);
        }
    }
}

// What is recent is known only after its time is read, and looked at only after all times are.
inline void read_recent(const Names& names, Records records, double cutoff) {
    std::vector<PyObject*> recent;
    for (PyObject* record : records) {
        if (number(attribute(record, names.timestamp).get()) >= cutoff) {
            recent.push_back(record);
        }
    }
    read_passed(names, recent);
}

inline void read_velocity(const Names& names, Records records, PyObject* windows, double now) {
    for (PyObject* minutes : items_of(windows)) {
        read_recent(names, records, now - number(minutes) * 60.0);
    }
}

inline void read_yields(const Names& names, Records records, double cutoff) {
    read_passed(names, records);
    read_recent(names, records, cutoff);
    for (PyObject* record : records) {
        const Owned eval_type = attribute(record, names.eval_type);
        for (PyObject* name : {names.agent_is_pnl_mi, names.is_pnl_mi, names.failure_reason,
                               names.failure_detail, names.rejection_reason}) {
            attribute_or_none(record, name);
        }
        attribute(record, names.eval_id);
        attribute_or_none(record, names.strategy_pool_id);
        if (same_text(eval_type.get(), names.signal)) {
            attribute_or_none(record, names.signal_pool_id);
        } else if (same_text(eval_type.get(), names.strategy)) {
            attribute_or_none(record, names.strategy_signal_pool);
        }
        attribute_or_none(record, names.is_correlation);
    }
}

// connection.execute(statement, (parameter,)).fetchone()
inline void ask(const Names& names, PyObject* connection, PyObject* statement,
                PyObject* parameter) {
    const Owned parameters(PyTuple_Pack(1, parameter));
    PyObject* arguments[] = {connection, statement, parameters.get()};
    const Owned cursor(PyObject_VectorcallMethod(names.execute, arguments, 3, nullptr));
    const Owned row(PyObject_CallMethodNoArgs(cursor.get(), names.fetchone));
}

// The queries of get_yield_analysis: for each record the probe for its status table, then its
// status. `statements` is {evaluation type: (table, status query)}.
inline void send_queries(const Names& names, Records records, PyObject* connection, PyObject* probe,
                         PyObject* statements) {
    for (PyObject* record : records) {
        const Owned eval_type = attribute(record, names.eval_type);
        PyObject* statement = entry(statements, eval_type.get());
        if (statement != nullptr) {
            ask(names, connection, probe, PyTuple_GET_ITEM(statement, 0));
            const Owned eval_id = attribute(record, names.eval_id);
            ask(names, connection, PyTuple_GET_ITEM(statement, 1), eval_id.get());
        }
    }
}

}  // namespace floor_reads
