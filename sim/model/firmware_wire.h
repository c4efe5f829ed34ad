#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/firmware_update.h>

/// The firmware channel's part of the protocol, as wire.h has the others'.
namespace kwtsdk::sim::wire {

// ---- The image ----

/// It ends with its identity: three numbers of the version and a byte that is not part of it.
inline constexpr std::size_t kIdentitySize = 4;
inline constexpr std::size_t kSmallestImage = kIdentitySize, kGreatestImage = std::size_t{64} << 20;

constexpr bool isImageSize(std::size_t size) { return size >= kSmallestImage && size <= kGreatestImage; }

/// As the configuration carries it: the last byte is 0.
Bytes identityOf(std::span<const std::uint8_t> image);

/// As the version query sends it.
Bytes versionOf(std::span<const std::uint8_t> image);

// ---- The version ----

bool isVersionQuery(const Bytes& frame);
Bytes versionReply(const Bytes& version);

// ---- Updates ----

/// After so many bytes of the image comes a check.
inline constexpr std::size_t kSegmentSize = 8192;

/// How a step's frame looks and what follows from it.
struct StepForm {
  std::string_view name;  // in device scripts
  UpdateStep step;
  Bytes head;           // the frame begins with it
  std::size_t size;     // of the frame
  std::size_t crcFrom;  // the frame ends with the CRC of the bytes from here on; 0: it does not
  std::uint8_t replyCode;
  bool refusable;   // the reply is the code and 1 or 0
  UpdateStep next;  // what is due once the step has been taken

  bool fits(const Bytes& frame) const;
};

/// Null when there is none.
const StepForm* stepOf(const Bytes& frame);  // by its code alone
const StepForm* stepNamed(std::string_view name);

// What frames that fit their forms hold.
ResumeVerification readResume(const Bytes& frame);
struct Announcement {
  std::size_t size = 0;
  std::uint32_t crc = 0;
};
Announcement readBegin(const Bytes& frame);
Bytes readConfiguration(const Bytes& frame);  // the image's identity
std::uint32_t readCheck(const Bytes& frame);  // the segment's CRC

Bytes verdict(const StepForm& form, bool accepted);
Bytes resumeReply(const ResumeVerification& asked);
Bytes beginReply(std::uint16_t mtu);

/// A data frame is its code and a part of the image.
inline constexpr std::size_t kDataHead = 1;
bool isData(const Bytes& frame);

/// After the bye; nobody answers it.
bool isDone(const Bytes& frame);

}  // namespace kwtsdk::sim::wire
