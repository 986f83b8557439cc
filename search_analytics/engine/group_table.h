// Numbering groups in the order in which they are first met.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/group_key.h"
#include "host/plain_text.h"

namespace search_analytics {

// Maps group keys to numbers 0, 1, 2, ... with the outcome of a dictionary keyed by the pairs of
// frozensets. As long as all keys are made of plain strings, it compares the strings themselves
// and builds no pair: most groups of a wide search are dropped without ever being shown. The
// first key that holds anything else turns it into that dictionary, for good.
class GroupTable {
   public:
    // The number of the group with these sides; a new number if there was none. Whatever the
    // sides hold is taken over or gone afterwards.
    std::size_t number_of(KeySide& functions, KeySide& features);

    // The same for a key that is already an object of whatever type.
    std::size_t number_of(host::Ref key);

    // Whether the keys are still plain strings, so that key() makes a new object each time.
    bool is_plain() const { return numbers_.empty(); }

    std::size_t size() const { return is_plain() ? groups_.size() : keys_.size(); }

    // The key of a group as an object.
    host::Ref key(std::size_t number) const;

   private:
    // A group's distinct strings: functions first, then features, in texts_ from `first` on.
    struct Group {
        std::uint64_t hash;
        std::size_t first;
        std::uint32_t function_count;
        std::uint32_t feature_count;
    };

    bool matches(const Group& group, std::uint64_t hash, const KeySide& functions,
                 const KeySide& features) const;
    std::size_t add_plain(std::uint64_t hash, const KeySide& functions, const KeySide& features);
    void become_dictionary();

    std::vector<host::OwnedText> texts_;
    std::vector<Group> groups_;
    // Open addressing over groups_: a group's number plus one, or 0 for a free slot.
    std::vector<std::uint32_t> slots_;

    // Once plain strings do not do any more: key object to number, and number to key object.
    host::Ref numbers_;
    std::vector<host::Ref> keys_;
};

}  // namespace search_analytics
