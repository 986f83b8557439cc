// Group keys: which functions and features an evaluation used, at one granularity.
#include "engine/group_key.h"

#include "host/statement.h"

namespace search_analytics {

using namespace host;

namespace {

// Beyond so many distinct values, comparing them one by one costs more than a real set does.
constexpr std::size_t kMostPlainValues = 128;

Ref build_group_key(const Call& call) {
    ModuleState& state = call.state();
    PyObject* record = call[state.names.ev];
    const Granularity granularity = granularity_of(state, call[state.names.aggregate_by]);
    UsageReader reader(state);
    KeySide functions;
    KeySide features;
    functions.collect(reader, record, Side::kFunctions, granularity.function_key.get());
    features.collect(reader, record, Side::kFeatures, granularity.feature_key.get());
    return tuple_of(functions.frozen(), features.frozen());
}

}  // namespace

Granularity granularity_of(ModuleState& state, PyObject* aggregate_by) {
    const Names& names = state.names;
    const Ref vocabulary = load_global(state, names.AggregateBy);
    if (equal(aggregate_by, attribute(vocabulary.get(), names.NONE).get())) {
        return {Ref::share(names.function_name), Ref::share(names.feature_name)};
    }
    const auto [function_level, feature_level] =
        unpack_pair(state, attribute(aggregate_by, names.value).get());
    Granularity granularity;
    granularity.function_key =
        item(load_global(state, names.function_key_map).get(), function_level.get());
    granularity.feature_key =
        item(load_global(state, names.feature_key_map).get(), feature_level.get());
    return granularity;
}

void KeySide::collect(UsageReader& reader, PyObject* record, Side side, PyObject* key) {
    const Ref items = reader.items(record, side);
    for_each(items.get(), [&](PyObject* item) {
        const Ref value = as_generator_body([&] { return reader.value(item, key, side); });
        add(value.get());
    });
}

bool KeySide::look(UsageReader& reader, PyObject* record, Side side, EntryReader& key) {
    clear();
    return reader.look(record, side, key, [&](PyObject* text) {
        const Value value = {text_hash(text), text};
        if (!is_present(value)) {
            values_.push_back(value);
        }
        return values_.size() <= kMostPlainValues;
    }) && values_.size() <= kMostPlainValues;
}

bool KeySide::is_present(const Value& value) const {
    for (const Value& present : values_) {
        if (present.hash == value.hash && same_text(present.text, value.text)) {
            return true;
        }
    }
    return false;
}

void KeySide::add(PyObject* value) {
    holds_only_text_ = holds_only_text_ && PyUnicode_CheckExact(value);
    if (is_plain() && holds_only_text_) [[likely]] {
        const Value plain = {text_hash(value), value};
        if (is_present(plain)) {
            return;
        }
        if (values_.size() < kMostPlainValues) {
            values_.push_back(plain);
            owned_.push_back(Ref::share(value));
            return;
        }
    }
    if (is_plain()) {
        freeze();
    }
    check(PySet_Add(frozen_.get(), value));
}

// Making a set can run code: it may start the garbage collector.
void KeySide::freeze() {
    if (owned_.empty()) {
        for (const Value& value : values_) {
            owned_.push_back(Ref::share(value.text));
        }
    }
    frozen_ = Ref::steal(PyFrozenSet_New(nullptr));
    for (const Value& value : values_) {
        check(PySet_Add(frozen_.get(), value.text));
    }
    values_.clear();
    owned_.clear();
}

Ref KeySide::frozen() {
    if (is_plain()) {
        freeze();
    }
    return std::move(frozen_);
}

const FunctionDescription kBuildGroupKey = {
    "_build_group_key",
    "Return the (functions, features) pair of frozensets that a record is grouped under.",
    {"self, ev, aggregate_by"},
    {},
    build_group_key,
};

}  // namespace search_analytics
