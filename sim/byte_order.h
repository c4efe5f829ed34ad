#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <kwtsdk/bytes.h>

// Little-endian numbers, as the recorder, the Attribute Protocol and sound files have them.
namespace kwtsdk::sim {

inline std::uint32_t little32(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 16 | static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

inline std::uint16_t little16(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

inline void putLittle16(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  bytes[at] = static_cast<std::uint8_t>(value);
  bytes[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

inline void putLittle32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  putLittle16(bytes, at, value);
  putLittle16(bytes, at + 2, value >> 16);
}

inline void append(Bytes& bytes, std::span<const std::uint8_t> more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

inline void appendLittle16(Bytes& bytes, std::size_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value));
  bytes.push_back(static_cast<std::uint8_t>(value >> 8));
}

inline void appendLittle32(Bytes& bytes, std::size_t value) {
  appendLittle16(bytes, value);
  appendLittle16(bytes, value >> 16);
}

}  // namespace kwtsdk::sim
