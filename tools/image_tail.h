#pragma once

#include <cstdint>

namespace kwtsdk::tool {

// The library begins each segment of 8192 bytes with a new packet of max(220, MTU) bytes and never sends
// fewer than 88 unless the segment ends with them. What remains of an image behind its last whole packet
// therefore has to be nothing, at least 88 bytes, or the end of a whole segment.

/// How many bytes at the end of the image no packet can carry; 0: all of it can be sent.
std::uint64_t unsendableTail(std::uint64_t imageSize, std::int64_t mtu);

/// The same where it is so whatever the MTU; 0: it depends on the MTU, or never happens.
std::uint64_t unsendableTail(std::uint64_t imageSize);

/// The next size that can be sent whatever the MTU.
std::uint64_t sendableSize(std::uint64_t imageSize);

}  // namespace kwtsdk::tool
