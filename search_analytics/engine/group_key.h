// Group keys: which functions and features an evaluation used, at one granularity.
#pragma once

#include <optional>
#include <vector>

#include "engine/usage.h"

namespace search_analytics {

extern const host::FunctionDescription kBuildGroupKey;

// The item keys that one granularity reads on either side.
struct Granularity {
    host::Ref function_key;
    host::Ref feature_key;
};

// What `aggregate_by` asks for: its pair of levels looked up in the module's key maps, or the
// plain names for AggregateBy.NONE.
Granularity granularity_of(host::ModuleState& state, PyObject* aggregate_by);

// The set of values on one side of a key, while it is being collected. As long as the values are
// a few plain strings it is only a list of them, and costs no set; anything else makes it a real
// frozenset, filled in the same order, so that foreign hashes and comparisons run as they should.
class KeySide {
   public:
    // A plain string and its hash, borrowed.
    struct Value {
        Py_hash_t hash;
        PyObject* text;
    };

    // Empties the side for the next record.
    void clear() {
        values_.clear();
        owned_.clear();
        frozen_ = host::Ref();
        holds_only_text_ = true;
    }

    // Holds the values of a record in place of what it held before, without a reference to any,
    // if they are a few plain strings that can be read by looking. They stay what they are until
    // code runs.
    bool look(UsageReader& reader, PyObject* record, Side side, host::EntryReader& key);

    // Adds what `reader` finds on `side` of `record`.
    void collect(UsageReader& reader, PyObject* record, Side side, PyObject* key);

    // Adds one value, as a set does.
    void add(PyObject* value);

    // Whether the distinct values all stand in values(), in the order in which they were met.
    bool is_plain() const { return frozen_.empty(); }
    const std::vector<Value>& values() const { return values_; }

    // Whether all values are plain strings, be they few or many.
    bool holds_only_text() const { return holds_only_text_; }

    // The side as a frozenset.
    host::Ref frozen();

   private:
    bool is_present(const Value& value) const;
    void freeze();

    std::vector<Value> values_;
    // The references to them, where the side has any.
    std::vector<host::Ref> owned_;
    host::Ref frozen_;
    bool holds_only_text_ = true;
};

}  // namespace search_analytics
