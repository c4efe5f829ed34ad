#include "filestore/frames.h"

#include <string>

#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk::internal {
namespace {

std::string number(std::uint64_t value) { return littleEndianHexStringWithLength(value, 8); }

Bytes framed(const std::string& code, const std::string& lengthAndPayload) {
  return toData(code + lengthAndPayload + number(crc32Value(toData(lengthAndPayload))));
}

}  // namespace

Bytes countRequest() { return toData("0182010000"); }

Bytes infoRequest(std::int64_t fileId) {
  return framed("0282", "0400" + number(static_cast<std::uint64_t>(fileId)));
}

Bytes downloadRequest(std::int64_t fileId, std::uint64_t offset) {
  return framed(
      "0382", "0c00" + std::string("00000000") + number(static_cast<std::uint64_t>(fileId)) + number(offset));
}

// The length field says 2 and one byte follows: recorders expect it so.
Bytes downloadNotice() { return toData("1382020000"); }

Bytes deleteRequest(std::int64_t fileId) {
  return framed("0482", "0400" + number(static_cast<std::uint64_t>(fileId)));
}

}  // namespace kwtsdk::internal
