#include <algorithm>
#include <array>
#include <string_view>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/record_packet_result.h>

#include "codec/hex.h"

namespace kwtsdk {
namespace {

struct PacketMeaning {
  std::string_view packet;
  const char* meaning;  // in the recorder's own documentation; shown nowhere
};

constexpr std::array<PacketMeaning, 5> kStarted{{{"1280040000005400", "发起录音"},
                                                 {"1280040000015400", "发起降噪录音"},
                                                 {"1280040000025400", "发起通话录音"},
                                                 {"1280040000035400", "发起媒体录音"},
                                                 {"1280040000045400", "发起环境录音"}}};
constexpr std::array<PacketMeaning, 2> kRefused{
    {{"1280040000105400", "设备处于通话状态，启动录音失败"},
     {"1280040000115400", "设备没有处于通话状态，启动通话录音失败"}}};
constexpr std::array<PacketMeaning, 3> kEnded{{{"0801000100", "APP主动结束录音"},
                                               {"0801001100", "DEVICE按键结束录音"},
                                               {"0801002100", "进入通话模式，命令录音和通话自动结束"}}};

// Never matches, since its packet is an end packet too: recorders send it for both, and an end is how hosts
// know it.
constexpr std::array<PacketMeaning, 1> kNotStarted{{{"0801000100", "录音没有启动"}}};

template <std::size_t size>
bool holds(const std::array<PacketMeaning, size>& table, std::string_view packet) {
  return std::ranges::find(table, packet, &PacketMeaning::packet) != table.end();
}

RecordPacketResult take(const std::string& packet, const std::shared_ptr<FileHandle>& file) {
  if (holds(kStarted, packet)) return RecordPacketResult::Continue;
  if (holds(kRefused, packet)) return RecordPacketResult::Failed;
  if (holds(kEnded, packet)) return RecordPacketResult::Ended;
  if (holds(kNotStarted, packet)) return RecordPacketResult::Failed;
  if (packet.starts_with("5001") && file) {
    const Bytes audio = internal::toData(packet);
    file->write(audio.data(), audio.size());
  }
  return RecordPacketResult::Continue;
}

}  // namespace

std::int64_t KWTCmdResponse::writeRecordData(const Reply& reply,
                                             const std::shared_ptr<FileHandle>& toFileHandle) {
  const bool empty = !reply || reply->empty();
  return static_cast<std::int64_t>(empty ? RecordPacketResult::Failed : take(*reply, toFileHandle));
}

}  // namespace kwtsdk
