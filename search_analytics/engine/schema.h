// What the tracker's database holds: whether a table exists, and where submissions stand.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kTrackerTableExists;
extern const host::FunctionDescription kSubmissionStatusTableAndSignalColumn;

}  // namespace search_analytics
