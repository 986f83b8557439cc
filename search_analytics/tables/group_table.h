// Numbering groups in the order in which they are first met.
#pragma once

#include "python/turns.h"
#include "tables/name_table.h"

namespace search_analytics {

// Maps group keys to numbers 0, 1, 2, ... with the outcome of a dictionary keyed by the pairs of
// frozensets. As long as all keys are made of exact strings, it compares the strings themselves
// and builds no pair: most groups of a wide search are dropped without ever being shown. The
// first key that holds anything else turns it into that dictionary, for good.
class GroupTable {
   public:
    // The number of the group with these sides; a new number if there was none. Whatever the
    // sides hold is taken over or gone afterwards.
    std::size_t number_of(NameSet& functions, NameSet& features);

    // The same for a key that is already an object of whatever type.
    std::size_t number_of(Ref key);

    // Whether the keys are still exact strings, so that each key is made anew when it is asked for.
    bool is_exact() const { return numbers_.empty(); }

    std::size_t size() const { return is_exact() ? groups_.size() : dict_size(numbers_); }

    // Calls `visit` with the number of each group in their order, and with what gives its key as an
    // object.
    template <typename Visit>
    void for_each_group(Visit&& visit) const;

   private:
    // A group's distinct names: functions first, then features, in names_ from `first` on.
    struct Group {
        std::uint64_t hash;
        std::size_t first;
        std::uint32_t function_count;
        std::uint32_t feature_count;
    };

    bool matches(const Group& group, std::uint64_t hash, const NameSet& functions,
                 const NameSet& features) const;
    std::size_t add(std::uint64_t hash, const NameSet& functions, const NameSet& features);
    Ref exact_key(std::size_t number) const;
    void become_dictionary();

    std::vector<OwnedName> names_;
    std::vector<Group> groups_;
    Slots slots_;

    // Once exact strings do not do any more: key object to number, and how many numbers there are.
    // A key may be stored under a new number, as dictionaries compare when they look up and again
    // when they store.
    Ref numbers_;
    std::size_t next_number_ = 0;
};

template <typename Visit>
void GroupTable::for_each_group(Visit&& visit) const {
    if (is_exact()) {
        for (std::size_t number = 0; number < groups_.size(); ++number) {
            visit(number, [&] { return exact_key(number); });
            take_turns_after(kWorkOfComparison);
        }
        return;
    }
    for_each(items_of_dict(numbers_), [&](PyObject* entry) {
        const auto pair = as_pair(entry);
        visit(as_place(pair.second, next_number_), [&] { return pair.first.copy(); });
    });
}

}  // namespace search_analytics
