#pragma once

#include <cstdint>
#include <span>

namespace kwtsdk::internal {

/// The CRC-32 of IEEE 802.3 (the one of zip and Ethernet), whole buffers only.
std::uint32_t crc32Value(std::span<const std::uint8_t> bytes);

}  // namespace kwtsdk::internal
