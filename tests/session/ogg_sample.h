#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include <kwtsdk/bytes.h>

namespace kwtsdk::testing {

// Bit by bit, as RFC 3533 describes it.
inline std::uint32_t oggCrc(const Bytes& bytes) {
  std::uint32_t crc = 0;
  for (const std::uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      const bool carry = ((crc >> 31) ^ ((byte >> bit) & 1U)) != 0;
      crc = (crc << 1) ^ (carry ? 0x04C11DB7U : 0);
    }
  }
  return crc;
}

enum OggFlags : std::uint8_t { kMiddle = 0, kBegin = 2, kEnd = 4 };

inline Bytes oggPage(std::uint8_t flags, std::uint8_t serial, std::uint8_t sequence, std::size_t bodySize,
                     unsigned seed = 1) {
  Bytes page{'O', 'g', 'g', 'S', 0, flags, 0, 0, 0, 0, 0, 0, 0, 0, serial, 0, 0, 0, sequence, 0, 0, 0};
  page.insert(page.end(), 4, 0);
  page.push_back(static_cast<std::uint8_t>(bodySize / 255 + 1));
  page.insert(page.end(), bodySize / 255, 255);
  page.push_back(static_cast<std::uint8_t>(bodySize % 255));
  std::mt19937 random(seed * 1000 + serial * 100U + sequence);
  for (std::size_t i = 0; i < bodySize; ++i) page.push_back(static_cast<std::uint8_t>(random()));
  const std::uint32_t crc = oggCrc(page);
  for (unsigned i = 0; i < 4; ++i) page[22 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
  return page;
}

template <class... More>
Bytes joined(Bytes first, const More&... more) {
  (first.insert(first.end(), more.begin(), more.end()), ...);
  return first;
}

}  // namespace kwtsdk::testing
