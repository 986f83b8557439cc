// Statistics summed up by group and time window.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "python/number.h"
#include "records/prefetch.h"

namespace search_analytics {

// The statistics that are averaged, in the order in which they are summed.
enum Measure : std::size_t { kSharpe, kReturns, kTurnover, kDrawdown, kCorrelation, kMeasureCount };

// One evaluation's statistics, and whether it passed.
class Measures {
   public:
    // Makes ready for the next evaluation, of which every measure is to be set.
    void start() { are_doubles_ = true; }

    void set(Measure measure, double value) { doubles_[measure] = value; }
    void set(Measure measure, Ref value) {
        const auto number = addend(value);
        are_doubles_ = are_doubles_ && number.has_value();
        doubles_[measure] = number.value_or(0.0);
        objects_[measure] = std::move(value);
    }
    void set_passed(bool passed) { passed_ = passed; }

    // Whether every measure adds to a float sum as a double does.
    bool are_doubles() const { return are_doubles_; }
    double as_double(std::size_t measure) const { return doubles_[measure]; }
    // REQUIRES: the measure was set as an object.
    const Ref& as_object(std::size_t measure) const {
        assert(!objects_[measure].empty());
        return objects_[measure];
    }
    bool passed() const { return passed_; }

   private:
    std::array<double, kMeasureCount> doubles_{};
    std::array<Ref, kMeasureCount> objects_;
    bool are_doubles_ = true;
    bool passed_ = false;
};

// Sums that start at 0.0 and grow in the order in which evaluations arrive. They are doubles
// until something arrives that only its own type can add; then they are whatever adding it gives.
class WindowSums {
   public:
    void add(const Measures& measures) {
        if (measures.are_doubles() && objects_ == nullptr) [[likely]] {
            for (std::size_t i = 0; i < kMeasureCount; ++i) {
                doubles_[i] = search_analytics::add(doubles_[i], measures.as_double(i));
            }
        } else {
            add_objects(measures);
        }
        passed_ += measures.passed() ? 1 : 0;
        ++count_;
    }

    Py_ssize_t count() const { return count_; }
    Py_ssize_t passed() const { return passed_; }
    bool are_doubles() const { return objects_ == nullptr; }

    // The mean of every measure, as doubles or as objects. REQUIRES: count() is not 0; for doubles,
    // are_doubles(), else not.
    std::array<double, kMeasureCount> double_means() const;
    std::array<Ref, kMeasureCount> object_means() const;

   private:
    using Objects = std::array<Ref, kMeasureCount>;

    void add_objects(const Measures& measures);

    std::array<double, kMeasureCount> doubles_{};
    std::unique_ptr<Objects> objects_;
    Py_ssize_t passed_ = 0;
    Py_ssize_t count_ = 0;
};

// The sums by group number and window, and how many evaluations each pool would take of them.
class GroupSums {
   public:
    GroupSums(std::size_t windows, std::size_t pools) : windows_(windows), pools_(pools) {}

    std::size_t size() const { return counts_.size(); }
    Py_ssize_t count(std::size_t group) const { return counts_[group]; }
    const WindowSums& sums(std::size_t group, std::size_t window) const {
        return sums_[cell(group, window)];
    }
    Py_ssize_t submittable(std::size_t group, std::size_t window, std::size_t pool) const {
        return submittable_[cell(group, window) * pools_ + pool];
    }

    // Counts an evaluation into a group, whatever its windows. Groups come in the order of their
    // numbers: room is made for one that is new.
    void count_into(std::size_t group);

    // Adds an evaluation to one window of its group; `is_submittable` says for each pool whether it
    // would take it.
    void add(std::size_t group, std::size_t window, const Measures& measures,
             const std::vector<std::uint8_t>& is_submittable);

   private:
    std::size_t cell(std::size_t group, std::size_t window) const {
        return group * windows_ + window;
    }

    std::size_t windows_;
    std::size_t pools_;
    std::vector<Py_ssize_t> counts_;
    std::vector<WindowSums> sums_;
    std::vector<Py_ssize_t> submittable_;
};

inline void GroupSums::count_into(std::size_t group) {
    if (group == counts_.size()) {
        counts_.push_back(0);
        sums_.resize(sums_.size() + windows_);
        submittable_.resize(submittable_.size() + windows_ * pools_);
    }
    ++counts_[group];
    // The sums of thousands of groups are as scattered as the records.
    for (std::size_t window = 0; window < windows_; ++window) {
        prefetch(&sums_[cell(group, window)]);
    }
}

inline void GroupSums::add(std::size_t group, std::size_t window, const Measures& measures,
                           const std::vector<std::uint8_t>& is_submittable) {
    const std::size_t position = cell(group, window);
    sums_[position].add(measures);
    // Pools that give more thresholds than names are an error of their own, as in any list.
    if (is_submittable.size() > pools_) [[unlikely]] {
        raise(PyExc_IndexError, "list index out of range");
    }
    Py_ssize_t* counts = submittable_.data() + position * pools_;
    for (std::size_t pool = 0; pool < is_submittable.size(); ++pool) {
        counts[pool] += is_submittable[pool];
    }
}

}  // namespace search_analytics
