// How fast the search runs.
#include "analytics/search_velocity.h"

#include "engine/filters.h"
#include "engine/record_maker.h"
#include "engine/time_window.h"
#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// With fewer evaluations than this in a window, its rate says nothing of a trend.
constexpr Py_ssize_t kFewestForTrend = 10;
constexpr double kRising = 1.2;
constexpr double kDeclining = 0.8;

// The window lengths in minutes: those asked for, or an hour, six hours and a day.
Ref requested_windows(PyObject* windows) {
    if (windows == Py_None) {
        Ref usual = new_list();
        for (const Py_ssize_t minutes : {60, 360, 1440}) {
            append(usual, integer(minutes).get());
        }
        return usual;
    }
    if (length(windows) == 0) {
        raise(PyExc_ValueError, "windows must be None or a non-empty list of positive integers.");
    }
    const Ref zero = integer(0);
    for_each(windows, [&](PyObject* window) {
        if (compare(window, zero.get(), Py_LE)) {
            raise(PyExc_ValueError,
                  format("window size must be positive, got %U.", text(window).get()));
        }
    });
    return Ref::share(windows);
}

// count / hours, or 0.0 for a window of no length.
Ref per_hour(const Ref& count, const Ref& hours, bool has_length) {
    return has_length ? divide(count.get(), hours.get()) : real(0.0);
}

// now - window * 60
Cutoff cutoff_of(PyObject* now, PyObject* window) {
    const Ref seconds = multiply(window, integer(60).get());
    return Cutoff(subtract(now, seconds.get()));
}

PassCounts counts_since(const Names& names, PyObject* evals, const Cutoff& cutoff) {
    const Ref recent = records_since(names, evals, cutoff);
    return {list_size(recent), passed_count(names, recent.get())};
}

Ref measure(const ModuleState& state, const RecordMaker& maker, PyObject* window,
            const PassCounts& counts) {
    const Names& names = state.names;
    const Ref total = integer(counts.total);
    const Ref passed = integer(counts.passed);
    const Ref hours = divide(window, real(60.0).get());
    const bool has_length = compare(hours.get(), integer(0).get(), Py_GT);
    const Ref evaluation_rate = per_hour(total, hours, has_length);
    const Ref pass_rate = per_hour(passed, hours, has_length);
    return maker.make({{names.window_minutes, window},
                       {names.evaluations_per_hour, evaluation_rate.get()},
                       {names.passes_per_hour, pass_rate.get()},
                       {names.total_evaluations, total.get()},
                       {names.total_passed, passed.get()}});
}

// Whether reckoning with a window runs no code and cannot fail.
bool is_plain_window(PyObject* window) {
    int overflow = 0;
    if (PyLong_CheckExact(window)) {
        PyLong_AsLongLongAndOverflow(window, &overflow);
        return overflow == 0;
    }
    return PyFloat_CheckExact(window) != 0;
}

// The windows one after the other, each over the records again: a record may change them, or
// itself, whenever it is asked.
Ref measure_each(const ModuleState& state, PyObject* evals, PyObject* now, PyObject* windows) {
    const RecordMaker maker(state, state.names.VelocityWindow);
    Ref measured = new_list();
    for_each(windows, [&](PyObject* window) {
        const PassCounts counts = counts_since(state.names, evals, cutoff_of(now, window));
        append(measured, measure(state, maker, window, counts).get());
    });
    return measured;
}

// All windows in one walk over the records; nothing if looking is not enough for one of them.
std::optional<Ref> measure_together(const ModuleState& state, PyObject* evals, PyObject* now,
                                    PyObject* windows) {
    const RecordMaker maker(state, state.names.VelocityWindow);
    if (!maker.is_original() || !PyList_CheckExact(evals) || !PyList_CheckExact(windows)) {
        return std::nullopt;
    }
    std::vector<Ref> plain_windows;
    std::vector<Cutoff> cutoffs;
    for (PyObject* window : items_of(windows)) {
        if (!is_plain_window(window)) {
            return std::nullopt;
        }
        plain_windows.push_back(Ref::share(window));
        cutoffs.push_back(cutoff_of(now, window));
    }
    const auto counts = counts_by_looking(state.names, evals, cutoffs);
    if (!counts) {
        return std::nullopt;
    }
    Ref measured = new_list();
    for (std::size_t i = 0; i < cutoffs.size(); ++i) {
        append(measured, measure(state, maker, plain_windows[i].get(), (*counts)[i]).get());
    }
    return measured;
}

bool has_too_few(const Names& names, const Ref& measured) {
    const Ref fewest = integer(kFewestForTrend);
    bool found = false;
    for_each_until(measured.get(), [&](PyObject* window) {
        const Ref total = attribute(window, names.total_evaluations);
        found = compare(total.get(), fewest.get(), Py_LT);
        return !found;
    });
    return found;
}

// Compares the passes per hour of the shortest window with those of the longest.
std::string_view trend(const Names& names, const Ref& measured) {
    if (has_too_few(names, measured)) {
        return "insufficient_data";
    }
    Ref shortest = item(measured.get(), Py_ssize_t{0});
    Ref longest = shortest.copy();
    const auto is_beyond = [&](PyObject* window, const Ref& known, int operation) {
        const Ref minutes = attribute(window, names.window_minutes);
        return compare(minutes.get(), attribute(known.get(), names.window_minutes).get(),
                       operation);
    };
    for_each(measured.get(), [&](PyObject* window) {
        if (is_beyond(window, shortest, Py_LT)) {
            shortest = Ref::share(window);
        }
        if (is_beyond(window, longest, Py_GT)) {
            longest = Ref::share(window);
        }
    });
    const auto is_against_longest = [&](double factor, int operation) {
        const Ref rate = attribute(shortest.get(), names.passes_per_hour);
        const Ref base = attribute(longest.get(), names.passes_per_hour);
        return compare(rate.get(), multiply(base.get(), real(factor).get()).get(), operation);
    };
    if (is_against_longest(kRising, Py_GT)) {
        return "rising";
    }
    return is_against_longest(kDeclining, Py_LT) ? "declining" : "stable";
}

Ref get_search_velocity(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    const Filters filters(call);
    filters.validate_eval_type(state, call[names.self]);
    const Ref windows = requested_windows(call[names.windows]);
    const Ref evals = filters.fetch(state, call[names.self], nullptr);
    const Ref now = current_time(state);
    auto together = measure_together(state, evals.get(), now.get(), windows.get());
    const Ref measured = together ? std::move(*together)
                                  : measure_each(state, evals.get(), now.get(), windows.get());
    const Ref label = unicode(trend(names, measured));
    return RecordMaker(state, names.SearchVelocityResult)
        .make({{names.windows, measured.get()}, {names.trend, label.get()}});
}

}  // namespace

const FunctionDescription kGetSearchVelocity = {
    "get_search_velocity",
    "Evaluation rate across time windows.",
    {"self", kHistoryFilterParameters, kPoolFilterParameters, "windows=None"},
    "SearchVelocityResult",
    get_search_velocity,
};

}  // namespace search_analytics
