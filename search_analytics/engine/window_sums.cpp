// The running sums of one group in one time window.
#include "engine/window_sums.h"

namespace search_analytics {

using namespace host;

namespace {

// A mean turnover below this counts as this, so that a group that hardly trades does not blow
// its score up.
constexpr double kTurnoverFloor = 0.01;

}  // namespace

void Measures::find_reals() {
    are_real = true;
    for (std::size_t i = 0; i < kMeasureCount && are_real; ++i) {
        const auto number = addend(values[i].get());
        are_real = number.has_value();
        reals[i] = number.value_or(0.0);
    }
}

void WindowSums::add_objects(const Measures& measures) {
    if (objects_ == nullptr) {
        auto objects = std::make_unique<Objects>();
        for (std::size_t i = 0; i < kMeasureCount; ++i) {
            (*objects)[i] = real(reals_[i]);
        }
        objects_ = std::move(objects);
    }
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        Ref& sum = (*objects_)[i];
        sum = add_in_place(sum.get(), measures.values[i].get());
    }
}

std::array<Ref, kMeasureCount> WindowSums::means() const {
    std::array<Ref, kMeasureCount> means;
    for (std::size_t i = 0; i < kMeasureCount; ++i) {
        means[i] = objects_ == nullptr ? real(reals_[i] / static_cast<double>(count_))
                                       : divide((*objects_)[i].get(), integer(count_).get());
    }
    return means;
}

Ref composite_score(const std::array<Ref, kMeasureCount>& means) {
    PyObject* sharpe = means[kSharpe].get();
    PyObject* correlation = means[kCorrelation].get();
    PyObject* turnover = means[kTurnover].get();
    if (PyFloat_CheckExact(sharpe) && PyFloat_CheckExact(correlation) &&
        PyFloat_CheckExact(turnover)) {
        const double mean_turnover = PyFloat_AS_DOUBLE(turnover);
        const double thrift =
            1.0 / (kTurnoverFloor > mean_turnover ? kTurnoverFloor : mean_turnover);
        return real(PyFloat_AS_DOUBLE(sharpe) * (1.0 - PyFloat_AS_DOUBLE(correlation)) * thrift);
    }
    const Ref floor = real(kTurnoverFloor);
    const Ref one = real(1.0);
    PyObject* divisor = compare(floor.get(), turnover, Py_GT) ? floor.get() : turnover;
    const Ref independent = subtract(one.get(), correlation);
    const Ref rewarded = multiply(sharpe, independent.get());
    const Ref thrift = divide(one.get(), divisor);
    return multiply(rewarded.get(), thrift.get());
}

}  // namespace search_analytics
