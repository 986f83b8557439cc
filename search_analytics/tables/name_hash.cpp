// Hashing the names that records use.
#include "tables/name_hash.h"

#include <chrono>
#include <exception>
#include <random>

namespace search_analytics {

namespace {

// From the system; if that has none, from what at least differs from one process to the next. Odd,
// so that no product loses what goes into it.
std::uint64_t random_number() noexcept {
    try {
        std::random_device source;
        const std::uint64_t high = source();
        return (high << 32 | source()) | 1;
    } catch (const std::exception&) {
        const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
        return (static_cast<std::uint64_t>(now) * 0x9E3779B97F4A7C15U) | 1;
    }
}

}  // namespace

const HashKeys kHashKeys = {random_number(), random_number()};

}  // namespace search_analytics
