// Taking turns with the rest of the process.
//
// Between two steps of a loop Python lets signals be handled and other threads run, if they wait.
// A loop in C++ has to do so itself, and often enough whatever its steps are made of: it notes how
// much work each step was, and gives the others their turn about every millisecond.
#pragma once

#include <atomic>
#include <cstddef>

#include "python/ref.h"

namespace search_analytics {

// Work is counted in nanoseconds, roughly. Peeking at a record, and at an item of one:
inline constexpr std::size_t kWorkOfRecord = 512;
inline constexpr std::size_t kWorkOfItem = 16;
// Comparing two texts, or looking for a pair in a table.
inline constexpr std::size_t kWorkOfComparison = 16;
// A step that may take any time, as it hashes or compares objects or runs code.
inline constexpr std::size_t kWorkOfStep = 4096;

// After so much work it is worth looking at the clock.
inline constexpr std::size_t kWorkBetweenLooks = 65536;

// Work since the last look at the clock, of whichever thread: only one runs at a time, and where
// several do, counting some of it twice or never does no harm.
inline std::atomic<std::size_t> work_since_look = 0;

inline void note_work(std::size_t work) {
    work_since_look.store(work_since_look.load(std::memory_order_relaxed) + work,
                          std::memory_order_relaxed);
}

// Gives the others their turn, and the collector if it is due.
void give_turn();

// Looks at the clock, and gives the others their turn if it is time to.
bool take_turns_by_clock();

// Gives the others their turn if it is time to. Returns whether it did: then code may have run, and
// whatever is borrowed may be gone.
inline bool take_turns() {
    return work_since_look.load(std::memory_order_relaxed) >= kWorkBetweenLooks &&
           take_turns_by_clock();
}

// The same after some work.
inline bool take_turns_after(std::size_t work) {
    note_work(work);
    return take_turns();
}

// Gives back a list whose items may be many and nobody else's. Freeing them takes its time: others
// have their turn on the way, unless somebody else has the list.
void drop_in_turns(Ref list);

// A comparison for sorting much: takes turns on the way.
template <typename Before>
auto in_turns(Before before) {
    return [before](const auto& left, const auto& right) {
        take_turns_after(kWorkOfComparison);
        return before(left, right);
    };
}

}  // namespace search_analytics
