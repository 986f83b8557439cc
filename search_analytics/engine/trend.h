// The trend of a rate: what is recent beside what is usual.
#pragma once

#include <string_view>

#include "python/python.h"

namespace search_analytics {

// With fewer evaluations than this, a rate says nothing of a trend.
inline constexpr Py_ssize_t kFewestForTrend = 10;
inline constexpr std::string_view kNoTrend = "insufficient_data";

// `recent_against(factor, operation)` compares the recent rate with `factor` times the usual one;
// `better` is what a rate that grows is called.
template <typename Compare>
std::string_view trend(std::string_view better, Compare&& recent_against) {
    if (recent_against(1.2, Py_GT)) {
        return better;
    }
    return recent_against(0.8, Py_LT) ? "declining" : "stable";
}

}  // namespace search_analytics
