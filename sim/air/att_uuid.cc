#include "sim/air/att_uuid.h"

#include <array>
#include <charconv>
#include <string>

#include "sim/air/hex_digits.h"

namespace kwtsdk::sim {

namespace {

constexpr std::size_t kShortSize = 2, kLongSize = 16;

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

}  // namespace kwtsdk::sim
