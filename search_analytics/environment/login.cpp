// The caller's login: the package must be registered or logged in before any analytics call.
#include "environment/helpers.h"
#include "environment/search_module.h"
#include "facade/statement.h"
#include "facade/traceback.h"
#include "names/names.h"

namespace search_analytics {

namespace {

Ref auth_from_onboarding_or_search(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    Ref auth = attribute_or_none(call[names.onboarding_mod], names._auth_manager);
    if (!auth.is_none()) {
        return auth;
    }
    const auto search_module = find_search_module(state);
    return search_module ? attribute_or_none(search_module->get(), names._auth) : Ref::none();
}

// AuthError(_AUTH_REQUIRED_MESSAGE)
Ref login_required(const ModuleState& state, Arg auth_error) {
    const Ref message = load_global(state, state.names().auth_required_message);
    return call(auth_error, message);
}

// The caller's token. A failure to get one means "not logged in", whatever went wrong; it is
// kept as the cause.
Ref login_token(const ModuleState& state, Arg auth_error, Arg auth) {
    try {
        return call_method(auth, state.names().get_token);
    } catch (const ErrorSet&) {
        if (!error_is(PyExc_Exception)) {
            throw;
        }
    }
    show_in_traceback(state, kRequireRegisteredOrLoggedIn);
    const Ref failure = take_error();
    const HandledException handled(failure);
    raise_object_from(login_required(state, auth_error), failure);
}

Ref require_registered_or_logged_in(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    const Ref auth_error =
        import_statement(state, "from kestrune.auth import AuthError", names.AuthError);
    const Ref auth =
        call_global(state, names._auth_from_onboarding_or_search, call[names.onboarding_mod]);
    if (auth.is_none() || !optional_attribute(auth, names.get_token)) {
        raise_object(login_required(state, auth_error));
    }
    const Ref token = login_token(state, auth_error, auth);
    if (!truth(token)) {
        raise_object(login_required(state, auth_error));
    }
    return Ref::none();
}

}  // namespace

const FunctionDescription kAuthFromOnboardingOrSearch = {
    "_auth_from_onboarding_or_search",
    "Return the auth object of the onboarding or the search module, or None.",
    {"onboarding_mod"},
    {},
    auth_from_onboarding_or_search,
};

const FunctionDescription kRequireRegisteredOrLoggedIn = {
    "_require_registered_or_logged_in",
    "Raise AuthError unless the caller is registered or logged in.",
    {"onboarding_mod"},
    {},
    require_registered_or_logged_in,
};

}  // namespace search_analytics
