// How fast the search runs.
#include "analytics/questions.h"
#include "engine/filters.h"
#include "engine/time_window.h"
#include "engine/trend.h"
#include "facade/record_maker.h"
#include "facade/traceback.h"
#include "records/fields.h"
#include "tables/count_table.h"

namespace search_analytics {

namespace {

// The window lengths in minutes: those asked for, or an hour, six hours and a day.
Ref requested_windows(Arg windows) {
    if (windows.is_none()) {
        Ref usual = new_list();
        for (const Py_ssize_t minutes : {60, 360, 1440}) {
            append(usual, new_int(minutes));
        }
        return usual;
    }
    if (length(windows) == 0) {
        raise(PyExc_ValueError, "windows must be None or a non-empty list of positive integers.");
    }
    const Ref zero = new_int(0);
    for_each(windows, [&](PyObject* window) {
        if (compare(window, zero, Py_LE)) {
            raise(PyExc_ValueError, format("window size must be positive, got %U.", text(window)));
        }
    });
    return windows.share();
}

// count / hours, or 0.0 for a window of no length.
Ref per_hour(Py_ssize_t count, const Ref& hours, bool has_length) {
    return has_length ? divide(new_int(count), hours) : new_float(0.0);
}

// The record of a window of `minutes`.
Ref measure(RecordMaker& maker, const Names& names, Arg minutes, const PassCounts& counts) {
    const Ref hours = divide(minutes, new_float(60.0));
    const bool has_length = compare(hours, new_int(0), Py_GT);
    Ref evaluations = per_hour(counts.total, hours, has_length);
    Ref passes = per_hour(counts.passed, hours, has_length);
    return maker.make({{names.window_minutes, minutes.get()},
                       {names.evaluations_per_hour, std::move(evaluations)},
                       {names.passes_per_hour, std::move(passes)},
                       {names.total_evaluations, counts.total},
                       {names.total_passed, counts.passed}});
}

// The windows one after the other, each over the records again: a record may change them, or
// itself, whenever it is asked.
Ref measure_each(const ModuleState& state, Arg evals, Arg now, Arg windows) {
    const Names& names = state.names();
    RecordMaker maker(state, names.VelocityWindow);
    Ref measured = new_list();
    for_each(windows, [&](PyObject* minutes) {
        const Ref recent = records_since(names, evals, cutoff_of_minutes(now, minutes));
        const PassCounts counts = {list_size(recent), passed_count(names, recent)};
        append(measured, measure(maker, names, minutes, counts));
    });
    return measured;
}

// A window that is counted beside others.
struct Window {
    Ref minutes;
    Bound cutoff;
    PassCounts counts;
};

// Whether reckoning with a number runs no code and cannot fail.
bool is_tame(Arg number) {
    return is_exact_int(number) ? machine_word(number).has_value() : is_exact_float(number);
}

// The windows as they can be counted beside each other; nothing where working out a cut-off could
// change anything.
std::optional<std::vector<Window>> windows_beside(Arg now, Arg windows) {
    if (!is_exact_float(now) || !is_exact_list(windows)) {
        return std::nullopt;
    }
    std::vector<Window> beside;
    for (Py_ssize_t i = 0; i < list_size(windows); ++i) {
        Ref minutes = list_item(windows, i);
        if (!is_tame(minutes)) {
            return std::nullopt;
        }
        Bound cutoff = cutoff_of_minutes(now, minutes);
        beside.push_back({std::move(minutes), std::move(cutoff), {}});
    }
    return beside;
}

// Counts the records of all windows in one walk, which reads the records' memory once and not once
// for each window. In the order of Python, window by window, this can be told from nothing as long
// as no code runs: it is done by peeking alone, and false where a record has to be asked.
bool count_beside(const Names& names, Arg evals, std::vector<Window>& windows) {
    Number timestamp(names.timestamp);
    Flag passed(names.passed_thresholds);
    return peek_each_evaluation(
        evals,
        [&](const View& view) {
            const Peeked ev = {view.record};
            const double moment = timestamp(ev);
            for (Window& window : windows) {
                if (window.cutoff.is_reached_by(moment)) {
                    if (!passed.peek(view)) {
                        return false;
                    }
                    window.counts.add(passed(ev));
                }
            }
            return true;
        },
        timestamp, passed);
}

std::optional<Ref> measure_beside(const ModuleState& state, Arg evals, Arg now, Arg windows) {
    const Names& names = state.names();
    RecordMaker maker(state, names.VelocityWindow);
    auto beside = windows_beside(now, windows);
    if (!beside || !is_exact_list(evals) || !is_original(state, names.VelocityWindow) ||
        !maker.is_original() || !count_beside(names, evals, *beside)) {
        return std::nullopt;
    }
    Ref measured = new_list();
    for (const Window& window : *beside) {
        append(measured, measure(maker, names, window.minutes, window.counts));
    }
    return measured;
}

// What tracebacks show of the expression that looks for a window with too few.
constexpr InnerFunction kTooFew = {"<genexpr>", "SearchAnalytics.get_search_velocity.<locals>"};

bool has_too_few(const ModuleState& state, const Ref& measured) {
    bool found = false;
    for_each_until(measured, [&](PyObject* window) {
        found = truth(in_generator(state, kTooFew, [&] {
            const Ref total = attribute(window, state.names().total_evaluations);
            return comparison(total, new_int(kFewestForTrend), Py_LT);
        }));
        return !found;
    });
    return found;
}

// Compares the passes per hour of the shortest window with those of the longest.
std::string_view velocity_trend(const ModuleState& state, const Ref& measured) {
    const Names& names = state.names();
    if (has_too_few(state, measured)) {
        return kNoTrend;
    }
    Ref shortest = item(measured, 0);
    Ref longest = item(measured, 0);
    const auto is_beyond = [&](PyObject* window, const Ref& known, int operation) {
        const Ref minutes = attribute(window, names.window_minutes);
        return compare(minutes, attribute(known, names.window_minutes), operation);
    };
    for_each(measured, [&](PyObject* window) {
        if (is_beyond(window, shortest, Py_LT)) {
            shortest = Ref::share(window);
        }
        if (is_beyond(window, longest, Py_GT)) {
            longest = Ref::share(window);
        }
    });
    return trend("rising", [&](double factor, int operation) {
        const Ref recent = attribute(shortest, names.passes_per_hour);
        const Ref usual = attribute(longest, names.passes_per_hour);
        return compare(recent, multiply(usual, new_float(factor)), operation);
    });
}

Ref get_search_velocity(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    validate_eval_type(call);
    const Ref windows = requested_windows(call[names.windows]);
    const Ref evals = fetch(call);
    const Ref now = current_time(state);
    auto beside = measure_beside(state, evals, now, windows);
    const Ref measured = beside ? std::move(*beside) : measure_each(state, evals, now, windows);
    return RecordMaker(state, names.SearchVelocityResult)
        .make({{names.windows, measured}, {names.trend, velocity_trend(state, measured)}});
}

}  // namespace

const RecordDescription kVelocityWindow = {
    "VelocityWindow",
    "Velocity for a time window.",
    {{"window_minutes", "int", Default::kZero},
     {"evaluations_per_hour", "float", Default::kZeroReal},
     {"passes_per_hour", "float", Default::kZeroReal},
     {"total_evaluations", "int", Default::kZero},
     {"total_passed", "int", Default::kZero}},
};

const RecordDescription kSearchVelocityResult = {
    "SearchVelocityResult",
    "Result from get_search_velocity().",
    {{"windows", "List[VelocityWindow]", Default::kList}, {"trend", "str", Default::kEmptyText}},
};

const FunctionDescription kGetSearchVelocity = {
    "get_search_velocity",
    "Evaluation rate across time windows.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, kPoolFilterParameters,
     "windows=None"},
    "SearchVelocityResult",
    get_search_velocity,
};

}  // namespace search_analytics
