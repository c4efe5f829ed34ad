#include "sim/model/status_service.h"

#include <algorithm>
#include <array>

#include "codec/crc32.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

constexpr std::uint8_t kBatterySelector = 0x03, kCapacitySelector = 0x7F;
constexpr std::size_t kRequestSize = 21, kPayloadAt = 7, kPayloadSize = 10, kSelectorAt = 16, kCrcAt = 17;
constexpr std::size_t kReplySize = 32, kReplySelectorAt = 20, kValuesAt = 24;

bool isRequest(const Bytes& frame) {
  constexpr std::array<std::uint8_t, 7> head{0x99, 0xEC, 0x2A, 0x02, 0xB2, kPayloadSize, 0x00};
  return frame.size() == kRequestSize && std::equal(head.begin(), head.end(), frame.begin()) &&
         internal::crc32Value(std::span(frame).subspan(kPayloadAt, kPayloadSize)) == little32(frame, kCrcAt);
}

std::uint16_t freeBlocks(const DeviceState& device) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < device.store->count(); ++i) used += device.store->info(i).blocks;
  return used >= device.totalBlocks ? std::uint16_t{0}
                                    : static_cast<std::uint16_t>(device.totalBlocks - used);
}

}  // namespace

std::optional<Bytes> StatusService::handle(const Bytes& frame) {
  if (!isRequest(frame)) return std::nullopt;
  Bytes reply{0x99, 0xEC, 0x3A, 0x00, 0xB2};
  reply.resize(kReplySize);
  reply[kReplySelectorAt] = frame[kSelectorAt];
  switch (frame[kSelectorAt]) {
    case kBatterySelector:
      putLittle32(reply, kValuesAt, device_.batteryLevel);
      return reply;
    case kCapacitySelector:
      putLittle16(reply, kValuesAt, device_.totalBlocks);
      putLittle16(reply, kValuesAt + 2, freeBlocks(device_));
      return reply;
    default:
      return std::nullopt;
  }
}

}  // namespace kwtsdk::sim
