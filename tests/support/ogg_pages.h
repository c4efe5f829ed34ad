#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <tuple>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::testing {

/// Bit by bit: slow, but no table that the library could share a mistake with.
inline std::uint32_t oggCrc(const Bytes& page) {
  std::uint32_t crc = 0;
  for (const std::uint8_t byte : page) {
    crc ^= static_cast<std::uint32_t>(byte) << 24U;
    for (int bit = 0; bit < 8; ++bit) crc = (crc << 1U) ^ ((crc >> 31U) * 0x04C11DB7U);
  }
  return crc;
}

struct OggPage {
  enum Flags : std::uint8_t { none = 0, first = 2, last = 4 };
  std::uint8_t flags;
  std::uint32_t serial, number;
  Bytes payload;

  Bytes bytes() const {
    Bytes page{'O', 'g', 'g', 'S', 0, flags};
    const auto put32 = [&page](std::uint32_t value) {
      for (unsigned shift = 0; shift < 32; shift += 8)
        page.push_back(static_cast<std::uint8_t>(value >> shift));
    };
    for (const std::uint32_t value : {number * 960, 0U, serial, number, 0U}) put32(value);
    page.push_back(static_cast<std::uint8_t>(payload.size() / 255 + 1));
    page.insert(page.end(), payload.size() / 255, 255);
    page.push_back(static_cast<std::uint8_t>(payload.size() % 255));
    page.insert(page.end(), payload.begin(), payload.end());
    const std::uint32_t crc = oggCrc(page);
    for (unsigned i = 0; i < 4; ++i) page[22 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
    return page;
  }
};

enum class Content { ogg, endless, noOgg };  // endless: no page says that it is the last

/// A recording as a store holds it: whole blocks, pages whose sums are right, zeros behind the last. Others
/// of another number differ in every page.
inline const Bytes& storedRecording(std::size_t blocks, unsigned number = 1, Content content = Content::ogg) {
  static std::map<std::tuple<std::size_t, unsigned, Content>, Bytes> made;
  Bytes& recording = made[{blocks, number, content}];
  const std::size_t size = blocks * sim::RecordingStore::kBlockSize;
  std::uint32_t random = number * 2654435761U + 1;
  const auto noise = [&random](std::size_t length) {
    Bytes bytes(length);
    for (auto& byte : bytes)
      byte = static_cast<std::uint8_t>((random = random * 1664525U + 1013904223U) >> 24U);
    return bytes;
  };
  if (!recording.empty()) return recording;
  if (content == Content::noOgg) return recording = noise(size);
  const auto head = [](std::string_view text) { return Bytes(text.begin(), text.end()); };
  constexpr std::size_t greatest = 4000;
  for (std::uint32_t page = 0, isLast = 0; isLast == 0; ++page) {
    isLast = recording.size() + 2 * greatest >= size ? 1 : 0;
    const auto flags = page == 0                                ? OggPage::first
                       : isLast != 0 && content == Content::ogg ? OggPage::last
                                                                : OggPage::none;
    const Bytes payload = page == 0   ? head(std::string_view("OpusHead\1\1\0\0\200\76\0\0\0\0\0", 19))
                          : page == 1 ? head(std::string_view("OpusTags\0\0\0\0\0\0\0\0", 16))
                                      : noise(800 + random % 3000);
    const Bytes bytes = OggPage{static_cast<std::uint8_t>(flags), number, page, payload}.bytes();
    recording.insert(recording.end(), bytes.begin(), bytes.end());
  }
  recording.resize(size);
  return recording;
}

}  // namespace kwtsdk::testing
