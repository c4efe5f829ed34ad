#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <tuple>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recording_store.h>

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

enum class Content { ogg, endless, noOgg };  // endless: no page says that it is the last

/// A recording as a store holds it: whole blocks, pages that check, zeros behind the last. One of another
/// number differs in every page.
inline const Bytes& storedRecording(std::size_t blocks, unsigned number = 1, Content content = Content::ogg) {
  static std::map<std::tuple<std::size_t, unsigned, Content>, Bytes> made;
  Bytes& recording = made[{blocks, number, content}];
  if (!recording.empty()) return recording;
  const std::size_t size = blocks * sim::RecordingStore::kBlockSize;
  std::mt19937 random(number);
  while (content == Content::noOgg && recording.size() < size)
    recording.push_back(static_cast<std::uint8_t>(random()));
  bool isLast = content == Content::noOgg;
  for (std::uint8_t page = 0; !isLast; ++page) {
    constexpr std::size_t greatest = 4000;
    isLast = recording.size() + 2 * greatest >= size;
    const OggFlags flags = page == 0 ? kBegin : isLast && content == Content::ogg ? kEnd : kMiddle;
    const std::size_t body = page < 2 ? 19 : 800 + random() % 3000;
    recording = joined(recording, oggPage(flags, static_cast<std::uint8_t>(number), page, body, number));
  }
  recording.resize(size);
  return recording;
}

}  // namespace kwtsdk::testing
