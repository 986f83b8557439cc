// The search that is running in this process, if any.
#include "environment/helpers.h"
#include "environment/search_module.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// A stopped search does not count, nor one that has no tracker yet.
bool is_usable(const Names& names, Arg handle) {
    const auto stopped = optional_attribute(handle, names._stopped);
    if (stopped && truth(stopped->get())) {
        return false;
    }
    return !attribute_or_none(handle, names._tracker).is_none();
}

// Walks a copy of the handles: searches start and stop while it is read.
Ref active_search_handle(const Call& call) {
    const Names& names = call.names();
    const auto search_module = find_search_module(call.state());
    if (!search_module) {
        return Ref::none();
    }
    const auto handles = optional_attribute(search_module->get(), names._active_handles);
    const Ref snapshot = handles ? list_of(handles->get()) : new_list();
    Ref found = Ref::none();
    for_each_until(snapshot, [&](PyObject* handle) {
        if (!is_usable(names, handle)) {
            return true;
        }
        found = Ref::share(handle);
        return false;
    });
    return found;
}

}  // namespace

const FunctionDescription kActiveSearchHandle = {
    "_active_search_handle",
    "Return the first live search handle that has a tracker, or None.",
    {},
    {},
    active_search_handle,
};

}  // namespace search_analytics
