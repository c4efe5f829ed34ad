#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::session::detail {

/// What a recorder says of a live recording.
enum class SoundSign {
  sound,
  started,
  refusedInCall,
  refusedNotInCall,
  stopped,  // the answer to a stop
  ended,
  endedByKey,
  endedByCall,
};

/// How much one packet holds.
inline constexpr Duration kSoundOfPacket = std::chrono::milliseconds(20);

/// None: it is nothing of a recording's.
std::optional<SoundSign> soundSignOf(const Bytes& value);

/// Of a packet of sound: what its head is followed by, as far as it arrived.
Bytes opusOf(const Bytes& packet);

}  // namespace kwtsdk::session::detail
