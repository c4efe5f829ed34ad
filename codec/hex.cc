#include "codec/hex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

namespace kwtsdk::internal {
namespace {

constexpr std::size_t kVector = 16;  // a vector register's bytes

// Digits are computed, not looked up: the compiler turns both directions into vector instructions.

// The two digits of a byte in the order of memory, one in each half of a 16-bit word.
std::uint16_t digitsOf(unsigned byte) {
  constexpr bool kLittle = std::endian::native == std::endian::little;
  const unsigned nibbles = (kLittle ? byte >> 4 | byte << 8 : byte << 4 | byte) & 0x0F0F;
  const unsigned letters = ((nibbles + 0x0606) >> 4) & 0x0101;  // one for each nibble above 9
  return static_cast<std::uint16_t>(nibbles + '0' * 0x0101 + letters * ('a' - '9' - 1));
}

template <std::size_t kBytes>
void writeDigits(const std::uint8_t* bytes, char* out) {
  std::array<std::uint16_t, kBytes> pairs{};
  for (std::size_t i = 0; i < kBytes; ++i) pairs[i] = digitsOf(bytes[i]);
  std::memcpy(out, pairs.data(), sizeof pairs);
}

constexpr std::uint8_t kNoDigit = 0x80;

std::uint8_t valueOf(char character) {
  const auto code = static_cast<std::uint8_t>(character);
  const auto decimal = static_cast<std::uint8_t>(code - '0');
  const auto letter = static_cast<std::uint8_t>((code | ('a' ^ 'A')) - 'a');
  const std::uint8_t ofLetter = letter < 6 ? static_cast<std::uint8_t>(letter + 10) : kNoDigit;
  return decimal < 10 ? decimal : ofLetter;
}

// Converts pairs of digits; the result has kNoDigit set when one of them is none (out then means nothing).
template <std::size_t kPairs>
std::uint8_t convertPairs(const char* text, std::uint8_t* out) {
  std::uint8_t seen = 0;
  for (std::size_t i = 0; i < kPairs; ++i) {
    const std::uint8_t high = valueOf(text[2 * i]), low = valueOf(text[2 * i + 1]);
    seen |= high | low;
    out[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return seen;
}

bool convertDigits(const char* text, std::size_t pairs, std::uint8_t* out) {
  unsigned seen = 0;
  for (; pairs >= kVector; pairs -= kVector, text += 2 * kVector, out += kVector)
    seen |= convertPairs<kVector>(text, out);
  for (; pairs > 0; --pairs, text += 2, ++out) seen |= convertPairs<1>(text, out);
  return (seen & kNoDigit) == 0;
}

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// One pair the way a number scanner reads it: blanks before the digits are skipped, the first non-digit ends
// it.
void appendScannedPair(char first, char second, Bytes& out) {
  const std::uint8_t high = valueOf(first), low = valueOf(second);
  if (high != kNoDigit) {
    out.push_back(low == kNoDigit ? high : static_cast<std::uint8_t>(high << 4 | low));
  } else if (isBlank(first) && low != kNoDigit) {
    out.push_back(low);
  }
}

}  // namespace

std::string hexString(std::span<const std::uint8_t> bytes) {
  std::string text(bytes.size() * 2, '\0');
  char* out = text.data();
  const std::uint8_t* in = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= kVector; left -= kVector, in += kVector, out += 2 * kVector) writeDigits<kVector>(in, out);
  for (; left > 0; --left, ++in, out += 2) writeDigits<1>(in, out);
  return text;
}

Bytes toData(std::string_view text) {
  const std::size_t pairs = text.size() / 2;
  Bytes bytes(pairs);
  if (convertDigits(text.data(), pairs, bytes.data())) return bytes;
  bytes.clear();
  for (std::size_t i = 0; i < pairs; ++i) appendScannedPair(text[2 * i], text[2 * i + 1], bytes);
  return bytes;
}

Bytes reverse(std::span<const std::uint8_t> bytes) { return {bytes.rbegin(), bytes.rend()}; }

std::uint64_t hexToDecimal(std::span<const std::uint8_t> bytes) {
  std::uint64_t value = 0;
  for (const std::uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

std::string littleEndianHexStringWithLength(std::uint64_t value, std::int64_t length) {
  constexpr std::uint64_t kDigits = 8;
  std::array<std::uint8_t, 4> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  std::string text = hexString(bytes);
  // A negative length counts as a huge one, of which the width of the filler keeps the low 32 bits.
  const auto asked = static_cast<std::uint64_t>(length);
  if (asked > kDigits)
    text.insert(0, nzeros(static_cast<std::int32_t>(static_cast<std::uint32_t>(asked - kDigits))));
  return text;
}

std::string nzeros(std::int32_t count) {
  const std::int64_t width = std::max<std::int64_t>(1, std::abs(static_cast<std::int64_t>(count)));
  if (count >= 0) return std::string(static_cast<std::size_t>(width), '0');
  std::string text(static_cast<std::size_t>(width), ' ');
  text.front() = '0';
  return text;
}

std::uint64_t littleEndianField(std::string_view text, std::size_t position, std::size_t count) {
  if (position >= text.size()) return 0;
  return hexToDecimal(reverse(toData(text.substr(position, count))));
}

}  // namespace kwtsdk::internal

namespace kwtsdk {

std::optional<Bytes> subDataWithRange(const Bytes& data, std::uint64_t location, std::uint64_t length) {
  if (location > data.size() || length > data.size() - location) return std::nullopt;
  const auto begin = data.begin() + static_cast<Bytes::difference_type>(location);
  try {
    return Bytes(begin, begin + static_cast<Bytes::difference_type>(length));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace kwtsdk
