// Statistics summed up by group and time window.
#include "engine/group_sums.h"

namespace search_analytics {

void WindowSums::add_objects(const Measures& measures) {
    if (objects_ == nullptr) {
        auto objects = std::make_unique<Objects>();
        for (std::size_t i = 0; i < kMeasureCount; ++i) {
            (*objects)[i] = new_float(doubles_[i]);
        }
        objects_ = std::move(objects);
    }
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        Ref& sum = (*objects_)[i];
        sum = add_in_place(sum, measures.as_object(i));
    }
}

std::array<double, kMeasureCount> WindowSums::double_means() const {
    assert(count_ != 0 && are_doubles());
    std::array<double, kMeasureCount> means;
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        means[i] = divide(doubles_[i], static_cast<double>(count_));
    }
    return means;
}

std::array<Ref, kMeasureCount> WindowSums::object_means() const {
    assert(count_ != 0 && !are_doubles());
    std::array<Ref, kMeasureCount> means;
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        means[i] = divide((*objects_)[i], new_int(count_));
    }
    return means;
}

}  // namespace search_analytics
