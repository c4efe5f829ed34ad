#include "platform/opus/ogg_pages.h"

#include <ogg/ogg.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace kwtsdk::internal {

namespace {

constexpr std::array<std::uint8_t, 5> kPageMark{'O', 'g', 'g', 'S', 0};
constexpr std::size_t kPageHead = 27, kLacingCountAt = 26, kCrcAt = 22, kCrcSize = 4;
constexpr std::size_t kLongestPage = kPageHead + 255 + 255 * 255;
constexpr std::size_t kPageBuffer = 4 * 65536;

std::uint64_t littleEndian(std::span<const std::uint8_t> bytes) {
  return std::accumulate(bytes.rbegin(), bytes.rend(), std::uint64_t{0},
                         [](std::uint64_t value, std::uint8_t byte) { return value << 8U | byte; });
}

/// How long the page is that begins there, by its lacing; 0 when that is not all there.
std::size_t sizeOfPage(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kPageHead || bytes.size() < kPageHead + bytes[kLacingCountAt]) return 0;
  const auto lacing = bytes.subspan(kPageHead, bytes[kLacingCountAt]);
  return std::accumulate(lacing.begin(), lacing.end(), kPageHead + lacing.size());
}

bool checks(std::span<std::uint8_t> page) {
  const std::size_t headSize = kPageHead + page[kLacingCountAt];
  const auto crc = page.subspan(kCrcAt, kCrcSize);
  std::array<std::uint8_t, kCrcSize> told{};
  std::copy(crc.begin(), crc.end(), told.begin());
  ogg_page raw{page.data(), static_cast<long>(headSize), page.data() + headSize,
               static_cast<long>(page.size() - headSize)};
  ogg_page_checksum_set(&raw);
  const bool isRight = std::ranges::equal(crc, told);
  std::ranges::copy(told, crc.begin());
  return isRight;
}

OggPage pageOf(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t flagsAt = 5, positionAt = 6, streamAt = 14, numberAt = 18;
  const std::uint8_t flags = bytes[flagsAt];
  OggPage page;
  page.continues = (flags & 1U) != 0;
  page.begins = (flags & 2U) != 0;
  page.ends = (flags & 4U) != 0;
  page.position = static_cast<std::int64_t>(littleEndian(bytes.subspan(positionAt, 8)));
  page.stream = static_cast<std::uint32_t>(littleEndian(bytes.subspan(streamAt, 4)));
  page.number = static_cast<std::uint32_t>(littleEndian(bytes.subspan(numberAt, 4)));
  return page;
}

}  // namespace

OggPageReader::OggPageReader(InputFile& file) : window_(file, kPageBuffer) {}

std::optional<OggPage> OggPageReader::next() {
  hasSkipped_ = false;
  damaged_ = 0;
  lastDamaged_.reset();
  for (fill(); !window_.pending().empty(); fill()) {
    const auto bytes = window_.pending();
    const auto mark = std::search(bytes.begin(), bytes.end(), kPageMark.begin(), kPageMark.end());
    if (mark != bytes.begin()) {
      const bool isAbsent = mark == bytes.end() && !window_.atEnd();  // but it may begin in the last bytes
      skip(static_cast<std::size_t>(mark - bytes.begin()) - (isAbsent ? kPageMark.size() - 1 : 0));
      continue;
    }
    const std::size_t size = sizeOfPage(bytes);
    if (size == 0 || size > bytes.size() || !checks(bytes.first(size))) {
      skipDamaged(size);
      continue;
    }
    window_.advance(size);
    OggPage page = pageOf(bytes);
    page.lacing = bytes.subspan(kPageHead, bytes[kLacingCountAt]);
    page.body = bytes.first(size).subspan(kPageHead + page.lacing.size());
    return page;
  }
  return std::nullopt;
}

void OggPageReader::skip(std::size_t size) {
  const auto skipped = window_.pending().first(size);
  hasSkipped_ = hasSkipped_ || std::ranges::any_of(skipped, [](std::uint8_t byte) { return byte != 0; });
  window_.advance(size);
}

// Only the mark: its length may be what is damaged, and other pages within it.
void OggPageReader::skipDamaged(std::size_t size) {
  ++damaged_;
  lastDamaged_.reset();
  if (size > 0 && size <= window_.pending().size()) lastDamaged_ = pageOf(window_.pending());
  skip(kPageMark.size());
}

void OggPageReader::fill() {
  if (!window_.atEnd() && window_.pending().size() < kLongestPage) window_.refill();
}

}  // namespace kwtsdk::internal
