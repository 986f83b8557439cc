// Telling an agent's own measure from the server's.
#include "engine/tamper.h"

#include <cmath>
#include <limits>

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// Differences up to this size are rounding, not disagreement. Absolute.
constexpr double kTolerance = 1e-9;

// float(value), or nothing where the value is no number.
std::optional<Ref> as_float(PyObject* value) {
    if (PyFloat_CheckExact(value)) {
        return Ref::share(value);
    }
    try {
        return Ref::steal(PyNumber_Float(value));
    } catch (const ErrorSet&) {
        if (!error_is(PyExc_TypeError) && !error_is(PyExc_ValueError)) {
            throw;
        }
        forget_error();
        return std::nullopt;
    }
}

// Whether math.isfinite stands as the module found it; looked at without running code.
bool isfinite_is_original(const ModuleState& state) {
    const Names& names = state.names;
    const auto math = dict_entry(state.globals(), names.math);
    if (!math || !PyModule_CheckExact(math->get())) {
        return false;
    }
    const auto test = dict_entry(PyModule_GetDict(math->get()), names.isfinite);
    return test && is_bound(state, names.isfinite, test->get());
}

// math.isfinite(value), whatever stands there now.
bool ask_isfinite(const ModuleState& state, const Ref& value) {
    const Ref math = load_global(state, state.names.math);
    const Ref test = attribute(math.get(), state.names.isfinite);
    return truth(call(test.get(), value.get()).get());
}

Ref pnl_mi_tamper_delta_function(const Call& call) {
    const Names& names = call.names();
    return pnl_mi_tamper_delta(call.state(), call[names.agent_value], call[names.server_value]);
}

}  // namespace

Ref pnl_mi_tamper_delta(const ModuleState& state, PyObject* agent_value, PyObject* server_value) {
    if (agent_value == Py_None || server_value == Py_None) {
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
    const bool can_look = isfinite_is_original(state);
    const auto is_finite = [&](const Ref& value) {
        return can_look ? std::isfinite(PyFloat_AS_DOUBLE(value.get()))
                        : ask_isfinite(state, value);
    };
    const double agent_number = PyFloat_AS_DOUBLE(agent->get());
    // A zero from the agent stands for "not reported".
    if (agent_number == 0.0 || !is_finite(*server)) {
        return Ref::none();
    }
    if (!is_finite(*agent)) {
        return real(std::numeric_limits<double>::infinity());
    }
    const double delta = std::fabs(agent_number - PyFloat_AS_DOUBLE(server->get()));
    return delta > kTolerance ? real(delta) : Ref::none();
}

const FunctionDescription kPnlMiTamperDelta = {
    "_pnl_mi_tamper_delta",
    "Return by how much an agent's value and the server's disagree, or None.",
    {"agent_value, server_value"},
    {},
    pnl_mi_tamper_delta_function,
};

}  // namespace search_analytics
