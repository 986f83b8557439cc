// Time windows: which records fall into one.
#pragma once

#include <optional>
#include <vector>

#include "engine/count_table.h"
#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kFilterByTimeWindow;

inline constexpr long kSecondsPerWeek = 604800;
inline constexpr long kSecondsPerDay = 86400;

// now - seconds
host::Ref cutoff_before(PyObject* now, long seconds);

// time.time(), of whatever stands under `time` in the module now.
host::Ref current_time(const host::ModuleState& state);

// A moment that time stamps are compared with: the cut-off of a window that ends now. Floats are
// compared directly, all else by the objects' own `>=`.
class Cutoff {
   public:
    explicit Cutoff(host::Ref moment);

    // Whether includes() runs no code for this object.
    bool can_look_at(PyObject* timestamp) const {
        return is_real_ && PyFloat_CheckExact(timestamp);
    }

    // timestamp >= cut-off
    bool includes(PyObject* timestamp) const {
        if (is_real_ && PyFloat_CheckExact(timestamp)) [[likely]] {
            return PyFloat_AS_DOUBLE(timestamp) >= seconds_;
        }
        return host::compare(timestamp, moment_.get(), Py_GE);
    }

   private:
    host::Ref moment_;
    bool is_real_;
    double seconds_;
};

// A new list of the records of `evals` that are not older than the cut-off.
host::Ref records_since(const host::Names& names, PyObject* evals, const Cutoff& cutoff);

// How many records of the list `evals` are not older than each cut-off, and how many of those
// passed: one walk for all cut-offs; nothing if looking is not enough for one of the records.
std::optional<std::vector<PassCounts>> counts_by_looking(const host::Names& names, PyObject* evals,
                                                         const std::vector<Cutoff>& cutoffs);

// How many records of `evals` passed.
Py_ssize_t passed_count(const host::Names& names, PyObject* evals);

// A member of TimeWindow, by its name, as the module's vocabulary has it now.
host::Ref time_window_member(const host::ModuleState& state, PyObject* name);

}  // namespace search_analytics
