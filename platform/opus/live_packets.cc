#include "platform/opus/live_packets.h"

#include <opus/opus.h>

#include <algorithm>
#include <array>

namespace kwtsdk::internal {

namespace live_record {

namespace {

constexpr std::array<std::uint8_t, 2> kMark{0x50, 0x01};

std::size_t payloadSize(std::span<const std::uint8_t> header) {
  return header[2] | static_cast<std::size_t>(header[3]) << 8U;
}

bool holdsPacket(std::span<const std::uint8_t> record) {
  constexpr int mostFrames = 48;
  std::array<const unsigned char*, mostFrames> frames{};
  std::array<opus_int16, mostFrames> sizes{};
  const auto packet = record.subspan(kHeaderSize);
  return !packet.empty() && opus_packet_parse(packet.data(), static_cast<opus_int32>(packet.size()), nullptr,
                                              frames.data(), sizes.data(), nullptr) > 0;
}

}  // namespace

bool mayBegin(std::span<const std::uint8_t> bytes) {
  const auto seen = bytes.first(std::min(bytes.size(), kMark.size()));
  return std::equal(seen.begin(), seen.end(), kMark.begin()) &&
         (bytes.size() < kHeaderSize || payloadSize(bytes) <= kLongestPacket);
}

std::size_t completeSize(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kHeaderSize || !mayBegin(bytes)) return 0;
  const std::size_t size = kHeaderSize + payloadSize(bytes);
  return size <= bytes.size() ? size : 0;
}

bool isChained(std::span<const std::uint8_t> bytes) {
  const std::size_t size = completeSize(bytes);
  return size > 0 && mayBegin(bytes.subspan(size));
}

std::size_t find(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t limit) {
  const auto end = bytes.begin() + static_cast<std::ptrdiff_t>(limit);
  for (auto at = bytes.begin() + static_cast<std::ptrdiff_t>(std::min(from, limit));; ++at) {
    at = std::find(at, end, kMark[0]);
    if (at == end) return limit;
    const auto candidate = bytes.subspan(static_cast<std::size_t>(at - bytes.begin()));
    if (isChained(candidate) && holdsPacket(candidate.first(completeSize(candidate)))) {
      return static_cast<std::size_t>(at - bytes.begin());
    }
  }
}

}  // namespace live_record

namespace {

constexpr std::size_t kPacketBufferSize = 65536;
// A record and the header behind it: what one has to see to judge the record.
constexpr std::size_t kSight = live_record::kLongest + live_record::kHeaderSize;

}  // namespace

LivePacketReader::LivePacketReader(InputFile& file, Kind kind)
    : window_(file, kPacketBufferSize), kind_(kind) {}

std::optional<LivePacketReader::Item> LivePacketReader::next() {
  fill();
  const std::span<const std::uint8_t> bytes = window_.pending();
  if (bytes.empty()) return std::nullopt;
  if (live_record::isChained(bytes)) return takeRecord(live_record::completeSize(bytes));

  // Out of step: either this record is damaged, then another one may begin within what it claims to be, or
  // the next one is.
  const std::size_t size = live_record::completeSize(bytes);
  const std::size_t limit = window_.atEnd() ? bytes.size() : bytes.size() - kSight;
  const std::size_t other = live_record::find(bytes, 1, limit);
  if (size > 0 && other >= size) return takeRecord(size);
  const bool isCutOff = size == 0 && live_record::mayBegin(bytes) && other == bytes.size();
  if (isCutOff && kind_ == Kind::growing) return std::nullopt;
  return skip(std::max<std::size_t>(other, 1));
}

void LivePacketReader::fill() {
  // Any record in the first half can be judged. A growing file may have more each time.
  if (window_.pending().size() < 2 * kSight) window_.refill();
}

LivePacketReader::Item LivePacketReader::takeRecord(std::size_t size) {
  const auto record = window_.pending().first(size);
  window_.advance(size);
  return {record.subspan(live_record::kHeaderSize), false};
}

LivePacketReader::Item LivePacketReader::skip(std::size_t size) {
  window_.advance(size);
  return {{}, true};
}

}  // namespace kwtsdk::internal
