#include "wire/status_channel.h"

#include <kwtsdk/cmd_response.h>

#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk {
namespace wire {
namespace {

using internal::littleEndian32, internal::toData;

// Of an answer, in bytes; in hex characters it is twice as long.
constexpr std::size_t kReplySize = 32, kSelectorAt = 20, kLevelSize = 4, kBlocksSize = 2;
constexpr std::string_view kAnyReply = "99ec", kWholeReply = "99ec3a00b2";

}  // namespace

Bytes statusRequest(StatusQuery query) {
  const Bytes payload{0x01, 0, 0, 0, 0, 0, 0, 0, 0x10, static_cast<std::uint8_t>(query)};
  return toData("99ec2a02b2" + littleEndian32(payload.size()).substr(0, 4) + internal::hexString(payload) +
                littleEndian32(internal::crc32Value(payload)));
}

std::optional<std::uint64_t> statusValue(const std::optional<std::string>& reply, std::size_t at,
                                         std::size_t size) {
  if (!reply || reply->size() != 2 * kReplySize || !reply->starts_with(kWholeReply)) return std::nullopt;
  return internal::littleEndianField(*reply, 2 * at, 2 * size);
}

bool isPowerReply(const std::string& reply) {
  const Bytes selector{static_cast<std::uint8_t>(StatusQuery::power)};
  return reply.size() >= 2 * kReplySize && reply.starts_with(kAnyReply) &&
         reply.compare(2 * kSelectorAt, 2, internal::hexString(selector)) == 0;
}

}  // namespace wire

// Also of an answer that is incomplete behind the level, or that begins otherwise.
std::uint64_t KWTCmdResponse::getPower(const Reply& reply) {
  constexpr std::size_t at = 2 * wire::kStatusValues, length = 2 * wire::kLevelSize;
  if (!reply || reply->size() < at + length) return 0;
  return internal::littleEndianField(*reply, at, length);
}

std::optional<ByteCounts> KWTCmdResponse::getCapacityResult(const Reply& reply) {
  const auto first = wire::statusValue(reply, wire::kStatusValues, wire::kBlocksSize);
  const auto second = wire::statusValue(reply, wire::kStatusValues + wire::kBlocksSize, wire::kBlocksSize);
  if (!first || !second) return std::nullopt;
  return ByteCounts{filesizeFromBlockNum(static_cast<std::uint32_t>(*first)),
                    filesizeFromBlockNum(static_cast<std::uint32_t>(*second))};
}

}  // namespace kwtsdk
