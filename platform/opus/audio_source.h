#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kwtsdk::internal {

/// The room that a read needs at least, in frames: the longest packet, 120 ms at 48 kHz.
constexpr std::size_t kLongestRead = 5760;

/// The sound of a recording, as interleaved 16-bit samples.
class AudioSource {
 public:
  virtual ~AudioSource() = default;
  virtual int sampleRate() const = 0;
  virtual int channels() const = 0;

  /// The next frames (samples of every channel), to the end of `room` but for less than a packet; 0 at the
  /// end of the recording.
  virtual std::size_t read(std::span<std::int16_t> room) = 0;

  /// Packets that did not decode and gaps in the data, so far.
  virtual std::uint64_t damagedPackets() const = 0;
};

}  // namespace kwtsdk::internal
