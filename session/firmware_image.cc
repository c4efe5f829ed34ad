#include "session/firmware_image.h"

#include <kwtsdk/session/firmware_image.h>

#include <fcntl.h>

#include <algorithm>
#include <limits>
#include <span>
#include <string>

#include "session/disk_file.h"
#include "session/known_format.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::session {

Result<FirmwareImage> inspectImage(const std::filesystem::path& image) {
  const auto bytes = detail::readImage(image);
  if (!bytes) return Failure(bytes.error().code(), "inspectImage: " + bytes.error().text());
  const auto beginning = std::span(*bytes).first(std::min(bytes->size(), detail::kFormatBytes));
  return FirmwareImage{bytes->size(), wire::versionOf(*bytes), detail::isText(beginning)};
}

namespace detail {

namespace fs = std::filesystem;

namespace {

Failure refusedImage(const fs::path& file, const std::string& reason) {
  return {Errc::imageRefused, "Cannot install " + file.string() + ": " + reason + "."};
}

/// The next size that can be sent whatever the MTU.
std::uint64_t sendableSize(std::uint64_t size) {
  const std::uint64_t last = size % wire::kSegmentSize, whole = size - last;
  return whole + (last < wire::kSmallestPacket ? wire::kSmallestPacket : wire::kSegmentSize);
}

std::optional<Failure> checkSize(const fs::path& file, std::uint64_t size) {
  constexpr std::uint64_t greatest = std::numeric_limits<std::uint32_t>::max();
  if (size < wire::kIdentitySize) {
    return refusedImage(file, "it has " + std::to_string(size) + " bytes, and the last " +
                                  std::to_string(wire::kIdentitySize) +
                                  " of an image tell the recorder which one it is");
  }
  if (size > greatest) {
    return refusedImage(
        file, "it has " + std::to_string(size) + " bytes, and an image at most " + std::to_string(greatest));
  }
  return std::nullopt;
}

std::optional<Failure> checkFormat(const fs::path& file, const DiskFile& opened, std::uint64_t size) {
  Bytes beginning(static_cast<std::size_t>(std::min<std::uint64_t>(size, kFormatBytes)));
  if (auto failure = opened.read(0, beginning)) return failure;
  const char* const format = knownFormat(beginning);
  if (format == nullptr) return std::nullopt;
  return refusedImage(file, std::string("it is ") + format + ", not a firmware image");
}

}  // namespace

Result<Bytes> readImage(const fs::path& file) {
  const auto opened = DiskFile::open(AT_FDCWD, file.string(), O_RDONLY, file);
  if (!opened) return opened.error();
  const auto size = opened->size();
  if (!size) return size.error();
  if (auto failure = checkSize(file, *size)) return *failure;
  if (auto failure = checkFormat(file, *opened, *size)) return *failure;
  // With packets as long as a segment all of the last one is the tail: what fails there always fails.
  if (auto failure = checkTail(file, *size, std::numeric_limits<std::int64_t>::max())) return *failure;
  Bytes image(static_cast<std::size_t>(*size));
  if (auto failure = opened->read(0, image)) return *failure;
  return image;
}

std::size_t packetSize(std::int64_t mtu, std::uint64_t imageSize, std::uint64_t position,
                       std::size_t inSegment) {
  std::uint64_t size = static_cast<std::uint64_t>(std::max(mtu, wire::kPacketFloor));
  size = std::min(size, imageSize - position);
  size = std::max(size, wire::kSmallestPacket);
  return static_cast<std::size_t>(std::min(size, wire::kSegmentSize - inSegment));
}

std::optional<Failure> checkTail(const fs::path& file, std::uint64_t imageSize, std::int64_t mtu) {
  const auto packet = static_cast<std::uint64_t>(std::max(mtu, wire::kPacketFloor));
  const std::uint64_t tail = imageSize % wire::kSegmentSize % packet;
  if (tail == 0 || tail >= wire::kSmallestPacket) return std::nullopt;
  return refusedImage(file, "its last " + std::to_string(tail) + " bytes are too few for a packet, of its " +
                                std::to_string(imageSize) + "; have it padded to " +
                                std::to_string(sendableSize(imageSize)) + " bytes, so that its last " +
                                std::to_string(wire::kIdentitySize) + ", which identify it, stay the last");
}

}  // namespace detail
}  // namespace kwtsdk::session
