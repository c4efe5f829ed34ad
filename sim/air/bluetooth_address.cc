#include "sim/air/bluetooth_address.h"

#include <charconv>
#include <cstddef>

#include "sim/air/hex_digits.h"

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
  std::string text = hexDigits(bytes);
  for (const std::size_t colon : {10U, 8U, 6U, 4U, 2U}) text.insert(colon, 1, ':');
  return text;
}

}  // namespace kwtsdk::sim
