// Group keys: which functions and features an evaluation used, at one granularity.
#pragma once

#include "engine/usage.h"
#include "engine/watched_method.h"
#include "tables/group_table.h"

namespace search_analytics {

// The item keys that one granularity reads on either side.
struct Granularity {
    Ref function_key;
    Ref feature_key;
    // Whether evaluations are grouped by their exact names, whatever the key maps hold.
    bool is_by_name = false;
};

// What `aggregate_by` asks for: its pair of levels looked up in the module's key maps, or the
// plain names for AggregateBy.NONE.
Granularity granularity_of(ModuleState& state, Arg aggregate_by);

// The granularity as an evaluation finds it. It is worked out anew for each, as any of them may
// change what it depends on, unless nothing can tell the difference: `aggregate_by` is a member of
// the module's own enumeration, which is as it was made, and what the member and the key maps hold
// is what they held before.
class GranularityCache {
   public:
    // REQUIRES: `aggregate_by` outlives the cache.
    GranularityCache(ModuleState& state, Arg aggregate_by)
        : state_(state),
          aggregate_by_(aggregate_by),
          vocabulary_(state, state.names().AggregateBy),
          value_(state.names()._value_),
          function_map_{state.names().function_key_map},
          feature_map_{state.names().feature_key_map} {}

    // May run code, as much as working it out does.
    const Granularity& now();

    // What now() gave last.
    const Granularity& last() const { return granularity_; }

    // Whether now() gives what it gave last, and runs no code for it.
    bool is_unchanged_and_exact();

   private:
    // A key map in which an item key was found, and what it and the module's namespace were then.
    struct KeyMap {
        PyObject* name;
        Ref map;
        std::uint64_t version = 0;
        std::uint64_t globals_version = 0;
    };

    bool has_same_levels();
    bool has_same_maps();
    bool is_same(KeyMap& seen, Py_ssize_t level, const Ref& key) const;
    Ref look_up(const KeyMap& map, Py_ssize_t level) const;
    Ref own_levels() const;
    void learn();

    ModuleState& state_;
    PyObject* aggregate_by_;
    Granularity granularity_;
    // What it was worked out from, if that can be relied on: the class of the member and the class
    // of that, the pair of levels, and the maps.
    bool is_known_ = false;
    WatchedGlobal vocabulary_;
    Shape member_;
    Shape metaclass_;
    Attribute value_;
    Ref levels_;
    KeyMap function_map_;
    KeyMap feature_map_;
};

// A field: the group of an evaluation, as a number in a table of groups.
class GroupKey {
   public:
    // REQUIRES: `engine` and `aggregate_by` outlive the field.
    GroupKey(ModuleState& state, Arg engine, Arg aggregate_by)
        : state_(state),
          engine_(engine),
          aggregate_by_(aggregate_by),
          method_(state, engine, state.names()._build_group_key),
          usage_(state),
          granularity_(state, aggregate_by) {}

    // Whether any evaluation may be peeked at, as far as its group goes.
    bool may_peek() const { return may_peek_; }

    // REQUIRES: may_peek().
    bool peek(const View& view);
    std::size_t operator()(Peeked) { return groups_.number_of(functions_, features_); }
    std::size_t operator()(Asked ev);

    bool turn_to(PyObject* record);
    void read_ahead(ReadAhead& ahead) const;
    // To be called when code may have run.
    void refresh();

    const GroupTable& groups() const { return groups_; }

   private:
    ModuleState& state_;
    PyObject* engine_;
    PyObject* aggregate_by_;
    WatchedMethod method_;
    UsageReader usage_;
    GranularityCache granularity_;
    bool may_peek_ = false;
    Entry function_entry_;
    Entry feature_entry_;
    NameSet functions_;
    NameSet features_;
    GroupTable groups_;
};

}  // namespace search_analytics
