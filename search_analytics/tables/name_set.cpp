// The set of names that a record uses on one side.
#include "tables/name_set.h"

namespace search_analytics {

void NameSet::drop_owned() {
    owned_.clear();
    set_ = Ref();
}

void NameSet::add(Arg value) {
    holds_only_str_ = holds_only_str_ && is_exact_str(value);
    if (holds_only_str_) [[likely]] {
        note_work(text_length(value));
    }
    if (is_exact() && holds_only_str_) [[likely]] {
        const Name name(value);
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
        make_set();
    }
    add_to_set(set_, value);
}

// Making a set can run code: it may start the garbage collector.
void NameSet::make_set() {
    if (owned_.empty()) {
        for (const Name& name : names_) {
            owned_.push_back(Ref::share(name.text));
        }
    }
    set_ = new_hidden_set();
    for (const Ref& name : owned_) {
        add_to_set(set_, name);
    }
    names_.clear();
    owned_.clear();
}

Ref NameSet::frozen() {
    if (is_exact()) {
        make_set();
    }
    show_frozen(set_);
    return std::move(set_);
}

}  // namespace search_analytics
