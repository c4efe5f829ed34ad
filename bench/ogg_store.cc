#include "bench/ogg_store.h"

#include <algorithm>
#include <span>

#include "tests/session/stored_recording.h"

namespace kwtsdk::bench {
namespace {

constexpr std::size_t kNumberAt = 18, kCrcAt = 22;

void put(Bytes& page, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) page[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

std::uint32_t get(const Bytes& page, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = value << 8 | page[at + i];
  return value;
}

}  // namespace

OggStore::OggStore(std::uint16_t blocks) : blocks_(blocks) {
  constexpr std::size_t kHeadSize = 27, kSegments = 16;
  static_assert(kBlockSize % kPageSize == 0);
  constexpr std::size_t kBody = kPageSize - kHeadSize - kSegments;
  first_ = testing::oggPage(testing::kBegin, 1, 0, kBody);
  others_ = testing::oggPage(testing::kMiddle, 1, 0, kBody);
  for (std::size_t bit = 0; bit < crcOfBit_.size(); ++bit) {
    Bytes alone(kPageSize);
    put(alone, kNumberAt, std::uint32_t{1} << bit);
    crcOfBit_[bit] = testing::oggCrc(alone);
  }
}

sim::RecordingInfo OggStore::info(std::size_t) const {
  return {.blocks = blocks_, .created = std::chrono::local_seconds(std::chrono::seconds(1'700'000'000))};
}

// A CRC of this kind is the sum, without carry, of its parts' CRCs.
Bytes OggStore::page(std::uint32_t number) const {
  if (number == 0) return first_;
  Bytes page = others_;
  std::uint32_t crc = get(page, kCrcAt);
  for (std::size_t bit = 0; bit < crcOfBit_.size(); ++bit) {
    if ((number >> bit & 1) != 0) crc ^= crcOfBit_[bit];
  }
  put(page, kNumberAt, number);
  put(page, kCrcAt, crc);
  return page;
}

void OggStore::read(std::size_t, std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (onRead_) onRead_(offset);
  while (!into.empty()) {
    const Bytes whole = page(static_cast<std::uint32_t>(offset / kPageSize));
    const auto rest = std::span(whole).subspan(offset % kPageSize);
    const auto part = rest.first(std::min(rest.size(), into.size()));
    std::ranges::copy(part, into.begin());
    offset += part.size();
    into = into.subspan(part.size());
  }
}

}  // namespace kwtsdk::bench
