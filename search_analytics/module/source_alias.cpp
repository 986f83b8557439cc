// The path under which the module shows its source text.
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

constexpr const char* kSourceSuffix = ".cpp";
constexpr const char* kExtensionTag = ".cpython-";

// The source file beside a compiled one, or nothing where the path does not name a compiled file.
std::optional<Ref> adjacent_source(const Names& names, PyObject* path) {
    if (contains(path, new_str(kSourceSuffix))) {
        return std::nullopt;
    }
    const Ref position = call_method(path, names.find, new_str(kExtensionTag));
    if (equal(position, new_int(-1))) {
        return std::nullopt;
    }
    const Ref stem = first_items(path, position);
    return add(stem, new_str(kSourceSuffix));
}

Ref alias_source_file(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    const auto resolved = dict_entry(state.globals(), names.dunder_file);
    if (!resolved || !truth(resolved->get())) {
        return Ref::none();
    }
    const auto source = adjacent_source(names, resolved->get());
    if (!source) {
        return Ref::none();
    }
    const Ref os = load_global(state, names._os);
    const Ref path = attribute(os, names.path);
    if (!truth(call_method(path, names.isfile, source->get()).get())) {
        return Ref::none();
    }
    bind_global(state, names.dunder_file, source->get());
    const Ref modules = attribute(load_global(state, names._sys), names.modules);
    const Ref name = load_global(state, names.dunder_name);
    const Ref module = call_method(modules, names.get, name);
    if (!module.is_none()) {
        set_attribute(module, names.dunder_file, source->get());
    }
    return Ref::none();
}

}  // namespace

const FunctionDescription kAliasSourceFile = {
    "_alias_source_file",
    "Expose the adjacent source-text path for tests that inspect source text.",
    {},
    {},
    alias_source_file,
};

}  // namespace search_analytics
