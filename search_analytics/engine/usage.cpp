// What an evaluation used: its functions and features as items, and the names in them.
#include "engine/usage.h"

namespace search_analytics {

using namespace host;

namespace {

bool has_dictionary(PyObject* names) {
    bool found = false;
    for_each_until(names, [&](PyObject* name) {
        found = is_dict(name);
        return !found;
    });
    return found;
}

// key == name_key; the keys are interned as a rule
bool same_key(PyObject* key, PyObject* name_key) {
    if (key == name_key && PyUnicode_CheckExact(key)) {
        return true;
    }
    return equal(key, name_key);
}

bool is_truthy_value(PyObject* value) {
    if (PyUnicode_CheckExact(value)) {
        return PyUnicode_GET_LENGTH(value) > 0;
    }
    return truth(value);
}

Ref call_usage_items(const ModuleState& state, PyObject* record, PyObject* metadata_attr,
                     PyObject* names_attr, PyObject* name_key) {
    return call_global(state, state.names._usage_items, record, metadata_attr, names_attr,
                       name_key);
}

Ref usage_items_function(const Call& call) {
    const Names& names = call.names();
    AttributeReader metadata(call[names.metadata_attr]);
    AttributeReader bare_names(call[names.names_attr]);
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

Ref usage_items(PyObject* record, AttributeReader& metadata, AttributeReader& bare_names,
                PyObject* name_key) {
    Ref rich = metadata.read_or_none(record);
    if (truth(rich.get())) {
        return rich;
    }
    Ref names = bare_names.read_or_none(record);
    if (!truth(names.get())) {
        return new_list();
    }
    if (has_dictionary(names.get())) {
        return names;
    }
    Ref items = new_list();
    for_each(names.get(), [&](PyObject* name) {
        const Ref item = new_dict();
        set_item(item, name_key, name);
        append(items, item.get());
    });
    return items;
}

// A bare name is its own name and has no family.
Ref usage_value(const Names& names, PyObject* item, PyObject* key, PyObject* name_key) {
    if (!is_dict(item)) {
        return same_key(key, name_key) ? text(item) : Ref::share(names.empty);
    }
    Ref value = get_or_none(item, key, names.get);
    if (value.is_none()) {
        value = get_or_none(item, name_key, names.get);
    }
    return is_truthy_value(value.get()) ? std::move(value) : Ref::share(names.empty);
}

UsageReader::SideReaders::SideReaders(const ModuleState& state, PyObject* items_name,
                                      PyObject* metadata_attr, PyObject* names_attr,
                                      PyObject* item_name_key)
    : metadata(metadata_attr),
      names(names_attr),
      name_key(item_name_key),
      items_function(items_name),
      items_are_original(is_original(state, items_name) &&
                         is_original(state, state.names._usage_items)) {}

UsageReader::UsageReader(const ModuleState& state)
    : state_(state),
      functions_(state, state.names._function_items, state.names.function_metadata,
                 state.names.functions, state.names.function_name),
      features_(state, state.names._feature_items, state.names.feature_metadata,
                state.names.features, state.names.feature_name),
      value_is_original_(is_original(state, state.names._usage_value)) {}

Ref UsageReader::items(PyObject* record, Side side) {
    SideReaders& readers = of(side);
    if (readers.items_are_original) {
        return usage_items(record, readers.metadata, readers.names, readers.name_key);
    }
    return call_global(state_, readers.items_function, record);
}

Ref UsageReader::value(PyObject* item, PyObject* key, Side side) const {
    PyObject* name_key = of(side).name_key;
    if (value_is_original_) {
        return usage_value(state_.names, item, key, name_key);
    }
    return call_global(state_, state_.names._usage_value, item, key, name_key);
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
