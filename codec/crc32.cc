#include "codec/crc32.h"

#include <array>
#include <bit>
#include <cstring>

namespace kwtsdk::internal {
namespace {

constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320;
constexpr std::size_t kSlices = 16;
using Table = std::array<std::array<std::uint32_t, 256>, kSlices>;

// Slice s holds the CRC of a byte followed by s zero bytes, so that 16 bytes are folded in with independent
// look-ups.
constexpr Table makeTable() {
  Table table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    std::uint32_t crc = n;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? kReflectedPolynomial ^ (crc >> 1) : crc >> 1;
    table[0][n] = crc;
  }
  for (std::size_t slice = 1; slice < kSlices; ++slice) {
    for (std::size_t n = 0; n < 256; ++n) {
      const std::uint32_t before = table[slice - 1][n];
      table[slice][n] = table[0][before & 0xFF] ^ (before >> 8);
    }
  }
  return table;
}

constexpr Table kTable = makeTable();

std::uint32_t loadLittleEndian(const std::uint8_t* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
  return word;
}

// Folds one little-endian word whose last byte is followed by `after` further bytes of the block.
std::uint32_t foldWord(std::uint32_t word, std::size_t after) {
  return kTable[after + 3][word & 0xFF] ^ kTable[after + 2][(word >> 8) & 0xFF] ^
         kTable[after + 1][(word >> 16) & 0xFF] ^ kTable[after][word >> 24];
}

}  // namespace

std::uint32_t crc32Value(std::span<const std::uint8_t> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  const std::uint8_t* at = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= kSlices; at += kSlices, left -= kSlices) {
    crc = foldWord(loadLittleEndian(at) ^ crc, 12) ^ foldWord(loadLittleEndian(at + 4), 8) ^
          foldWord(loadLittleEndian(at + 8), 4) ^ foldWord(loadLittleEndian(at + 12), 0);
  }
  for (; left > 0; ++at, --left) crc = kTable[0][(crc ^ *at) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

}  // namespace kwtsdk::internal
