// The running sums of one group in one time window.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "host/containers.h"

namespace search_analytics {

// The statistics that are averaged, in the order in which they are summed.
enum Measure : std::size_t { kSharpe, kReturns, kTurnover, kDrawdown, kCorrelation, kMeasureCount };

// One evaluation's statistics, and whether it passed.
struct Measures {
    std::array<host::Ref, kMeasureCount> values;
    bool passed = false;

    // The values as doubles, when every one of them adds to a float sum as one.
    std::array<double, kMeasureCount> reals{};
    bool are_real = false;

    // Fills in `reals` from `values`.
    void find_reals();
};

// Sums that start at 0.0 and grow in the order in which evaluations arrive. They are doubles
// until something arrives that only its own type can add; then they are whatever adding it gives.
class WindowSums {
   public:
    void add(const Measures& measures) {
        if (measures.are_real && objects_ == nullptr) [[likely]] {
            for (std::size_t i = 0; i < kMeasureCount; ++i) {
                reals_[i] += measures.reals[i];
            }
        } else {
            add_objects(measures);
        }
        passed_ += measures.passed ? 1 : 0;
        ++count_;
    }

    Py_ssize_t count() const { return count_; }
    Py_ssize_t passed() const { return passed_; }

    // The mean of every measure. REQUIRES: count() is not 0.
    std::array<host::Ref, kMeasureCount> means() const;

   private:
    using Objects = std::array<host::Ref, kMeasureCount>;

    void add_objects(const Measures& measures);

    std::array<double, kMeasureCount> reals_{};
    std::unique_ptr<Objects> objects_;
    Py_ssize_t passed_ = 0;
    Py_ssize_t count_ = 0;
};

// sharpe * (1 - correlation) * (1 / max(turnover, 0.01)) of a window's means.
host::Ref composite_score(const std::array<host::Ref, kMeasureCount>& means);

}  // namespace search_analytics
