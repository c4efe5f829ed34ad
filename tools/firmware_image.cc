#include "tools/firmware_image.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "tools/output.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::tool {

namespace fs = std::filesystem;

namespace {

Failure unusableImage(const std::string& path, const std::string& reason, const std::string& hint) {
  return {ToolError::fileUnusable, "Cannot install " + path + ": " + reason + ".", hint};
}

// Looked at before it is opened: a pipe would be waited for.
void checkReadable(const std::string& path) {
  const char* const hint = "Name the file of a firmware image.";
  std::error_code problem;
  const fs::file_status status = fs::status(path, problem);
  if (fs::is_directory(status)) throw unusableImage(path, "it is a folder", hint);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw unusableImage(path, "it is not a regular file", hint);
  }
  errno = 0;
  if (!std::ifstream(path, std::ios::binary)) {
    throw unusableImage(path, std::strerror(errno), "Check the file's name and its permissions.");
  }
}

}  // namespace

std::uint64_t unsendableTail(std::uint64_t imageSize, std::int64_t mtu) {
  const auto packetSize = static_cast<std::uint64_t>(std::max(mtu, wire::kPacketFloor));
  const std::uint64_t tail = imageSize % wire::kSegmentSize % packetSize;
  return tail < wire::kSmallestPacket ? tail : 0;
}

// With packets as long as a segment all of the last one is the tail: what fails there fails with shorter
// ones.
std::uint64_t unsendableTail(std::uint64_t imageSize) {
  return unsendableTail(imageSize, std::numeric_limits<std::int64_t>::max());
}

std::uint64_t sendableSize(std::uint64_t imageSize) {
  const std::uint64_t last = imageSize % wire::kSegmentSize, whole = imageSize - last;
  const bool fitsAlways =
      last == 0 || (last >= wire::kSmallestPacket && last < std::uint64_t{wire::kPacketFloor});
  if (fitsAlways) return imageSize;
  return whole + (last < wire::kSmallestPacket ? wire::kSmallestPacket : wire::kSegmentSize);
}

std::uint64_t imageSize(const std::string& path) {
  constexpr std::uint64_t identity = wire::kIdentitySize,
                          greatest = std::numeric_limits<std::uint32_t>::max();
  checkReadable(path);
  const std::uint64_t size = fs::file_size(path);
  if (size < identity) {
    throw unusableImage(path,
                        "it has " + bytesText(size) + ", and the last " + bytesText(identity) +
                            " of an image tell the recorder which one it is",
                        "Check that it is the image and was copied whole.");
  }
  if (size > greatest) {
    throw unusableImage(path, "it has " + bytesText(size) + ", and an image at most " + bytesText(greatest),
                        "Check that it is the image.");
  }
  if (const std::uint64_t tail = unsendableTail(size)) throw unsendable(path, size, tail);
  return size;
}

Failure unsendable(const std::string& path, std::uint64_t size, std::uint64_t tail) {
  return unusableImage(
      path, "its last " + bytesText(tail) + " are too few for a packet, of its " + bytesText(size),
      "The recorder still runs its old firmware. Have the image padded to " + bytesText(sendableSize(size)) +
          ", so that its last " + bytesText(wire::kIdentitySize) + ", which identify it, stay the last.");
}

}  // namespace kwtsdk::tool
