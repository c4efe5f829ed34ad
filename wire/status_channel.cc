#include "wire/status_channel.h"

#include <kwtsdk/cmd_response.h>

#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk {
namespace wire {
namespace {

using internal::littleEndian32, internal::toData;

constexpr std::string_view kAnyReply = "99ec", kCapacityReply = "99ec3a00b2", kBatterySelector = "03";

// Of an answer, in hex characters: bytes 20 and 24 of 32.
constexpr std::size_t kReplyLength = 64, kSelectorAt = 40, kValueAt = 48, kLevelLength = 8, kBlocksLength = 4;

Bytes request(const std::string& payload) {
  return toData("99ec2a02b2" + littleEndian32(payload.size() / 2).substr(0, 4) + payload +
                littleEndian32(internal::crc32Value(toData(payload))));
}

}  // namespace

Bytes powerRequest() { return toData(COMMAND_POWER); }
Bytes capacityRequest() { return request("0100000000000000107f"); }

bool isPowerReply(const std::string& reply) {
  return reply.size() >= kReplyLength && reply.starts_with(kAnyReply) &&
         reply.compare(kSelectorAt, kBatterySelector.size(), kBatterySelector) == 0;
}

}  // namespace wire

std::uint64_t KWTCmdResponse::getPower(const Reply& reply) {
  using namespace wire;
  if (!reply || reply->size() < kValueAt + kLevelLength) return 0;
  return internal::littleEndianField(*reply, kValueAt, kLevelLength);
}

std::optional<ByteCounts> KWTCmdResponse::getCapacityResult(const Reply& reply) {
  using namespace wire;
  if (!reply || reply->size() != kReplyLength || !reply->starts_with(kCapacityReply)) return std::nullopt;
  const auto bytesAt = [&](std::size_t position) {
    return filesizeFromBlockNum(
        static_cast<std::uint32_t>(internal::littleEndianField(*reply, position, kBlocksLength)));
  };
  return ByteCounts{bytesAt(kValueAt), bytesAt(kValueAt + kBlocksLength)};
}

}  // namespace kwtsdk
