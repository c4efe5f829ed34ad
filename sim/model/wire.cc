#include "sim/model/wire.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "sim/byte_order.h"

namespace kwtsdk::sim::wire {

namespace {

constexpr std::array<std::uint32_t, 256> crcTable() {
  constexpr std::uint32_t reflectedPolynomial = 0xEDB88320;
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    table[byte] = byte;
    for (int bit = 0; bit < 8; ++bit)
      table[byte] = table[byte] >> 1 ^ (table[byte] % 2 * reflectedPolynomial);
  }
  return table;
}

// Frames of the recorder's channel: code, group, length of the payload (16-bit), payload.
constexpr std::uint8_t kFileGroup = 0x82, kRecordingGroup = 0x81, kAnswerGroup = 0x80, kEventGroup = 0x01;
constexpr std::size_t kHeadSize = 4;

enum FileCode : std::uint8_t {
  countCode = 0x01,
  infoCode = 0x02,
  downloadCode = 0x03,
  deletionCode = 0x04,
  noticeCode = 0x13
};
enum RecordingCode : std::uint8_t {
  stopCode = 0x00,
  lastStartCode = 0x04,
  endCode = 0x08,
  startedCode = 0x12,
  audioCode = 0x50
};

Bytes headOf(std::uint8_t code, std::uint8_t group, std::size_t payloadSize) {
  Bytes head;
  head.reserve(kHeadSize + payloadSize);
  head.assign({code, group});
  appendLittle16(head, payloadSize);
  return head;
}

Bytes zeroedFrame(std::uint8_t code, std::size_t payloadSize) {
  Bytes frame = headOf(code, kFileGroup, payloadSize);
  frame.resize(kHeadSize + payloadSize);
  return frame;
}

/// Whether the frame has this code and a payload of this length, and its CRC, of length and payload, is
/// right.
bool isFileFrame(const Bytes& frame, FileCode code, std::size_t payloadSize) {
  const std::size_t crcAt = kHeadSize + payloadSize;
  return frame.size() == crcAt + kCrcSize && frame[0] == code && frame[1] == kFileGroup &&
         little16(frame, 2) == payloadSize &&
         crc32(std::span(frame).subspan(2, crcAt - 2)) == little32(frame, crcAt);
}

/// Year since 2000, month, day, hour, minute, second; all FF in another century than this one.
void putTime(std::span<std::uint8_t> bytes, std::chrono::local_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  const int year = static_cast<int>(date.year()) - 2000;
  if (year < 0 || year > 99) {
    std::ranges::fill(bytes.first(6), std::uint8_t{0xFF});
    return;
  }
  bytes[0] = static_cast<std::uint8_t>(year);
  bytes[1] = static_cast<std::uint8_t>(static_cast<unsigned>(date.month()));
  bytes[2] = static_cast<std::uint8_t>(static_cast<unsigned>(date.day()));
  bytes[3] = static_cast<std::uint8_t>(clock.hours().count());
  bytes[4] = static_cast<std::uint8_t>(clock.minutes().count());
  bytes[5] = static_cast<std::uint8_t>(clock.seconds().count());
}

/// What came of a start: a recording's type or why there is none.
Bytes startEvent(std::uint8_t result) { return {startedCode, kAnswerGroup, 4, 0, 0, result, 0x54, 0}; }

}  // namespace

std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
  static constexpr auto table = crcTable();
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) crc = table[(crc ^ byte) & 0xFF] ^ crc >> 8;
  return ~crc;
}

// ---- File store ----

