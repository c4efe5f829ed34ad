#pragma once

#include <cstdint>
#include <string>

#include "tools/failure.h"

namespace kwtsdk::tool {

// The library begins each segment of the image with a new packet of at least wire::kPacketFloor bytes and
// never sends fewer than wire::kSmallestPacket unless the segment ends with them. What remains of an image
// behind its last whole packet therefore has to be nothing, at least a smallest packet, or the end of a whole
// segment.

/// How many bytes at the end of the image no packet can carry; 0: all of it can be sent.
std::uint64_t unsendableTail(std::uint64_t imageSize, std::int64_t mtu);

/// The same where it is so whatever the MTU; 0: it depends on the MTU, or never happens.
std::uint64_t unsendableTail(std::uint64_t imageSize);

/// The next size that can be sent whatever the MTU.
std::uint64_t sendableSize(std::uint64_t imageSize);

/// The size of a firmware image. Throws a Failure when the file cannot be read, or not be one that a recorder
/// can be sent whatever its MTU.
std::uint64_t imageSize(const std::string& path);

/// Of an image whose last `tail` bytes no packet can carry.
Failure unsendable(const std::string& path, std::uint64_t size, std::uint64_t tail);

}  // namespace kwtsdk::tool
