#pragma once

#include <stdlib.h>
#include <time.h>

namespace kwtsdk::testing {

/// From now on this process is there.
inline void setZone(const char* name) {
  ::setenv("TZ", name, 1);
  ::tzset();
}
inline constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";

}  // namespace kwtsdk::testing
