// Telling an agent's own measure from the server's.
#include <cmath>
#include <limits>

#include "engine/functions.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// Differences up to this size are rounding, not disagreement. Absolute.
constexpr double kTolerance = 1e-9;

// float(value), or nothing where the value is no number.
std::optional<Ref> as_float(Arg value) {
    try {
        return to_float(value);
    } catch (const ErrorSet&) {
        if (!error_is(PyExc_TypeError) && !error_is(PyExc_ValueError)) {
            throw;
        }
        forget_error();
        return std::nullopt;
    }
}

// math.isfinite(value), whatever stands there now.
bool ask_isfinite(const ModuleState& state, const Ref& value) {
    const Ref math = load_global(state, state.names().math);
    const Ref test = attribute(math, state.names().isfinite);
    return truth(call(test, value));
}

Ref pnl_mi_tamper_delta_function(const Call& call) {
    const Names& names = call.names();
    return pnl_mi_tamper_delta(call.state(), call[names.agent_value], call[names.server_value]);
}

}  // namespace

Ref pnl_mi_tamper_delta(const ModuleState& state, Arg agent_value, Arg server_value) {
    if (agent_value.is_none() || server_value.is_none()) {
        return Ref::none();
    }
    const auto agent = as_float(agent_value);
    if (!agent) {
        return Ref::none();
    }
    const auto server = as_float(server_value);
    if (!server) {
        return Ref::none();
    }
    const Names& names = state.names();
    const bool is_usual = is_original_member(state, names.math, names.isfinite);
    const auto is_finite = [&](const Ref& value) {
        return is_usual ? std::isfinite(as_double(value)) : ask_isfinite(state, value);
    };
    const double agent_number = as_double(*agent);
    // A zero from the agent stands for "not reported".
    if (agent_number == 0.0 || !is_finite(*server)) {
        return Ref::none();
    }
    if (!is_finite(*agent)) {
        return new_float(std::numeric_limits<double>::infinity());
    }
    const double delta = std::fabs(subtract(agent_number, as_double(*server)));
    return delta > kTolerance ? new_float(delta) : Ref::none();
}

const FunctionDescription kPnlMiTamperDelta = {
    "_pnl_mi_tamper_delta",
    "Return by how much an agent's value and the server's disagree, or None.",
    {"agent_value, server_value"},
    {},
    pnl_mi_tamper_delta_function,
};

}  // namespace search_analytics
