// The set of names that a record uses on one side.
#include "tables/name_set.h"

namespace search_analytics {

void NameSet::drop_owned() {
    owned_.clear();
    frozen_ = Ref();
}

void NameSet::add(Arg value) {
    holds_only_str_ = holds_only_str_ && is_exact_str(value);
    if (holds_only_str_) [[likely]] {
        note_work(text_length(value));
    }
    if (is_exact() && holds_only_str_) [[likely]] {
        const Name name = {text_hash(value), value};
        if (is_present(name)) {
            return;
        }
        if (names_.size() < kMostListedNames) {
            names_.push_back(name);
            owned_.push_back(value.share());
            return;
        }
    }
    if (is_exact()) {
        freeze();
    }
    add_to_hidden_set(frozen_, value);
}

// Making a set can run code: it may start the garbage collector.
void NameSet::freeze() {
    if (owned_.empty()) {
        for (const Name& name : names_) {
            owned_.push_back(Ref::share(name.text));
        }
    }
    frozen_ = new_frozenset();
    // Nobody can add to a frozenset that somebody else has found, too.
    hide_from_collector(frozen_);
    for (const Ref& name : owned_) {
        add_to_hidden_set(frozen_, name);
    }
    names_.clear();
    owned_.clear();
}

Ref NameSet::frozen() {
    if (is_exact()) {
        freeze();
    }
    show_to_collector(frozen_);
    return std::move(frozen_);
}

}  // namespace search_analytics
