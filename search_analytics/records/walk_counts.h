// How often records were read without running code: for tests, in builds with assertions.
#pragma once

#include <atomic>

#include "python/python.h"

namespace search_analytics {

// Records that were peeked at, and records that were asked, by all walks of the process. Builds
// without assertions count nothing.
struct WalkCounts {
#ifndef NDEBUG
    void add_peeked() { ++peeked; }
    void add_asked() { ++asked; }
#else
    void add_peeked() {}
    void add_asked() {}
#endif

    std::atomic<Py_ssize_t> peeked = 0;
    std::atomic<Py_ssize_t> asked = 0;
};

inline WalkCounts walk_counts;

#ifndef NDEBUG
inline constexpr bool kCountsWalks = true;
#else
inline constexpr bool kCountsWalks = false;
#endif

}  // namespace search_analytics
