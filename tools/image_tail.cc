#include "tools/image_tail.h"

#include <algorithm>
#include <limits>

namespace kwtsdk::tool {
namespace {

constexpr std::uint64_t kSegmentSize = 8192, kSmallestPacket = 88;
constexpr std::int64_t kPacketFloor = 220;

}  // namespace

std::uint64_t unsendableTail(std::uint64_t imageSize, std::int64_t mtu) {
  const auto packetSize = static_cast<std::uint64_t>(std::max(mtu, kPacketFloor));
  const std::uint64_t tail = imageSize % kSegmentSize % packetSize;
  return tail < kSmallestPacket ? tail : 0;
}

// With packets as long as a segment all of the last one is the tail: what fails there fails with shorter
// ones.
std::uint64_t unsendableTail(std::uint64_t imageSize) {
  return unsendableTail(imageSize, std::numeric_limits<std::int64_t>::max());
}

std::uint64_t sendableSize(std::uint64_t imageSize) {
  const std::uint64_t last = imageSize % kSegmentSize, whole = imageSize - last;
  const bool fitsAlways = last == 0 || (last >= kSmallestPacket && last < std::uint64_t{kPacketFloor});
  if (fitsAlways) return imageSize;
  return whole + (last < kSmallestPacket ? kSmallestPacket : kSegmentSize);
}

}  // namespace kwtsdk::tool
