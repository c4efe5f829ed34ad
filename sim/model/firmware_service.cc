#include "sim/model/firmware_service.h"

#include "codec/crc32.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

std::optional<Bytes> FirmwareService::handle(const Bytes& frame) {
  static const Bytes versionRequest{0x8E, 'B', 'E', 'S', 'T'};
  if (frame != versionRequest) return std::nullopt;

  Bytes reply{0x8F, 'B', 'E', 'S', 'T'};
  reply.insert(reply.end(), firmware_.version.begin(), firmware_.version.end());
  const std::uint32_t crc = internal::crc32Value(reply);
  const std::size_t crcAt = reply.size();
  reply.resize(crcAt + 4);
  putLittle32(reply, crcAt, crc);
  return reply;
}

}  // namespace kwtsdk::sim
