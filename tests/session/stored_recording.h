#pragma once

#include <cstddef>
#include <map>
#include <tuple>

#include <kwtsdk/sim/recording_store.h>

#include "tests/session/ogg_sample.h"

namespace kwtsdk::testing {

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
