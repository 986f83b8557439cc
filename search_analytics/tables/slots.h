// Open addressing over numbered entries.
#pragma once

#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace search_analytics {

// How many slots were looked at by all tables of the process: for tests, in builds with assertions,
// which show by it that no choice of names makes a table slow. Other builds count nothing.
struct StepCounts {
#ifndef NDEBUG
    void add() { ++steps; }
#else
    void add() {}
#endif

    std::atomic<std::ptrdiff_t> steps = 0;
};

inline StepCounts step_counts;

// Finds entries, which are kept elsewhere under numbers 0, 1, 2, ..., by their hashes.
class Slots {
   public:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    // The number of the entry of this hash that is wanted, or kNone. `is_wanted` is asked for each
    // entry in the way; hashes are not compared.
    template <typename IsWanted>
    std::size_t find(std::uint64_t hash, IsWanted&& is_wanted) const {
        if (slots_.empty()) {
            return kNone;
        }
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t slot = first_slot(hash); slots_[slot] != 0; slot = (slot + 1) & mask) {
            step_counts.add();
            const std::size_t number = slots_[slot] - 1;
            if (is_wanted(number)) {
                return number;
            }
        }
        return kNone;
    }

    // Adds the entry that comes next in number; `hash_of` gives the hash of those before it.
    template <typename HashOf>
    void add(std::uint64_t hash, HashOf&& hash_of) {
        if ((count_ + 1) * 2 > slots_.size()) {
            grow(hash_of);
        }
        put(hash, count_++);
    }

    void clear() {
        slots_.clear();
        count_ = 0;
    }

   private:
    // Where looking for an entry begins. REQUIRES: there are slots.
    std::size_t first_slot(std::uint64_t hash) const {
        assert(!slots_.empty());
        return static_cast<std::size_t>(hash) & (slots_.size() - 1);
    }

    // Doubles the slots, so that at least half of them stay free.
    template <typename HashOf>
    void grow(HashOf&& hash_of) {
        constexpr std::size_t kFirstSize = 64;
        slots_.assign(slots_.empty() ? kFirstSize : slots_.size() * 2, 0);
        for (std::size_t number = 0; number < count_; ++number) {
            put(static_cast<std::uint64_t>(hash_of(number)), number);
        }
    }

    void put(std::uint64_t hash, std::size_t number) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t slot = first_slot(hash);
        while (slots_[slot] != 0) {
            step_counts.add();
            slot = (slot + 1) & mask;
        }
        slots_[slot] = static_cast<std::uint32_t>(number + 1);
    }

    // An entry's number plus one, or 0 for a free slot.
    std::vector<std::uint32_t> slots_;
    std::size_t count_ = 0;
};

}  // namespace search_analytics
