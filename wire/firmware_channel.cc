#include "wire/firmware_channel.h"

#include <kwtsdk/cmd_response.h>

#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk {
namespace wire {
namespace {

using internal::littleEndian32, internal::littleEndianHexStringWithLength, internal::nzeros, internal::toData;

// Of the version's answer, in hex characters.
constexpr std::size_t kBeforeVersion = 10, kBehindVersion = 8, kMtuLength = 4;

std::string crcOf(const Bytes& bytes) { return littleEndian32(internal::crc32Value(bytes)); }
std::string versionText(std::string_view version) {
  while (version.starts_with("00")) version.remove_prefix(2);
  std::string text;
  for (std::size_t at = 0; at + 2 <= version.size(); at += 2) {
    if (!text.empty()) text += '.';
    text += std::to_string(internal::littleEndianField(version, at, 2));  // a pair that is no hex counts as 0
  }
  return text;
}

std::string withMagic(const char* opcode) { return std::string(opcode).append(MAGICCODE); }

}  // namespace

Bytes versionRequest() { return toData(GET_VERSION_CMD); }
Bytes prepareRequest() { return toData("9701"); }
Bytes selectionRequest() { return toData("9000"); }

Bytes resumeRequest(std::int64_t segmentSize, std::uint64_t offset) {
  // The recorder expects the offset in 32 bytes, of which the last four hold it.
  const std::string fields =
      littleEndianHexStringWithLength(offset, 64) + littleEndian32(static_cast<std::uint64_t>(segmentSize));
  return toData(withMagic("8c") + fields + crcOf(toData(fields)));
}

Bytes beginRequest(const Bytes& image) {
  return toData(withMagic("80") + littleEndian32(image.size()) + crcOf(image));
}

std::optional<std::string> identityOf(const Bytes& image) {
  if (image.size() < kIdentitySize) return std::nullopt;
  Bytes tail(image.end() - kIdentitySize, image.end());
  tail.back() = 0;
  return internal::hexString(tail);
}

std::string versionOf(const Bytes& image) {
  if (image.size() < kIdentitySize) return "";
  const auto identity = image.end() - kIdentitySize;
  return versionText(internal::hexString(Bytes(identity, image.end() - 1)));
}

Bytes configRequest(const std::string& identity) {
  const std::string body = std::string("58000000").append(identity) + nzeros(8) + nzeros(64) + nzeros(64) +
                           nzeros(12) + nzeros(12);
  return toData(std::string("86").append(body) + crcOf(toData(body)));
}

// Not through text: of all frames only these are many.
Bytes dataRequest(const Bytes& packet) {
  Bytes frame;
  frame.reserve(packet.size() + 1);
  frame.push_back(0x85);
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

Bytes checkRequest(const Bytes& segment) { return toData(withMagic("82") + crcOf(segment)); }
Bytes byeRequest() { return toData("88"); }
Bytes doneRequest() { return toData(withMagic("92")); }

}  // namespace wire

std::string KWTCmdResponse::getVersion(const Reply& reply) {
  using namespace wire;
  if (!reply || reply->size() < kBeforeVersion + kBehindVersion) return "";
  return versionText(
      std::string_view(*reply).substr(kBeforeVersion, reply->size() - kBeforeVersion - kBehindVersion));
}

std::int64_t KWTCmdResponse::getMTU(const Reply& reply) {
  using namespace wire;
  if (!reply || reply->size() < kMtuLength) return 0;
  return static_cast<std::int64_t>(
      internal::littleEndianField(*reply, reply->size() - kMtuLength, kMtuLength));
}

}  // namespace kwtsdk
