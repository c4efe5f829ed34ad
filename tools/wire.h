#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

// What the tool has to know of the recorder's protocol; frames as hex text.
namespace kwtsdk::wire {

using namespace internal;  // the characteristics

/// The service that recorders advertise.
inline constexpr char kRecorderService[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820001";

inline constexpr std::uint64_t kBlockSize = 32768;
inline constexpr std::size_t kDownloadHeadSize = 12, kDownloadDataSize = 84,
                             kDownloadPacketSize = kDownloadHeadSize + kDownloadDataSize;

inline constexpr std::string_view kRefusedInCall = "1280040000105400", kRefusedNotInCall = "1280040000115400";
inline constexpr std::string_view kEnded = "0801000100", kEndedByKey = "0801001100",
                                  kEndedByCall = "0801002100";
inline constexpr std::string_view kStopped = "0080";

inline constexpr std::uint64_t kSegmentSize = 8192;
inline constexpr std::int64_t kPacketFloor = 220;
inline constexpr std::uint64_t kSmallestPacket = 88;
inline constexpr std::size_t kIdentitySize = 4;
inline constexpr std::string_view kPrepared = "9801", kSideSelected = "9101", kResumeVerified = "8d42455354",
                                  kBegun = "8142455354", kConfigured = "8701", kSegmentConfirmed = "8301",
                                  kByeAccepted = "8401";

}  // namespace kwtsdk::wire
