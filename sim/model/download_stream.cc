#include "sim/model/download_stream.h"

#include <algorithm>
#include <utility>

#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

constexpr std::size_t kPacketSize = 96, kCountAt = 4, kNumberAt = 8, kDataAt = 12;
constexpr std::size_t kDataSize = kPacketSize - kDataAt;
constexpr std::uint32_t kEndMarker = 0xFFFFFFFF;

// Unlike the zeros that pad a recording, so that the two can be told apart in what a host has written.
constexpr std::uint8_t kFiller = 0xEE;

}  // namespace

DownloadStream::DownloadStream(const DeviceState& device, Bytes request, std::uint32_t id,
                               std::uint32_t offset)
    : device_(device), request_(std::move(request)), id_(id), position_(offset) {
  size_ = RecordingStore::kBlockSize * device_.store->info(id_ - device_.store->firstId()).blocks;
}

Bytes DownloadStream::next() {
  if (position_ >= size_) {
    finished_ = true;
    return packet(kEndMarker);
  }
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kDataSize, size_ - position_));
  Bytes result = packet(static_cast<std::uint32_t>(count));
  fill(result, count);
  // A host takes a short packet for the last; only after a full one it needs to be told.
  finished_ = count < kDataSize && !device_.alwaysEndMarker;
  return result;
}

Bytes DownloadStream::packet(std::uint32_t validCount) {
  Bytes result(kPacketSize);
  result[0] = 0x03;
  result[1] = 0x82;
  putLittle16(result, 2, kPacketSize - kCountAt);
  putLittle32(result, kCountAt, validCount);
  putLittle32(result, kNumberAt, packetNumber_++);
  return result;
}

void DownloadStream::fill(Bytes& packet, std::size_t count) {
  const auto data = std::span(packet).subspan(kDataAt);
  for (std::size_t done = 0; done < count;) {
    if (aheadUsed_ == ahead_.size()) readAhead();
    const std::size_t length = std::min(count - done, ahead_.size() - aheadUsed_);
    std::ranges::copy(std::span(ahead_).subspan(aheadUsed_, length), data.subspan(done).begin());
    aheadUsed_ += length;
    done += length;
    position_ += length;
  }
  std::ranges::fill(data.subspan(count), kFiller);
}

void DownloadStream::readAhead() {
  const RecordingStore& store = *device_.store;
  ahead_.resize(static_cast<std::size_t>(std::min(RecordingStore::kBlockSize, size_ - position_)));
  aheadUsed_ = 0;
  store.read(id_ - store.firstId(), position_, ahead_);
}

}  // namespace kwtsdk::sim
