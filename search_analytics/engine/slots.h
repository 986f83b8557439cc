// Open addressing over numbered entries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace search_analytics {

// Makes room for one entry more, so that at least half of the slots stay free. A slot holds an
// entry's number plus one, or 0 where it is free; `hash_of` gives the hash of an entry.
template <typename HashOf>
void reserve_slot(std::vector<std::uint32_t>& slots, std::size_t entries, HashOf&& hash_of) {
    constexpr std::size_t kFirstCount = 64;
    if ((entries + 1) * 2 <= slots.size()) {
        return;
    }
    slots.assign(slots.empty() ? kFirstCount : slots.size() * 2, 0);
    const std::size_t mask = slots.size() - 1;
    for (std::size_t entry = 0; entry < entries; ++entry) {
        std::size_t slot = static_cast<std::size_t>(hash_of(entry)) & mask;
        while (slots[slot] != 0) {
            slot = (slot + 1) & mask;
        }
        slots[slot] = static_cast<std::uint32_t>(entry + 1);
    }
}

}  // namespace search_analytics
