#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"

namespace kwtsdk {

using internal::littleEndianField;

std::uint64_t KWTCmdResponse::getPower(const Reply& reply) {
  if (!reply || reply->size() < 56) return 0;
  return littleEndianField(*reply, 48, 8);
}

std::string KWTCmdResponse::getVersion(const Reply& reply) {
  if (!reply || reply->size() < 18) return "";
  std::string_view version = std::string_view(*reply).substr(10, reply->size() - 18);
  while (version.starts_with("00")) version.remove_prefix(2);
  std::string text;
  for (const std::uint8_t part : internal::toData(version)) {
    if (!text.empty()) text += '.';
    text += std::to_string(part);
  }
  return text;
}

std::int64_t KWTCmdResponse::getMTU(const Reply& reply) {
  if (!reply || reply->size() < 4) return 0;
  return static_cast<std::int64_t>(littleEndianField(*reply, reply->size() - 4, 4));
}

std::optional<ByteCounts> KWTCmdResponse::getCapacityResult(const Reply& reply) {
  if (!reply || reply->size() != 64 || !reply->starts_with("99ec3a00b2")) return std::nullopt;
  const auto bytesAt = [&](std::size_t position) {
    return filesizeFromBlockNum(static_cast<std::uint32_t>(littleEndianField(*reply, position, 4)));
  };
  return ByteCounts{bytesAt(48), bytesAt(52)};
}

}  // namespace kwtsdk
