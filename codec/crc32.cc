#include "codec/crc32.h"

#include <array>
#include <bit>
#include <cstring>

namespace kwtsdk::internal {
namespace {

constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320;
constexpr std::size_t kWord = 8;
// Words of different lanes do not depend on each other, so that their look-ups overlap.
constexpr std::size_t kLanes = 4, kBlock = kLanes * kWord;

using Table = std::array<std::array<std::uint32_t, 256>, kWord>;

// Entry [n][byte] is the CRC of a byte n places before a word's last one, with `after` zero bytes behind the
// word.
consteval Table makeTable(std::size_t after) {
  std::array<std::uint32_t, 256> single{};
  for (std::uint32_t byte = 0; byte < single.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? kReflectedPolynomial ^ (crc >> 1) : crc >> 1;
    single[byte] = crc;
  }
  Table table{};
  auto crcs = single;
  for (std::size_t zeros = 0; zeros < after + kWord; ++zeros) {
    if (zeros >= after) table[zeros - after] = crcs;
    for (auto& crc : crcs) crc = single[crc & 0xFF] ^ (crc >> 8);
  }
  return table;
}

constexpr Table kNextWord = makeTable(0), kSameLaneOfNextBlock = makeTable(kBlock - kWord);

std::uint64_t loadLittleEndian(const std::uint8_t* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  return word;
}

std::uint32_t fold(const Table& table, std::uint64_t word) {
  const auto low = static_cast<std::uint32_t>(word), high = static_cast<std::uint32_t>(word >> 32);
  const std::uint32_t ofLow =
      table[7][low & 0xFF] ^ table[6][(low >> 8) & 0xFF] ^ table[5][(low >> 16) & 0xFF] ^ table[4][low >> 24];
  const std::uint32_t ofHigh = table[3][high & 0xFF] ^ table[2][(high >> 8) & 0xFF] ^
                               table[1][(high >> 16) & 0xFF] ^ table[0][high >> 24];
  return ofLow ^ ofHigh;
}

}  // namespace

std::uint32_t crc32Value(std::span<const std::uint8_t> bytes) {
  const std::uint8_t* at = bytes.data();
  std::size_t left = bytes.size();
  // What each lane carries over to its next word.
  std::uint32_t lane0 = 0xFFFFFFFF, lane1 = 0, lane2 = 0, lane3 = 0;
  for (; left >= 2 * kBlock; at += kBlock, left -= kBlock) {
    const std::uint64_t word0 = lane0 ^ loadLittleEndian(at), word1 = lane1 ^ loadLittleEndian(at + kWord),
                        word2 = lane2 ^ loadLittleEndian(at + 2 * kWord),
                        word3 = lane3 ^ loadLittleEndian(at + 3 * kWord);
    lane0 = fold(kSameLaneOfNextBlock, word0);
    lane1 = fold(kSameLaneOfNextBlock, word1);
    lane2 = fold(kSameLaneOfNextBlock, word2);
    lane3 = fold(kSameLaneOfNextBlock, word3);
  }
  std::uint32_t crc = lane0;
  const std::array<std::uint32_t, kLanes> carried{0, lane1, lane2, lane3};
  for (std::size_t word = 0; left >= kWord; ++word, at += kWord, left -= kWord) {
    crc = fold(kNextWord, crc ^ (word < kLanes ? carried[word] : 0) ^ loadLittleEndian(at));
  }
  for (; left > 0; ++at, --left) crc = kNextWord[0][(crc ^ *at) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

}  // namespace kwtsdk::internal
