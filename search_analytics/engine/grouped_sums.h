// Evaluations summed up by group and time window, one at a time.
#pragma once

#include <vector>

#include "engine/group_table.h"
#include "engine/time_window.h"
#include "engine/window_sums.h"

namespace search_analytics {

// What to sum: borrowed from the call that asks.
struct SumsRequest {
    PyObject* engine;
    PyObject* era_id;
    PyObject* aggregate_by;
    PyObject* pnl_column;
    PyObject* time_windows;
};

class GroupedSums {
   public:
    // Reads the clock, the windows and the engine's pools once; every evaluation is measured
    // against the same moment.
    GroupedSums(host::ModuleState& state, const SumsRequest& request);

    // Counts every evaluation into its group, and into each window that it falls into.
    void add_all(PyObject* evals);

    std::size_t size() const { return groups_.size(); }
    host::Ref key(std::size_t group) const { return groups_.key(group); }
    // Whether key() makes a pair of new sets that nobody else has seen.
    bool makes_new_keys() const { return groups_.is_plain(); }
    Py_ssize_t count(std::size_t group) const { return counts_[group]; }

    const std::vector<host::Ref>& windows() const { return windows_; }
    const WindowSums& sums(std::size_t group, std::size_t window) const {
        return sums_[cell(group, window)];
    }

    const std::vector<host::Ref>& pool_names() const { return pool_names_; }
    // How many of the window's evaluations the pool would take.
    Py_ssize_t submittable(std::size_t group, std::size_t window, std::size_t pool) const {
        return submittable_[cell(group, window) * pool_names_.size() + pool];
    }

   private:
    static constexpr std::size_t kNotRequested = static_cast<std::size_t>(-1);

    std::size_t cell(std::size_t group, std::size_t window) const {
        return group * windows_.size() + window;
    }

    void add(PyObject* ev);
    bool look(PyObject* ev);
    bool can_look() const;
    bool look_at_measures(PyObject* ev);
    void find_windows(PyObject* time_windows);
    void find_pools();
    void read_measures(PyObject* ev);
    host::Ref column_measure(PyObject* per_column, PyObject* key, PyObject* ev,
                             host::AttributeReader& reader);
    void find_submittable(PyObject* correlation);
    std::size_t group_of(PyObject* ev);
    void count_into_group(std::size_t group);
    void count_into_windows(std::size_t group, PyObject* timestamp, PyObject* era);
    void count_into(std::size_t group, std::size_t window);

    struct Readers {
        explicit Readers(const host::Names& names);

        host::AttributeReader per_column_stats;
        host::AttributeReader sharpe;
        host::AttributeReader returns;
        host::AttributeReader turnover;
        host::AttributeReader drawdown;
        host::AttributeReader correlation;
        host::AttributeReader passed_thresholds;
        host::AttributeReader timestamp;
        host::AttributeReader era_id;
    };

    host::ModuleState& state_;
    SumsRequest request_;
    Readers read_;
    UsageReader reader_;
    bool builds_keys_;  // the engine's _build_group_key is the class's own
    bool has_fixed_granularity_;
    Granularity granularity_;
    host::EntryReader function_entry_;
    host::EntryReader feature_entry_;

    host::Ref sharpe_key_;
    host::Ref returns_key_;
    host::Ref drawdown_key_;
    host::EntryReader sharpe_entry_;
    host::EntryReader returns_entry_;
    host::EntryReader drawdown_entry_;
    host::Ref now_;
    Cutoff week_;
    Cutoff day_;

    std::vector<host::Ref> windows_;
    // Where each kind of window stands in windows_.
    std::size_t lifetime_ = kNotRequested;
    std::size_t era_ = kNotRequested;
    std::size_t last_week_ = kNotRequested;
    std::size_t last_day_ = kNotRequested;
    // The pools' names, and the correlation limits that decide what could be submitted to them.
    std::vector<host::Ref> pool_names_;
    std::vector<host::Ref> thresholds_;
    bool thresholds_are_real_ = true;

    // The evaluation at hand.
    Measures measures_;
    std::vector<std::uint8_t> is_submittable_;
    KeySide functions_;
    KeySide features_;

    // By group; by group and window; by group, window and pool.
    GroupTable groups_;
    std::vector<Py_ssize_t> counts_;
    std::vector<WindowSums> sums_;
    std::vector<Py_ssize_t> submittable_;
    bool sums_are_real_ = true;
};

}  // namespace search_analytics
