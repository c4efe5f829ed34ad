#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/uuid.h>

// UUIDs and addresses, which people write the other way round than they travel.
namespace kwtsdk::sim {

/// As attributes carry it, little-endian: 2 bytes where it has a short form, otherwise 16.
Bytes attUuid(const Uuid& uuid);

/// None unless there are 2 or 16 bytes.
std::optional<Uuid> uuidFromAtt(std::span<const std::uint8_t> bytes);

Uuid shortUuid(std::uint16_t number);

/// A controller's address as the kernel has it: the last byte first.
struct BluetoothAddress {
  std::array<std::uint8_t, 6> bytes{};

  /// Reads "00:AA:01:01:00:01" in any letter case; anything else is none.
  static std::optional<BluetoothAddress> fromString(std::string_view text);
  std::string toString() const;

  friend bool operator==(const BluetoothAddress&, const BluetoothAddress&) = default;
};

}  // namespace kwtsdk::sim
