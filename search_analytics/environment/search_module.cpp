// The package's search module: found where it is loaded, imported where it is not.
#include "environment/search_module.h"

#include "facade/statement.h"
#include "names/names.h"

namespace search_analytics {

std::optional<Ref> find_search_module(ModuleState& state) {
    const Names& names = state.names();
    const Ref sys = load_global(state, names._sys);
    const Ref modules = attribute(sys, names.modules);
    Ref loaded = call_method(modules, names.get, names.search_templates_module);
    if (!loaded.is_none()) {
        return loaded;
    }
    try {
        return import_statement(state, "import kestrune.search_templates as search_mod",
                                names.search_mod);
    } catch (const ErrorSet&) {
        if (!error_is(PyExc_ImportError)) {
            throw;
        }
        forget_error();
        return std::nullopt;
    }
}

}  // namespace search_analytics
