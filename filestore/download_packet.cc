#include <algorithm>

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"

namespace kwtsdk {
namespace {

constexpr std::size_t kHeaderSize = 12, kFieldsSize = 8, kDataSize = 84;
constexpr std::uint64_t kEndMarker = 0xFFFFFFFF;
enum PacketResult : std::int64_t { kMoreToCome = 0, kLastData = 1, kEnd = 2 };

}  // namespace

std::int64_t KWTCmdResponse::writeDownloadData(const Reply& reply, std::uint64_t* writenSize,
                                               const std::shared_ptr<FileHandle>& toFileHandle) {
  if (!reply || !reply->starts_with("0382")) return kMoreToCome;
  const Bytes packet = internal::toData(*reply);
  if (packet.size() < kFieldsSize) return kMoreToCome;
  // A length under 8 wraps to a huge capacity, which then accepts any packet that holds its data.
  const std::uint64_t capacity = static_cast<std::uint64_t>(packet[2] | packet[3] << 8) - 8;
  const std::uint64_t valid = internal::littleEndianField(*reply, 8, 8);
  if (valid == kEndMarker) return kEnd;
  if (valid > capacity || packet.size() < kHeaderSize + valid) return kMoreToCome;
  // Written whole, the filler behind the valid bytes of a short last packet included.
  const std::size_t size = std::min(packet.size() - kHeaderSize, kDataSize);
  if (toFileHandle) toFileHandle->write(packet.data() + kHeaderSize, size);
  if (writenSize != nullptr) *writenSize = valid;
  return valid < capacity ? kLastData : kMoreToCome;
}

}  // namespace kwtsdk
