#include "session/ogg_page.h"

#include <algorithm>

namespace kwtsdk::session::detail {
namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::size_t kStep = 8;

using CrcTable = std::array<std::array<std::uint32_t, 256>, kStep>;

// Entry [n][byte] is the CRC of the byte with n zero bytes behind it.
constexpr CrcTable makeCrcTable() {
  CrcTable table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc << 1) ^ ((crc >> 31) * kPolynomial);
    table[0][byte] = crc;
  }
  for (std::size_t zeros = 1; zeros < kStep; ++zeros) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t crc = table[zeros - 1][byte];
      table[zeros][byte] = (crc << 8) ^ table[0][crc >> 24];
    }
  }
  return table;
}

constexpr CrcTable kCrcTable = makeCrcTable();

// Not codec/crc32.h, whose CRC runs through the bits the other way.
std::uint32_t crcWith(std::uint32_t crc, std::span<const std::uint8_t> bytes) {
  const auto& table = kCrcTable;
  const std::uint8_t* at = bytes.data();
  std::size_t left = bytes.size();
  for (; left >= kStep; at += kStep, left -= kStep) {
    crc = table[7][at[0] ^ (crc >> 24)] ^ table[6][at[1] ^ ((crc >> 16) & 0xFF)] ^
          table[5][at[2] ^ ((crc >> 8) & 0xFF)] ^ table[4][at[3] ^ (crc & 0xFF)] ^ table[3][at[4]] ^
          table[2][at[5]] ^ table[1][at[6]] ^ table[0][at[7]];
  }
  for (; left > 0; ++at, --left) crc = (crc << 8) ^ table[0][*at ^ (crc >> 24)];
  return crc;
}

}  // namespace

bool OggPage::fitsLead(std::uint8_t byte, bool beginsStream) const {
  constexpr std::array<std::uint8_t, kFlagsAt> fixed{'O', 'g', 'g', 'S', 0};
  if (taken_ < fixed.size()) return byte == fixed[static_cast<std::size_t>(taken_)];
  return !beginsStream || (byte & kBeginFlag) != 0;
}

std::size_t OggPage::take(std::span<const std::uint8_t> bytes) {
  const std::size_t ofHeader = takeHeader(bytes);
  if (taken_ < kFixed || taken_ < headerSize()) return ofHeader;
  const std::span<const std::uint8_t> rest = bytes.subspan(ofHeader);
  const std::uint64_t missing = headerSize() + bodySize_ - taken_;
  const auto body = rest.first(static_cast<std::size_t>(std::min<std::uint64_t>(rest.size(), missing)));
  crc_ = crcWith(crc_, body);
  taken_ += body.size();
  return ofHeader + body.size();
}

std::size_t OggPage::takeHeader(std::span<const std::uint8_t> bytes) {
  std::size_t used = 0;
  while (used < bytes.size() && taken_ < headerSize()) {
    const auto count = std::min(bytes.size() - used, headerSize() - static_cast<std::size_t>(taken_));
    std::copy_n(bytes.data() + used, count, header_.data() + taken_);
    taken_ += count;
    used += count;
    if (taken_ >= kFixed && taken_ == headerSize()) headerEnds();  // its size is known from kFixed on
  }
  return used;
}

void OggPage::headerEnds() {
  const std::span<const std::uint8_t> header(header_.data(), headerSize());
  for (const std::uint8_t lacing : header.subspan(kFixed)) bodySize_ += lacing;
  constexpr std::array<std::uint8_t, 4> noCrc{};
  crc_ = crcWith(crcWith(0, header.first(kCrcAt)), noCrc);
  crc_ = crcWith(crc_, header.subspan(kCrcAt + noCrc.size()));
}

std::uint32_t OggPage::field(std::size_t at) const {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = (value << 8) | header_[at + i];
  return value;
}

}  // namespace kwtsdk::session::detail
