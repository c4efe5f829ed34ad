#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/recorder_uuid.h>

// The framed status channel: what is asked begins 99 EC 2A 02 B2, what is answered 99 EC 3A 00 B2. Battery,
// power and level are words for the same value.
namespace kwtsdk::wire {

inline constexpr auto& CHARACTERISTIC_FOR_COMMUNICATION_WRITE = recorder_uuid::statusWrite;
inline constexpr auto& CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY = recorder_uuid::statusNotify;

/// The last byte of a request's payload.
enum class StatusQuery : std::uint8_t { power = 0x03, capacity = 0x7F };

/// Header, payload length (16-bit), payload, CRC-32 of the payload.
Bytes statusRequest(StatusQuery query);

/// The battery's, ready-made.
inline constexpr char COMMAND_POWER[] = "99EC2A02B20A0001000000000000001003A34083DF";

/// The little-endian value of `size` bytes from byte `at` on; none unless the answer is complete. The values
/// of every query begin at byte 24. Which query it answers is not looked at: recorders do not always say.
inline constexpr std::size_t kStatusValues = 24;
std::optional<std::uint64_t> statusValue(const std::optional<std::string>& reply, std::size_t at,
                                         std::size_t size);

/// Whether it is complete and says that it is a battery level.
bool isPowerReply(const std::string& reply);

}  // namespace kwtsdk::wire
