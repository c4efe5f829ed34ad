#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/recorder_uuid.h>

// The firmware channel: version query and update, written and notified on one characteristic. A frame is an
// opcode, in most of them the letters BEST, fields, and a CRC-32 where the fields vary.
namespace kwtsdk::wire {

inline constexpr auto& CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY = recorder_uuid::firmware;
inline constexpr char MAGICCODE[] = "42455354";
inline constexpr char GET_VERSION_CMD[] = "8e42455354";

/// Bytes of an image that the recorder confirms at a time.
inline constexpr std::uint64_t kSegmentSize = 8192;

/// Bytes of an image in one packet: a smaller MTU does not make packets smaller than the first, and what
/// remains at an image's end does not make them smaller than the second.
inline constexpr std::int64_t kPacketFloor = 220;
inline constexpr std::uint64_t kSmallestPacket = 88;

/// Bytes at an image's end that tell it from others, the last of them apart.
inline constexpr std::size_t kIdentitySize = 4;

// How the answers begin that let an update go on.
inline constexpr std::string_view kPrepared = "9801", kSideSelected = "9101", kResumeVerified = "8d42455354",
                                  kBegun = "8142455354", kConfigured = "8701", kSegmentConfirmed = "8301",
                                  kByeAccepted = "8401";

Bytes versionRequest();
Bytes prepareRequest();
Bytes selectionRequest();

/// Sizes and offsets in bytes; their low 32 bits are sent.
Bytes resumeRequest(std::int64_t segmentSize, std::uint64_t offset);
Bytes beginRequest(const Bytes& image);

/// What the recorder knows an image by, as hex text: its last four bytes with the very last replaced by zero.
/// None for fewer than four bytes.
std::optional<std::string> identityOf(const Bytes& image);

/// The version in it, in the form in which the recorder tells its own; "" for fewer than four bytes.
std::string versionOf(const Bytes& image);

/// `identity`: 8 hex characters. Without them the frame is 4 bytes shorter, its length field is not.
Bytes configRequest(const std::string& identity);

Bytes dataRequest(const Bytes& packet);
Bytes checkRequest(const Bytes& segment);
Bytes byeRequest();
Bytes doneRequest();

}  // namespace kwtsdk::wire
