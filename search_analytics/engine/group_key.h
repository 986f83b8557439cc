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
    struct Value {
        Py_hash_t hash;
        host::Ref text;
    };

    // Empties the side for the next record.
    void clear() {
        values_.clear();
        frozen_ = host::Ref();
        holds_only_text_ = true;
    }

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
    void freeze();

    std::vector<Value> values_;
    host::Ref frozen_;
    bool holds_only_text_ = true;
};

// A frozenset of the values, added in their order.
host::Ref frozen_set(const KeySide::Value* values, std::size_t count);

// Whether two exact strings with equal hashes hold the same text. Runs no code.
bool same_text(PyObject* left, PyObject* right);

}  // namespace search_analytics
