#include "wire/recorder_channel.h"

#include <algorithm>
#include <array>

#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk::wire {
namespace {

using internal::littleEndian32, internal::littleEndianField, internal::toData;

// By type; the last one stops, too.
constexpr std::array<const char*, 5> kRecordCommands{"0181010000", "0281010000", "0381010000", "0481010000",
                                                     "0081010000"};

struct PacketMeaning {
  std::string_view packet;
  const char* meaning;  // in the recorder's own documentation; shown nowhere
};

constexpr std::array<PacketMeaning, 5> kStarted{{{"1280040000005400", "发起录音"},
                                                 {"1280040000015400", "发起降噪录音"},
                                                 {"1280040000025400", "发起通话录音"},
                                                 {"1280040000035400", "发起媒体录音"},
                                                 {"1280040000045400", "发起环境录音"}}};
constexpr std::array<PacketMeaning, 2> kRefusals{
    {{kRefusedInCall, "设备处于通话状态，启动录音失败"},
     {kRefusedNotInCall, "设备没有处于通话状态，启动通话录音失败"}}};
constexpr std::array<PacketMeaning, 3> kEnds{{{kEnded, "APP主动结束录音"},
                                              {kEndedByKey, "DEVICE按键结束录音"},
                                              {kEndedByCall, "进入通话模式，命令录音和通话自动结束"}}};

// Never matches, since its packet is an end packet too: recorders send it for both, and an end is how hosts
// know it.
constexpr std::array<PacketMeaning, 1> kNotStarted{{{kEnded, "录音没有启动"}}};

template <std::size_t size>
bool holds(const std::array<PacketMeaning, size>& table, std::string_view packet) {
  return std::ranges::find(table, packet, &PacketMeaning::packet) != table.end();
}

Bytes framed(const std::string& code, const std::string& lengthAndPayload) {
  return toData(code + lengthAndPayload + littleEndian32(internal::crc32Value(toData(lengthAndPayload))));
}

Bytes framedId(const std::string& code, std::int64_t fileId) {
  return framed(code, "0400" + littleEndian32(static_cast<std::uint64_t>(fileId)));
}

constexpr std::string_view kDownloadFamily = "0382";
constexpr std::size_t kFieldsSize = 8;  // of a packet's head: what is looked at
constexpr std::uint64_t kEndMarker = 0xFFFFFFFF;

}  // namespace

// ---- Live recording ----

bool isRecordType(std::int64_t type) {
  return type >= 0 && type < static_cast<std::int64_t>(kRecordCommands.size());
}

Bytes startRecordRequest(std::int64_t type) {
  return toData(kRecordCommands.at(static_cast<std::size_t>(type)));
}

Bytes stopRecordRequest() { return toData(kRecordCommands.back()); }

RecordPacketResult recordPacketResult(const std::optional<std::string>& packet) {
  if (!packet || packet->empty()) return RecordPacketResult::Failed;
  if (holds(kStarted, *packet)) return RecordPacketResult::Continue;
  if (holds(kRefusals, *packet)) return RecordPacketResult::Failed;
  if (holds(kEnds, *packet)) return RecordPacketResult::Ended;
  if (holds(kNotStarted, *packet)) return RecordPacketResult::Failed;
  return RecordPacketResult::Continue;
}

// ---- Flash file store ----

Bytes countRequest() { return toData("0182010000"); }
Bytes infoRequest(std::int64_t fileId) { return framedId("0282", fileId); }
Bytes deleteRequest(std::int64_t fileId) { return framedId("0482", fileId); }

Bytes downloadRequest(std::int64_t fileId, std::uint64_t offset) {
  return framed(std::string(kDownloadFamily), "0c00" + std::string("00000000") +
                                                  littleEndian32(static_cast<std::uint64_t>(fileId)) +
                                                  littleEndian32(offset));
}

// The length field says 2 and one byte follows: recorders expect it so.
Bytes downloadNotice() { return toData("1382020000"); }

std::span<const std::uint8_t> DownloadPacket::data() const {
  if (kind != Kind::data && kind != Kind::lastData) return {};
  return std::span(bytes).subspan(kDownloadHeadSize,
                                  std::min(bytes.size() - kDownloadHeadSize, kDownloadDataSize));
}

DownloadPacket downloadPacket(const std::optional<std::string>& text) {
  using Kind = DownloadPacket::Kind;
  if (!text || !text->starts_with(kDownloadFamily)) return {};
  Bytes bytes = toData(*text);
  if (bytes.size() < kFieldsSize) return {};
  // A length under 8 wraps to a huge capacity, which then accepts any packet that holds its data.
  const std::uint64_t capacity = littleEndianField(*text, 4, 4) - kFieldsSize;
  const std::uint64_t valid = littleEndianField(*text, 8, 8);
  if (valid == kEndMarker) return {Kind::end};
  if (valid > capacity || bytes.size() < kDownloadHeadSize + valid) return {};
  return {valid < capacity ? Kind::lastData : Kind::data, valid, std::move(bytes)};
}

}  // namespace kwtsdk::wire
