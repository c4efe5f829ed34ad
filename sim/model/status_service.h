#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "sim/byte_order.h"
#include "sim/model/service.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

/// The status channel: every query, how it is asked and what is answered.
class StatusService : public Service {
 public:
  explicit StatusService(const DeviceState& device) : device_(device) {}

  std::optional<Bytes> handle(const Bytes& frame) override {
    const auto selector = selectorOf(frame);
    if (!selector) return std::nullopt;
    Bytes reply{0x99, 0xEC, 0x3A, 0x00, 0xB2};
    reply.resize(kReplySize);
    reply[kReplySelectorAt] = *selector;
    switch (*selector) {
      case kBattery:
        putLittle32(reply, kValuesAt, device_.batteryLevel);
        return reply;
      case kCapacity:
        putLittle16(reply, kValuesAt, device_.totalBlocks);
        putLittle16(reply, kValuesAt + 2, freeBlocks());
        return reply;
      default:
        return std::nullopt;
    }
  }

 private:
  static constexpr std::uint8_t kBattery = 0x03, kCapacity = 0x7F;
  static constexpr std::size_t kReplySize = 32, kReplySelectorAt = 20, kValuesAt = 24;

  /// None for a frame that is malformed.
  static std::optional<std::uint8_t> selectorOf(const Bytes& frame) {
    constexpr std::size_t size = 21, payloadAt = 7, payloadSize = 10, selectorAt = 16, crcAt = 17;
    constexpr std::array<std::uint8_t, payloadAt> head{0x99, 0xEC, 0x2A, 0x02, 0xB2, payloadSize, 0x00};
    if (frame.size() != size || !std::equal(head.begin(), head.end(), frame.begin()) ||
        wire::crc32(std::span(frame).subspan(payloadAt, payloadSize)) != little32(frame, crcAt)) {
      return std::nullopt;
    }
    return frame[selectorAt];
  }

  std::uint16_t freeBlocks() const {
    std::size_t used = 0;
    for (std::size_t i = 0; i < device_.store->count(); ++i) used += device_.store->info(i).blocks;
    return used >= device_.totalBlocks ? std::uint16_t{0}
                                       : static_cast<std::uint16_t>(device_.totalBlocks - used);
  }

  const DeviceState& device_;
};

}  // namespace kwtsdk::sim
