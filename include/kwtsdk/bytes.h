#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <kwtsdk/export.h>

namespace kwtsdk {

using Bytes = std::vector<std::uint8_t>;

/// A copy of `length` bytes from `location` on, both in bytes; none when the range passes the end of `data`
/// (or location + length does not fit in 64 bits), or memory is short. Length 0 inside the bounds is an empty
/// buffer. Any thread; never blocks.
KWTSDK_EXPORT std::optional<Bytes> subDataWithRange(const Bytes& data, std::uint64_t location,
                                                    std::uint64_t length);

}  // namespace kwtsdk
