// The path under which the module shows its source text.
#include "module/source_alias.h"

#include <string>

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

constexpr const char* kSourceSuffix = ".cpp";
constexpr const char* kExtensionTag = ".cpython-";

Py_ssize_t find(PyObject* text, const char* part) {
    return PyUnicode_Find(text, unicode(part).get(), 0, PyUnicode_GET_LENGTH(text), 1);
}

// The source file beside a compiled one, or nothing where the path does not name a compiled file.
std::optional<Ref> adjacent_source(PyObject* path) {
    if (find(path, kSourceSuffix) >= 0) {
        return std::nullopt;
    }
    const Py_ssize_t end = find(path, kExtensionTag);
    if (end < 0) {
        return std::nullopt;
    }
    const Ref stem = Ref::steal(PyUnicode_Substring(path, 0, end));
    return Ref::steal(PyUnicode_Concat(stem.get(), unicode(kSourceSuffix).get()));
}

Ref alias_source_file(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    const auto resolved = dict_entry(state.globals(), names.dunder_file);
    if (!resolved || !truth(resolved->get())) {
        return Ref::none();
    }
    if (!PyUnicode_Check(resolved->get())) {
        raise(PyExc_TypeError,
              format("__file__ must be a str, not %s", Py_TYPE(resolved->get())->tp_name));
    }
    const auto source = adjacent_source(resolved->get());
    if (!source) {
        return Ref::none();
    }
    const Ref os = load_global(state, names._os);
    const Ref path = attribute(os.get(), names.path);
    if (!truth(call_method(path.get(), names.isfile, source->get()).get())) {
        return Ref::none();
    }
    bind_global(state, names.dunder_file, source->get());
    const Ref modules = attribute(load_global(state, names._sys).get(), names.modules);
    const Ref name = load_global(state, names.dunder_name);
    const Ref module = call_method(modules.get(), names.get, name.get());
    if (!module.is_none()) {
        set_attribute(module.get(), names.dunder_file, source->get());
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
