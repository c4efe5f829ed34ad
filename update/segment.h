#pragma once

#include <cstdint>

namespace kwtsdk::internal {

/// Bytes of an image that the recorder confirms at a time.
inline constexpr std::uint64_t kSegmentSize = 8192;

}  // namespace kwtsdk::internal
