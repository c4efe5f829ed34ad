#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kwtsdk::sim {

/// Of a number on the wire, the most significant digit first.
inline std::string hexDigits(std::span<const std::uint8_t> littleEndian) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (auto byte = littleEndian.rbegin(); byte != littleEndian.rend(); ++byte) {
    text += digits[*byte >> 4];
    text += digits[*byte & 0x0F];
  }
  return text;
}

}  // namespace kwtsdk::sim
