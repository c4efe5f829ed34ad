#include "sim/air/bluetooth_address.h"

#include <charconv>
#include <cstddef>

namespace kwtsdk::sim {

std::optional<BluetoothAddress> BluetoothAddress::fromString(std::string_view text) {
  BluetoothAddress address;
  if (text.size() != 3 * address.bytes.size() - 1) return std::nullopt;
  for (std::size_t i = 0; i < address.bytes.size(); ++i) {
    const char* const digits = text.data() + 3 * i;
    std::uint8_t& byte = address.bytes[address.bytes.size() - 1 - i];
    if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return std::nullopt;
    if (i + 1 < address.bytes.size() && digits[2] != ':') return std::nullopt;
  }
  return address;
}

std::string BluetoothAddress::toString() const {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    if (!text.empty()) text += ':';
    text += digits[*byte >> 4];
    text += digits[*byte & 0x0F];
  }
  return text;
}

}  // namespace kwtsdk::sim
