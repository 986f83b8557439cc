// Argument checks that several operations share.
#pragma once

#include "python/containers.h"

namespace search_analytics {

// Raises ValueError unless the number is at least 0.
void require_sample_size(Arg min_sample_size);

// Raises ValueError unless the number is at least 1.
void require_top_n(Arg top_n);

}  // namespace search_analytics
