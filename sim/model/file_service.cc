#include "sim/model/file_service.h"

#include <algorithm>
#include <chrono>

#include "codec/crc32.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

constexpr std::uint8_t kGroup = 0x82;
enum Code : std::uint8_t { countCode = 0x01, infoCode = 0x02, downloadCode = 0x03, deleteCode = 0x04 };
enum DeleteResult : std::uint32_t { deleted = 0, notTheFirst = 1, noSuchId = 2, inUse = 3, storeEmpty = 4 };

constexpr std::size_t kHeadSize = 4, kCrcSize = 4;

/// A frame of this code whose payload has this length and whose CRC, over length field and payload, is right.
bool isFrame(const Bytes& frame, Code code, std::size_t payloadSize) {
  const std::size_t crcAt = kHeadSize + payloadSize;
  return frame.size() == crcAt + kCrcSize && frame[0] == code && frame[1] == kGroup &&
         little16(frame, 2) == payloadSize &&
         internal::crc32Value(std::span(frame).subspan(2, crcAt - 2)) == little32(frame, crcAt);
}

Bytes replyOf(Code code, std::uint8_t payloadSize) {
  Bytes reply{code, kGroup, payloadSize, 0};
  reply.resize(kHeadSize + payloadSize);
  return reply;
}

/// Year since 2000, month, day, hour, minute, second.
void putTime(std::span<std::uint8_t> bytes, std::chrono::local_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  bytes[0] = static_cast<std::uint8_t>(std::clamp(static_cast<int>(date.year()) - 2000, 0, 254));
  bytes[1] = static_cast<std::uint8_t>(static_cast<unsigned>(date.month()));
  bytes[2] = static_cast<std::uint8_t>(static_cast<unsigned>(date.day()));
  bytes[3] = static_cast<std::uint8_t>(clock.hours().count());
  bytes[4] = static_cast<std::uint8_t>(clock.minutes().count());
  bytes[5] = static_cast<std::uint8_t>(clock.seconds().count());
}

}  // namespace

std::optional<Bytes> FileService::handle(const Bytes& frame) {
  // These two are fixed texts without a CRC; the notice's length field exceeds what follows it.
  static const Bytes countRequest{countCode, kGroup, 0x01, 0x00, 0x00};
  static const Bytes notice{0x13, kGroup, 0x02, 0x00, 0x00};
  if (frame == countRequest) return count();
  if (frame == notice) return Bytes{0x13, kGroup, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00};
  if (isFrame(frame, infoCode, 4)) return info(little32(frame, kHeadSize));
  if (isFrame(frame, deleteCode, 4)) return remove(little32(frame, kHeadSize));
  if (isFrame(frame, downloadCode, 12)) startDownload(frame);
  return std::nullopt;
}

std::optional<Bytes> FileService::nextPacket() {
  if (!download_) return std::nullopt;
  Bytes packet = download_->next();
  if (download_->finished()) download_.reset();
  return packet;
}

std::optional<std::size_t> FileService::indexOf(std::uint32_t id) const {
  const std::size_t index = id - device_.store->firstId();
  if (id < device_.store->firstId() || index >= device_.store->count()) return std::nullopt;
  return index;
}

Bytes FileService::count() const {
  Bytes reply = replyOf(countCode, 8);
  const std::size_t files = device_.store->count();
  if (files == 0) {
    std::ranges::fill(std::span(reply).subspan(kHeadSize), std::uint8_t{0xFF});
  } else {
    putLittle16(reply, kHeadSize, static_cast<std::uint32_t>(files));
    putLittle32(reply, kHeadSize + 4, device_.store->firstId());
  }
  return reply;
}

Bytes FileService::info(std::uint32_t id) const {
  constexpr std::size_t recordAt = 8, blocksAt = recordAt + 2, timeAt = recordAt + 20, typeAt = recordAt + 26;
  Bytes reply = replyOf(infoCode, 36);
  if (const auto index = indexOf(id)) {
    const RecordingInfo recording = device_.store->info(*index);
    putLittle32(reply, kHeadSize, 1);
    putLittle16(reply, blocksAt, recording.blocks);
    putTime(std::span(reply).subspan(timeAt, 6), recording.created);
    reply[typeAt] = recording.type;
  }
  return reply;
}

Bytes FileService::remove(std::uint32_t id) {
  Bytes reply = replyOf(deleteCode, 8);
  putLittle32(reply, kHeadSize, tryToRemove(id));
  putLittle32(reply, kHeadSize + 4, id);
  return reply;
}

std::uint32_t FileService::tryToRemove(std::uint32_t id) {
  if (device_.store->count() == 0) return storeEmpty;
  const auto index = indexOf(id);
  if (!index) return noSuchId;
  if (*index != 0) return notTheFirst;
  if (download_ && download_->id() == id) return inUse;
  return device_.store->deleteFirst() ? deleted : inUse;
}

void FileService::startDownload(const Bytes& frame) {
  constexpr std::size_t idAt = kHeadSize + 4, offsetAt = idAt + 4;
  download_.reset();
  const std::uint32_t id = little32(frame, idAt);
  if (indexOf(id)) download_.emplace(device_, frame, id, little32(frame, offsetAt));
}

}  // namespace kwtsdk::sim
