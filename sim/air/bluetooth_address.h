#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kwtsdk::sim {

/// A controller's address as the kernel has it: the last byte first.
struct BluetoothAddress {
  std::array<std::uint8_t, 6> bytes{};

  /// Reads "00:AA:01:01:00:01" in any letter case; anything else is none.
  static std::optional<BluetoothAddress> fromString(std::string_view text);
  std::string toString() const;

  friend bool operator==(const BluetoothAddress&, const BluetoothAddress&) = default;
};

}  // namespace kwtsdk::sim
