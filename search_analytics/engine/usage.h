// What an evaluation used: its functions and features as items, and the names in them.
#pragma once

#include <span>

#include "facade/signature.h"
#include "names/names.h"
#include "records/fields.h"
#include "tables/name_set.h"

namespace search_analytics {

enum class Side { kFunctions, kFeatures };

// Reads items and names through the module's helpers as they stand whenever one is used: a helper
// that a caller has replaced is called, one that stands as it was made is not called but carried
// out here.
class UsageReader {
   public:
    explicit UsageReader(const ModuleState& state);

    // _function_items(record) or _feature_items(record)
    Ref items(PyObject* record, Side side);

    // The item's value under `key`, by _usage_value with the side's name key to fall back on.
    Ref value(Arg item, Arg key, Side side);

    // Calls `visit` with the value under `key` of each item of `record`, borrowed, until it returns
    // false. Returns whether all that were visited could be peeked at and are exact strings that
    // say something (an empty one counts as no name where pairs are formed); if not, `visit` may
    // have seen some nevertheless. Peeks at no more than it can without taking turns.
    template <typename Visit>
    bool peek(const View& view, Side side, Entry& key, Visit&& visit) const;

    // Fills `names` with the distinct values; false where they cannot be peeked at, or are many.
    bool peek_names(const View& view, Side side, Entry& key, NameSet& names) const;

    // To be called before peeking when code may have run.
    void refresh();

    // Turns to the shape of a record, if the place of a side's items there is known.
    bool turn_to(PyObject* record, Side side) { return of(side).metadata.turn_to(record); }

    // The attribute that holds a side's items.
    const Attribute& metadata(Side side) const { return of(side).metadata; }

   private:
    static constexpr std::size_t kMostPeekedItems = 4096;

    struct Readers {
        Readers(const ModuleState& state, const FunctionDescription& described,
                PyObject* items_function, PyObject* metadata, PyObject* names, PyObject* name_key);

        Attribute metadata;
        Attribute names;
        PyObject* name_key;
        const FunctionDescription& description;
        WatchedGlobal items_function;
        bool may_peek = false;
    };
    Readers& of(Side side) { return side == Side::kFunctions ? functions_ : features_; }
    const Readers& of(Side side) const { return side == Side::kFunctions ? functions_ : features_; }

    const ModuleState& state_;
    WatchedGlobal usage_items_;
    WatchedGlobal usage_value_;
    Readers functions_;
    Readers features_;
};

template <typename Visit>
bool UsageReader::peek(const View& view, Side side, Entry& key, Visit&& visit) const {
    const Readers& readers = of(side);
    PyObject* metadata = readers.may_peek ? readers.metadata.peek_if_known(view) : nullptr;
    if (metadata == nullptr) {
        return false;
    }
    const auto items = items_of(metadata);
    if (items.empty() || items.size() > kMostPeekedItems) {
        return false;
    }
    note_work(items.size() * kWorkOfItem);
    for (PyObject* item : items) {
        PyObject* value = key.peek(item);
        if (value == nullptr || !is_exact_str(value) || !is_short_name(value)) {
            return false;
        }
        if (!visit(value)) {
            break;
        }
    }
    return true;
}

inline bool UsageReader::peek_names(const View& view, Side side, Entry& key, NameSet& names) const {
    names.clear();
    bool are_few = true;
    return peek(view, side, key,
                [&](PyObject* name) {
                    are_few = names.add_borrowed(name);
                    return are_few;
                }) &&
           are_few;
}

// A field: the distinct values under one key of the items on one side. What an asked record's set
// is made of differs from question to question: `collect` adds it to the set it is given.
template <typename Collect>
class UsedNames {
   public:
    // REQUIRES: `key` outlives the field.
    UsedNames(UsageReader& usage, Side side, PyObject* key, Collect collect)
        : usage_(usage), side_(side), entry_(key), collect_(std::move(collect)) {}

    bool peek(const View& view) { return usage_.peek_names(view, side_, entry_, names_); }

    NameSet& operator()(Peeked) { return names_; }
    NameSet& operator()(Asked ev) {
        names_.clear();
        collect_(ev.record, names_);
        return names_;
    }

    bool turn_to(PyObject* record) { return usage_.turn_to(record, side_); }
    void refresh() { usage_.refresh(); }
    void read_ahead(ReadAhead& ahead) const { ahead.add_items(usage_.metadata(side_), entry_); }

   private:
    UsageReader& usage_;
    Side side_;
    Entry entry_;
    Collect collect_;
    NameSet names_;
};

// The algorithms of `_usage_items` and `_usage_value`.
Ref usage_items(PyObject* record, Attribute& metadata, Attribute& names, PyObject* name_key);
Ref usage_value(const Names& names, Arg item, Arg key, Arg name_key);

}  // namespace search_analytics
