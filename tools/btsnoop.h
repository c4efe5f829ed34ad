#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The file format btsnoop (version 1), in which Bluetooth analysers keep packets, and what of Bluetooth's own
// packets is written and read here (Bluetooth Core standard, Volume 4, Part E, and Volume 3, Parts A and F).
// The file's numbers are big-endian, the packets' little-endian.
namespace kwtsdk::tool::btsnoop {

inline constexpr std::string_view kMagic{"btsnoop\0", 8};
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::size_t kHeadSize = 16, kRecordHeadSize = 24;

// What a packet is preceded by: nothing, its type as a byte, or its type in the record's flags.
inline constexpr std::uint32_t kPlain = 1001, kTyped = 1002, kMonitor = 2001;

// Flags of a record, but for kMonitor, whose flags hold one of the numbers below.
inline constexpr std::uint32_t kReceived = 1, kCommandOrEvent = 2;
inline constexpr std::uint32_t kMonitorEvent = 3, kMonitorAclSent = 4, kMonitorAclReceived = 5;

inline constexpr std::uint8_t kAcl = 0x02, kEvent = 0x04;

/// From the year 0, where the file's times begin, to 1970.
inline constexpr std::chrono::microseconds kTo1970{0x00dcddb30f2f8000};

inline constexpr std::uint8_t kDisconnected = 0x05, kLowEnergy = 0x3E;
inline constexpr std::uint8_t kConnected = 0x01, kConnectedEnhanced = 0x0A;  // of kLowEnergy

// Above the twelve bits of a connection's handle: the beginning of a packet from host or controller, or its
// continuation.
inline constexpr std::uint16_t kHandleBits = 0x0FFF, kPartBits = 0x3000, kContinuation = 0x1000,
                               kBeginningReceived = 0x2000;
inline constexpr std::uint16_t kAttChannel = 0x0004;

namespace att {
inline constexpr std::uint8_t kErrorResponse = 0x01, kMtuRequest = 0x02, kMtuResponse = 0x03,
                              kReadByTypeRequest = 0x08, kReadByTypeResponse = 0x09, kWriteRequest = 0x12,
                              kWriteResponse = 0x13, kNotification = 0x1B, kWriteCommand = 0x52,
                              kUnlikelyError = 0x0E;
inline constexpr std::uint16_t kCharacteristicDeclaration = 0x2803;
}  // namespace att

}  // namespace kwtsdk::tool::btsnoop
