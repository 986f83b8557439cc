// What an evaluation used: its functions and features as items, and the names in them.
#pragma once

#include "host/attribute_reader.h"
#include "host/containers.h"
#include "host/entry_reader.h"
#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kUsageItems;
extern const host::FunctionDescription kFunctionItems;
extern const host::FunctionDescription kFeatureItems;
extern const host::FunctionDescription kUsageValue;

enum class Side { kFunctions, kFeatures };

// Reads items and names through the module's helpers as they stand when an operation starts: a
// helper that a caller has replaced is called, one that stands as it was made is not called but
// carried out here.
class UsageReader {
   public:
    explicit UsageReader(const host::ModuleState& state);

    // _function_items(record) or _feature_items(record)
    host::Ref items(PyObject* record, Side side);

    // The item's value under `key`, by _usage_value with the side's name key to fall back on.
    host::Ref value(PyObject* item, PyObject* key, Side side) const;

    // Calls `visit` with the value of each item of `record` in turn.
    template <typename Visit>
    void for_each_value(PyObject* record, Side side, PyObject* key, Visit&& visit);

    // Calls `visit` with the value under `key` of each item of `record`, borrowed, until it returns
    // false. Returns whether looking was enough to read them, without running code, and all were
    // plain strings that say something (an empty one counts as no name where pairs are formed); if
    // not, `visit` may have seen some nevertheless.
    template <typename Visit>
    bool look(PyObject* record, Side side, host::EntryReader& key, Visit&& visit) const;

    // The reader of a side's metadata, for reading ahead.
    const host::AttributeReader* metadata(Side side) const { return &of(side).metadata; }

   private:
    struct SideReaders {
        SideReaders(const host::ModuleState& state, PyObject* items_function, PyObject* metadata,
                    PyObject* names, PyObject* name_key);

        host::AttributeReader metadata;
        host::AttributeReader names;
        PyObject* name_key;
        PyObject* items_function;
        bool items_are_original;
    };
    SideReaders& of(Side side) { return side == Side::kFunctions ? functions_ : features_; }
    const SideReaders& of(Side side) const {
        return side == Side::kFunctions ? functions_ : features_;
    }

    const host::ModuleState& state_;
    SideReaders functions_;
    SideReaders features_;
    bool value_is_original_;
};

template <typename Visit>
bool UsageReader::look(PyObject* record, Side side, host::EntryReader& key, Visit&& visit) const {
    const SideReaders& readers = of(side);
    PyObject* items = readers.metadata.look(record);
    if (items == nullptr || !PyList_CheckExact(items) || PyList_GET_SIZE(items) == 0 ||
        !readers.items_are_original || !value_is_original_) {
        return false;
    }
    for (PyObject* item : host::items_of(items)) {
        PyObject* value = key.look(item);
        if (value == nullptr || !host::is_plain_text(value) || PyUnicode_GET_LENGTH(value) == 0) {
            return false;
        }
        if (!visit(value)) {
            break;
        }
    }
    return true;
}

// The algorithms of `_usage_items` and `_usage_value`.
host::Ref usage_items(PyObject* record, host::AttributeReader& metadata,
                      host::AttributeReader& names, PyObject* name_key);
host::Ref usage_value(const host::Names& names, PyObject* item, PyObject* key, PyObject* name_key);

template <typename Visit>
void UsageReader::for_each_value(PyObject* record, Side side, PyObject* key, Visit&& visit) {
    const host::Ref all = items(record, side);
    host::for_each(all.get(), [&](PyObject* item) {
        const host::Ref found = value(item, key, side);
        visit(found.get());
    });
}

}  // namespace search_analytics
