#pragma once

#include <string>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::tool {

/// What -d says: seconds (90, 2.5), a number of one unit (10s, 5m, 1h), or as on a clock (1:30, 1:02:03).
/// Throws a UsageError.
Duration lengthOf(const std::string& text);

}  // namespace kwtsdk::tool
