#include "update/frames.h"

#include <string>

#include "codec/crc32.h"
#include "codec/hex.h"
#include "update/identify_image.h"

namespace kwtsdk::internal {
namespace {

constexpr char MAGICCODE[] = "42455354";

std::string number(std::uint64_t value) { return littleEndianHexStringWithLength(value, 8); }
std::string crcOf(const Bytes& bytes) { return number(crc32Value(bytes)); }

}  // namespace

Bytes prepareRequest() { return toData("9701"); }
Bytes selectionRequest() { return toData("9000"); }

Bytes resumeRequest(std::int64_t segmentSize, std::uint64_t offset) {
  // The recorder expects the offset in 32 bytes, of which the last four hold it.
  const std::string fields =
      littleEndianHexStringWithLength(offset, 64) + number(static_cast<std::uint64_t>(segmentSize));
  return toData(std::string("8c").append(MAGICCODE) + fields + crcOf(toData(fields)));
}

Bytes beginRequest(const Bytes& image) {
  return toData(std::string("8042455354").append(number(image.size())) + crcOf(image));
}

Bytes configRequest(const Bytes& image) {
  const std::string body = std::string("58000000").append(identifyImage(image).value_or("")) + nzeros(8) +
                           nzeros(64) + nzeros(64) + nzeros(12) + nzeros(12);
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

Bytes checkRequest(const Bytes& segment) { return toData(std::string("8242455354").append(crcOf(segment))); }
Bytes byeRequest() { return toData("88"); }
Bytes doneRequest() { return toData("9242455354"); }

}  // namespace kwtsdk::internal
