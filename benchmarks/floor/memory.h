// What a line of memory costs on this machine: the measure of everything that only reads.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace floor_reads {

// Lines of memory, each of which points to the next one of a walk in an order that nobody guesses.
class Lines {
   public:
    explicit Lines(std::size_t bytes) : count_(std::max<std::size_t>(bytes / sizeof(Line), 2)) {
        lines_ = std::make_unique<Line[]>(count_);
        order_.resize(count_);
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::shuffle(order_.begin(), order_.end(), std::mt19937_64(1));
        for (std::size_t i = 0; i < count_; ++i) {
            lines_[order_[i]].next = &lines_[order_[(i + 1) % count_]];
        }
        for (std::size_t i = 0; i < kAhead; ++i) {
            order_.push_back(order_[i % count_]);
        }
    }

    // Nanoseconds for a line whose address stands in the line before.
    double one_by_one() const {
        const Line* line = lines_.get();
        return measure([&] {
            line = line->next;
            return reinterpret_cast<std::uintptr_t>(line);
        });
    }

    // Nanoseconds for a line that was asked for some lines before.
    double read_ahead() const {
        std::size_t i = 0;
        return measure([&] {
            __builtin_prefetch(&lines_[order_[i + kAhead]], 0, 2);
            const auto next = reinterpret_cast<std::uintptr_t>(lines_[order_[i]].next);
            i = i + 1 < count_ ? i + 1 : 0;
            return next;
        });
    }

   private:
    static constexpr std::size_t kAhead = 32;

    struct alignas(64) Line {
        const Line* next;
    };

    template <class Step>
    double measure(const Step& step) const {
        const std::size_t steps = std::max<std::size_t>(count_, 500'000);
        std::uintptr_t sum = 0;
        std::chrono::steady_clock::time_point started;
        for (const bool is_timed : {false, true}) {
            started = std::chrono::steady_clock::now();
            for (std::size_t i = 0; i < (is_timed ? steps : count_); ++i) {
                sum += step();
            }
        }
        const std::chrono::duration<double, std::nano> spent =
            std::chrono::steady_clock::now() - started;
        volatile const std::uintptr_t used = sum;
        static_cast<void>(used);
        return spent.count() / static_cast<double>(steps);
    }

    std::size_t count_;
    std::unique_ptr<Line[]> lines_;
    std::vector<std::size_t> order_;
};

}  // namespace floor_reads
