#include "sim/air/identifiers.h"

#include <charconv>
#include <cstddef>

namespace kwtsdk::sim {

namespace {

constexpr std::size_t kShortSize = 2, kLongSize = 16;

/// Of a number on the wire, the most significant digit first.
std::string hexDigits(std::span<const std::uint8_t> littleEndian) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (auto byte = littleEndian.rbegin(); byte != littleEndian.rend(); ++byte) {
    text += digits[*byte >> 4];
    text += digits[*byte & 0x0F];
  }
  return text;
}

}  // namespace

Bytes attUuid(const Uuid& uuid) {
  std::string text = uuid.toString();
  const auto abbreviated = Uuid::fromString(text.substr(4, 4));
  text = abbreviated == uuid ? text.substr(4, 4) : text;
  std::erase(text, '-');
  Bytes bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const digits = text.data() + text.size() - 2 * (i + 1);
    std::from_chars(digits, digits + 2, bytes[i], 16);
  }
  return bytes;
}

std::optional<Uuid> uuidFromAtt(std::span<const std::uint8_t> bytes) {
  if (bytes.size() != kShortSize && bytes.size() != kLongSize) return std::nullopt;
  std::string text = hexDigits(bytes);
  if (bytes.size() == kLongSize) {
    for (const std::size_t dash : {20U, 16U, 12U, 8U}) text.insert(dash, 1, '-');
  }
  return Uuid::fromString(text);
}

Uuid shortUuid(std::uint16_t number) {
  return *uuidFromAtt(std::array{static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8)});
}

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
