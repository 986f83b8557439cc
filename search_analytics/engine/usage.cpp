// What an evaluation used: its functions and features as items, and the names in them.
#include "engine/usage.h"

#include "engine/functions.h"
#include "facade/traceback.h"

namespace search_analytics {

namespace {

bool has_dictionary(Arg names) {
    bool found = false;
    for_each_until(names, [&](PyObject* name) {
        found = is_dict(name);
        return !found;
    });
    return found;
}

// key == name_key; the keys are interned as a rule
bool same_key(Arg key, Arg name_key) {
    return (key == name_key.get() && is_exact_str(key)) || equal(key, name_key);
}

bool is_truthy_value(Arg value) {
    return is_exact_str(value) ? !is_empty_text(value) : truth(value);
}

Ref call_usage_items(const ModuleState& state, Arg record, Arg metadata_attr, Arg names_attr,
                     Arg name_key) {
    return call_global(state, state.names()._usage_items, record, metadata_attr, names_attr,
                       name_key);
}

Ref usage_items_function(const Call& call) {
    const Names& names = call.names();
    Attribute metadata(call[names.metadata_attr]);
    Attribute bare_names(call[names.names_attr]);
    return usage_items(call[names.record], metadata, bare_names, call[names.name_key]);
}

Ref function_items(const Call& call) {
    const Names& names = call.names();
    return call_usage_items(call.state(), call[names.record], names.function_metadata,
                            names.functions, names.function_name);
}

Ref feature_items(const Call& call) {
    const Names& names = call.names();
    return call_usage_items(call.state(), call[names.record], names.feature_metadata,
                            names.features, names.feature_name);
}

Ref usage_value_function(const Call& call) {
    const Names& names = call.names();
    return usage_value(names, call[names.item], call[names.key], call[names.name_key]);
}

}  // namespace

Ref usage_items(PyObject* record, Attribute& metadata, Attribute& bare_names, PyObject* name_key) {
    Ref rich = metadata.ask_or_none(record);
    if (truth(rich)) {
        return rich;
    }
    Ref names = bare_names.ask_or_none(record);
    if (!truth(names)) {
        return new_list();
    }
    if (has_dictionary(names)) {
        return names;
    }
    Ref items = new_list();
    for_each(names, [&](PyObject* name) {
        const Ref item = new_dict();
        set_item(item, name_key, name);
        append(items, item);
    });
    return items;
}

// A bare name is its own name and has no family.
Ref usage_value(const Names& names, Arg item, Arg key, Arg name_key) {
    if (!is_dict(item)) {
        return same_key(key, name_key) ? text(item) : Ref::share(names.empty);
    }
    Ref value = get_or_none(item, key, names.get);
    if (value.is_none()) {
        value = get_or_none(item, name_key, names.get);
    }
    return is_truthy_value(value) ? std::move(value) : Ref::share(names.empty);
}

UsageReader::Readers::Readers(const ModuleState& state, const FunctionDescription& described,
                              PyObject* items_name, PyObject* metadata_attr, PyObject* names_attr,
                              PyObject* item_name_key)
    : metadata(metadata_attr),
      names(names_attr),
      name_key(item_name_key),
      description(described),
      items_function(state, items_name) {}

UsageReader::UsageReader(const ModuleState& state)
    : state_(state),
      usage_items_(state, state.names()._usage_items),
      usage_value_(state, state.names()._usage_value),
      functions_(state, kFunctionItems, state.names()._function_items,
                 state.names().function_metadata, state.names().functions,
                 state.names().function_name),
      features_(state, kFeatureItems, state.names()._feature_items, state.names().feature_metadata,
                state.names().features, state.names().feature_name) {}

void UsageReader::refresh() {
    const bool are_original = usage_items_.is_original() && usage_value_.is_original();
    functions_.may_peek = are_original && functions_.items_function.is_original();
    features_.may_peek = are_original && features_.items_function.is_original();
}

Ref UsageReader::items(PyObject* record, Side side) {
    Readers& readers = of(side);
    if (readers.items_function.is_original() && usage_items_.is_original()) {
        return in_place_of(state_, readers.description, [&] {
            return in_place_of(state_, kUsageItems, [&] {
                return usage_items(record, readers.metadata, readers.names, readers.name_key);
            });
        });
    }
    return call_global(state_, readers.items_function.name(), record);
}

Ref UsageReader::value(Arg item, Arg key, Side side) {
    PyObject* name_key = of(side).name_key;
    if (usage_value_.is_original()) {
        return in_place_of(state_, kUsageValue,
                           [&] { return usage_value(state_.names(), item, key, name_key); });
    }
    return call_global(state_, usage_value_.name(), item, key, name_key);
}

const FunctionDescription kUsageItems = {
    "_usage_items",
    "Return a record's usage as a list of items, from its metadata or else from its bare names.",
    {"record, metadata_attr, names_attr, name_key"},
    {},
    usage_items_function,
};

const FunctionDescription kFunctionItems = {
    "_function_items", "Return the function items of a record.", {"record"}, {}, function_items,
};

const FunctionDescription kFeatureItems = {
    "_feature_items", "Return the feature items of a record.", {"record"}, {}, feature_items,
};

const FunctionDescription kUsageValue = {
    "_usage_value",
    "Return an item's value for a key, else its name; a bare name is its own name only.",
    {"item, key, name_key"},
    {},
    usage_value_function,
};

}  // namespace search_analytics
