// The composite score of a group in a window.
#pragma once

#include <array>
#include <string_view>

#include "engine/group_sums.h"
#include "python/number.h"

namespace search_analytics {

// A mean turnover below this counts as this, so that a group that hardly trades does not blow its
// score up.
inline constexpr double kTurnoverFloor = 0.01;

inline double as_number(double value, double) { return value; }
inline Ref as_number(double value, const Ref&) { return new_float(value); }

// The formula as answers show it, and its value, of means that are doubles or objects.
inline constexpr std::string_view kScoringFormula =
    "sharpe * (1 - correlation) * (1 / max(turnover, 0.01))";
template <typename Number>
Number composite_score(const std::array<Number, kMeasureCount>& means) {
    const Number& sharpe = means[kSharpe];
    const Number& correlation = means[kCorrelation];
    const Number& turnover = means[kTurnover];
    const Number floor = as_number(kTurnoverFloor, turnover);
    const Number one = as_number(1.0, turnover);
    const Number& divisor = is_greater(floor, turnover) ? floor : turnover;
    const Number independence = subtract(one, correlation);
    const Number rewarded = multiply(sharpe, independence);
    const Number thrift = divide(one, divisor);
    return multiply(rewarded, thrift);
}

}  // namespace search_analytics