std::optional<std::uint16_t> blocksOf(std::uint64_t size) {
  constexpr auto block = RecordingStore::kBlockSize;
  const std::uint64_t blocks = size / block + (size % block != 0 ? 1 : 0);
  if (blocks > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
  return static_cast<std::uint16_t>(blocks);
}

std::optional<FileRequest> readFileRequest(const Bytes& frame) {
  using enum FileRequest::Kind;
  // These two are fixed texts without a CRC; the notice's length field exceeds what follows it.
  static const Bytes countRequest{countCode, kFileGroup, 1, 0, 0};
  static const Bytes noticeRequest{noticeCode, kFileGroup, 2, 0, 0};
  constexpr std::size_t idSize = 4, downloadSize = 12, downloadIdAt = kHeadSize + 4;
  if (frame == countRequest) return FileRequest{count};
  if (frame == noticeRequest) return FileRequest{notice};
  if (isFileFrame(frame, infoCode, idSize)) return FileRequest{info, little32(frame, kHeadSize)};
  if (isFileFrame(frame, deletionCode, idSize)) return FileRequest{deletion, little32(frame, kHeadSize)};
  if (isFileFrame(frame, downloadCode, downloadSize)) {
    return FileRequest{download, little32(frame, downloadIdAt), little32(frame, downloadIdAt + idSize)};
  }
  return std::nullopt;
}

Bytes countReply(std::size_t files, std::uint32_t firstId) {
  Bytes reply = zeroedFrame(countCode, 8);
  if (files == 0) {
    std::ranges::fill(std::span(reply).subspan(kHeadSize), std::uint8_t{0xFF});
  } else {
    putLittle16(reply, kHeadSize, static_cast<std::uint32_t>(files));
    putLittle32(reply, kHeadSize + 4, firstId);
  }
  return reply;
}

Bytes infoReply(const std::optional<RecordingInfo>& recording) {
  constexpr std::size_t blocksAt = 10, timeAt = 28, typeAt = 34;
  Bytes reply = zeroedFrame(infoCode, 36);
  if (!recording) return reply;
  putLittle32(reply, kHeadSize, 1);
  putLittle16(reply, blocksAt, recording->blocks);
  putTime(std::span(reply).subspan(timeAt, typeAt - timeAt), recording->created);
  reply[typeAt] = recording->type;
  return reply;
}

Bytes noticeReply() { return zeroedFrame(noticeCode, 4); }

Bytes deletionReply(Deletion result, std::uint32_t id) {
  Bytes reply = zeroedFrame(deletionCode, 8);
  putLittle32(reply, kHeadSize, static_cast<std::uint32_t>(result));
  putLittle32(reply, kHeadSize + 4, id);
  return reply;
}

Bytes dataPacket(std::uint32_t number, std::size_t valid) {
  // Unlike the zeros that pad a recording, so that the two can be told apart in what a host has written.
  constexpr std::uint8_t filler = 0xEE;
  Bytes packet = headOf(downloadCode, kFileGroup, kPacketSize - kHeadSize);
  packet.resize(kPacketSize, filler);
  putLittle32(packet, kHeadSize, static_cast<std::uint32_t>(valid));
  putLittle32(packet, kHeadSize + 4, number);
  return packet;
}

Bytes endMarker(std::uint32_t number) {
  Bytes packet = dataPacket(number, 0xFFFFFFFF);
  std::ranges::fill(std::span(packet).subspan(kPacketHead), std::uint8_t{0});
  return packet;
}

// ---- Live recordings ----

std::optional<RecordingCommand> readRecordingCommand(const Bytes& frame) {
  if (frame.empty() || frame[0] > lastStartCode || frame != Bytes{frame[0], kRecordingGroup, 1, 0, 0}) {
    return std::nullopt;
  }
  // The code of a type is one more than the type, but the last one's is the stop's.
  if (frame[0] == stopCode) return RecordingCommand{RecordingType::ambient, true};
  return RecordingCommand{RecordingType(frame[0] - 1), false};
}

Bytes startedEvent(RecordingType type) { return startEvent(static_cast<std::uint8_t>(type)); }

Bytes refusedEvent(StartRefusal reason) { return startEvent(static_cast<std::uint8_t>(reason)); }

Bytes stopReply() { return {stopCode, kAnswerGroup, 1, 0, 0}; }

Bytes audioPacket(const Bytes& opus) {
  Bytes packet = headOf(audioCode, kEventGroup, opus.size());
  append(packet, opus);
  return packet;
}

Bytes endEvent(std::uint8_t reason) { return {endCode, kEventGroup, 0, reason, 0}; }

}  // namespace kwtsdk::sim::wire
